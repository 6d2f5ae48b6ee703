// Rebuilds a recorded AVI that a killed writer left without its index and
// header counts (a player then finds no duration): every packet that reached
// the disk is copied, with its time stamps, into a complete AVI that
// replaces the file. Any thread; the caller makes sure no other process is
// writing the file.
#ifndef DVR_RECORDING_REPAIR_H
#define DVR_RECORDING_REPAIR_H

#include <cstdint>
#include <string>

namespace dvrspace {

struct RepairResult {
    bool repaired = false;  // the file was rewritten
    std::string error;      // why it could not be read or rewritten; empty otherwise
    int64_t videoFrames = 0;
    double durationSeconds = 0;  // of the rewritten file
};

class RecordingRepair {
public:
    // An AVI whose header states no frames or no duration although it holds
    // video: what a writer killed before its trailer leaves.
    static bool needsRepair(const std::string &path);
    // Rewrites such a file in place (through a temporary file in the same
    // directory, renamed over it); a complete or unreadable file is left as
    // it is (repaired false; error set when unreadable).
    static RepairResult repair(const std::string &path);
    // Some process other than this one has the file open (per /proc): it may
    // still be writing it, so it must not be repaired.
    static bool openElsewhere(const std::string &path);
};

}  // namespace dvrspace

#endif  // DVR_RECORDING_REPAIR_H
