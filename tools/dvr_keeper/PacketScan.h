// Reads a recording the cheap way for the catalog: its packets as the
// container frames them, neither parsed nor decoded, and no stream probing;
// key pictures are told from the H.264 or H.265 units that start each
// picture. Optionally decodes the pictures from the last key picture on, to
// tell whether the file decodes to its end. Any thread; each call opens the
// file on its own.
#ifndef DVR_KEEPER_PACKET_SCAN_H
#define DVR_KEEPER_PACKET_SCAN_H

#include <string>

#include "RecordingInfo.h"

namespace dvrkeeper {

class PacketScan {
public:
    // Fills what dvr::recinfo's reader fills from the packets (size,
    // container, frame rate, the pictures' time stamps and key flags, audio,
    // duration); an unreadable file gives opened == false and error. With
    // lastGroup, decodedToEnd tells whether the last group of pictures
    // decoded without error.
    static dvrspace::RecordingInfo read(const std::string &path, bool lastGroup);
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_PACKET_SCAN_H
