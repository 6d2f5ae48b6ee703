#include "KeeperTestPaths.h"

#include <limits.h>
#include <stdlib.h>

#include <chrono>

namespace dvrtest {

int64_t wallClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string resolvedPath(const std::string &path) {
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) != nullptr ? buffer : path;
}

}  // namespace dvrtest
