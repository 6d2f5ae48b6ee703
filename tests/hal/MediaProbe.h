// Reads a recorded file back with libavformat/libavcodec the way a player
// would, decoding every picture and reading the test pattern's frame number
// from it.
#ifndef DVR_TEST_MEDIA_PROBE_H
#define DVR_TEST_MEDIA_PROBE_H

#include <cstdint>
#include <string>
#include <vector>

struct MediaProbe {
    bool opened = false;
    std::string container;  // demuxer name: "avi", "mpegts"
    std::string videoCodec;
    int width = 0;
    int height = 0;
    double frameRate = 0;
    std::vector<int64_t> videoPts;  // in frames, in file order
    std::vector<bool> keyFrames;
    std::vector<int64_t> frameNumbers;  // read from each decoded picture
    int decodeErrors = 0;
    bool hasAudio = false;
    std::string audioCodec;
    int sampleRate = 0;
    int channels = 0;
    int64_t audioPackets = 0;

    static MediaProbe read(const std::string &path);
};

#endif  // DVR_TEST_MEDIA_PROBE_H
