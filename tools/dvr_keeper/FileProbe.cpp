#include "FileProbe.h"

#include "PacketScan.h"
#include "RecordingReader.h"

namespace dvrkeeper {

bool FileProbe::fill(Recording &recording, Depth depth, std::string *error) {
    const dvrspace::RecordingInfo info =
        depth == Depth::kEveryPicture
            ? dvrspace::RecordingReader::verify(recording.path)
            : PacketScan::read(recording.path, depth == Depth::kLastGroup);
    recording.bytes = info.sizeBytes;
    if (!info.opened) {
        *error = info.error;
        return false;
    }
    recording.durationSeconds = info.durationSeconds;
    recording.frames = static_cast<int64_t>(info.videoFrames());
    recording.keyFrames = static_cast<int64_t>(info.keyFrameCount());
    recording.hasAudio = info.hasAudio;
    recording.container = info.container;
    recording.missingSlots = info.missingSlots();
    recording.largestGapMs = info.largestGapMs();
    if (depth != Depth::kPackets) {
        recording.decodedToEnd = info.decodedToEnd;
    }
    return true;
}

std::optional<bool> FileProbe::decodesToEnd(const std::string &path) {
    const dvrspace::RecordingInfo info = PacketScan::read(path, true);
    if (!info.opened) {
        return std::nullopt;
    }
    return info.decodedToEnd;
}

}  // namespace dvrkeeper
