#include "FileProbe.h"

#include "RecordingInfo.h"
#include "RecordingReader.h"

namespace dvrkeeper {

bool FileProbe::fill(Recording &recording, bool decode, std::string *error) {
    const dvrspace::RecordingInfo info = decode ? dvrspace::RecordingReader::verify(recording.path)
                                                : dvrspace::RecordingReader::read(recording.path);
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
    if (decode) {
        recording.decodedToEnd = info.decodedToEnd;
    }
    return true;
}

}  // namespace dvrkeeper
