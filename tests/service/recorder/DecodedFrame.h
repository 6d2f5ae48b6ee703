// The first decoded picture of a recorded file, for looking at its pixels.
#ifndef DVR_TEST_DECODED_FRAME_H
#define DVR_TEST_DECODED_FRAME_H

#include <cstdint>
#include <string>
#include <vector>

namespace dvrtest {

struct DecodedFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> luma;  // width x height, no padding

    // Empty (width 0) when the file has no decodable picture.
    static DecodedFrame first(const std::string &path);
    uint8_t at(int x, int y) const { return luma[static_cast<size_t>(y) * width + x]; }
};

}  // namespace dvrtest

#endif  // DVR_TEST_DECODED_FRAME_H
