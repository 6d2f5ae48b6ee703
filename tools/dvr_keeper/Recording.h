// One row of the catalog: a recording the keeper knows of, with the figures
// read from its file. Times are wall-clock milliseconds since the epoch.
#ifndef DVR_KEEPER_RECORDING_H
#define DVR_KEEPER_RECORDING_H

#include <cstdint>
#include <optional>
#include <string>

namespace dvrkeeper {

struct Recording {
    // Being written (record-start seen), finished (record-finish seen),
    // found on disk by a reconciliation, or gone from disk.
    enum class State { kRecording, kFinished, kFound, kMissing };

    std::string path;                  // absolute
    std::string directory;             // the path's directory
    std::optional<int64_t> encoderId;  // unknown for files found on disk
    State state = State::kRecording;
    int64_t startedMs = 0;
    std::optional<int64_t> finishedMs;
    bool locked = false;
    // Whether the service reported the file finished; unknown when found.
    std::optional<bool> closedCleanly;

    // From the file (dvr::recinfo), once it is finished or found.
    double durationSeconds = 0;
    int64_t frames = 0;
    int64_t keyFrames = 0;
    int64_t bytes = 0;
    bool hasAudio = false;
    std::string container;
    int64_t missingSlots = 0;
    double largestGapMs = 0;
    std::optional<bool> decodedToEnd;  // only when every picture was decoded

    static const char *stateName(State state);
    // kRecording for an unknown name.
    static State stateFromName(const std::string &name);
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_RECORDING_H
