// What a recorded file holds, as read back with libavformat: container,
// streams and one entry per video packet. Filled by RecordingReader.
#ifndef DVR_RECORDING_INFO_H
#define DVR_RECORDING_INFO_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace dvrspace {

struct RecordingInfo {
    bool opened = false;
    std::string error;      // why the file could not be read, when !opened
    int64_t sizeBytes = 0;  // on disk
    std::string container;  // demuxer name: "avi", "mpegts"
    double durationSeconds = 0;

    std::string videoCodec;  // empty without a video stream
    int width = 0;
    int height = 0;
    double frameRate = 0;
    std::vector<int64_t> videoPts;  // in frames, in file order
    std::vector<bool> keyFrames;    // per video packet
    // The count the container itself states (an AVI header is given it when
    // the file is completed); 0 when it states none.
    int64_t declaredVideoFrames = 0;
    int decodeErrors = 0;  // only counted when pictures are decoded

    bool hasAudio = false;
    std::string audioCodec;
    int sampleRate = 0;
    int channels = 0;
    int64_t audioPackets = 0;
    // Presentation time of the first audio sample and of the end of the last
    // audio packet, on the video's clock (seconds); 0 without audio.
    double audioStartSeconds = 0;
    double audioEndSeconds = 0;

    // Set by RecordingReader::verify: every video packet decoded without error.
    bool decodedToEnd = false;

    size_t videoFrames() const { return videoPts.size(); }
    size_t keyFrameCount() const;

    // Integrity from the file alone. With presentation times taken from the
    // capture times, a frame the recording lost leaves an empty frame period.
    // Frame periods between the first and the last frame that hold no frame.
    int64_t missingSlots() const;
    // The longest step between consecutive presentation times, in ms; one
    // frame period when nothing is missing, 0 with fewer than two frames.
    double largestGapMs() const;
    double firstPtsSeconds() const;
    double lastPtsSeconds() const;
};

}  // namespace dvrspace

#endif  // DVR_RECORDING_INFO_H
