// Reads a recording's figures from its file with dvr::recinfo. Any thread.
#ifndef DVR_KEEPER_FILE_PROBE_H
#define DVR_KEEPER_FILE_PROBE_H

#include <string>

#include "Recording.h"

namespace dvrkeeper {

class FileProbe {
public:
    // Fills the file figures of recording from recording.path. With decode
    // every picture is decoded as well, which sets decodedToEnd (and costs a
    // full decode). Returns false, with *error set, when the file cannot be
    // read as a recording; bytes is filled even then.
    static bool fill(Recording &recording, bool decode, std::string *error);
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_FILE_PROBE_H
