// Reads a recording's figures from its file for the catalog. Any thread.
#ifndef DVR_KEEPER_FILE_PROBE_H
#define DVR_KEEPER_FILE_PROBE_H

#include <optional>
#include <string>

#include "Recording.h"

namespace dvrkeeper {

class FileProbe {
public:
    // How far a probe reads into the pictures, and so whether it sets
    // decodedToEnd.
    enum class Depth {
        kPackets,       // the packets only (PacketScan); decodedToEnd untouched
        kLastGroup,     // and the pictures from the last key picture on
        kEveryPicture,  // every picture decoded (dvr::recinfo's verify)
    };

    // Fills the file figures of recording from recording.path. Returns
    // false, with *error set, when the file cannot be read as a recording;
    // bytes is filled even then.
    static bool fill(Recording &recording, Depth depth, std::string *error);
    // Whether the file's last group of pictures decodes without error;
    // nothing when the file cannot be read as a recording.
    static std::optional<bool> decodesToEnd(const std::string &path);
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_FILE_PROBE_H
