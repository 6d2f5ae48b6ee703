// A recording read back by the project's reader, with every picture decoded
// and the test pattern's frame number read from it.
#ifndef DVR_TEST_MEDIA_PROBE_H
#define DVR_TEST_MEDIA_PROBE_H

#include <cstdint>
#include <string>
#include <vector>

#include "RecordingInfo.h"

struct MediaProbe : dvrspace::RecordingInfo {
    std::vector<int64_t> frameNumbers;  // read from each decoded picture

    static MediaProbe read(const std::string &path);
};

#endif  // DVR_TEST_MEDIA_PROBE_H
