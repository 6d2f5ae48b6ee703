#include "DecodedFrame.h"

#include <algorithm>

#include "RecordingReader.h"

namespace dvrtest {

DecodedFrame DecodedFrame::first(const std::string &path) {
    DecodedFrame result;
    dvrspace::RecordingReader::read(path, [&result](const uint8_t *luma, int width, int height,
                                                    int stride) {
        if (result.width != 0) {
            return;
        }
        result.width = width;
        result.height = height;
        result.luma.resize(static_cast<size_t>(width) * height);
        for (int y = 0; y < height; ++y) {
            const uint8_t *row = luma + static_cast<ptrdiff_t>(y) * stride;
            std::copy(row, row + width, result.luma.begin() + static_cast<ptrdiff_t>(y) * width);
        }
    });
    return result;
}

}  // namespace dvrtest
