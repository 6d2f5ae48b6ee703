// --version of every command-line tool: one line, "<tool> (dvr) <version>",
// on stdout. Any thread.
#ifndef DVR_TOOL_VERSION_H
#define DVR_TOOL_VERSION_H

#include <cstdio>

#include "DVRVersion.h"

namespace dvrtools {

inline void printToolVersion(const char *tool) {
    std::printf("%s (dvr) %s\n", tool, DVR_VERSION);
}

}  // namespace dvrtools

#endif  // DVR_TOOL_VERSION_H
