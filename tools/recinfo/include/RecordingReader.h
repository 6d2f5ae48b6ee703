// Reads recorded AVI and MPEG-TS files back the way a player would. Counting
// packets is enough for a summary; a picture sink additionally has every video
// picture decoded and handed over, for checks of the content. Any thread; each
// call opens the file on its own.
#ifndef DVR_RECORDING_READER_H
#define DVR_RECORDING_READER_H

#include <cstdint>
#include <functional>
#include <string>

#include "RecordingInfo.h"

namespace dvrspace {

class RecordingReader {
public:
    // Receives the luma plane of each decoded picture, in decoding output order.
    using PictureSink = std::function<void(const uint8_t *luma, int width, int height, int stride)>;

    // Never fails as such: an unreadable file gives opened == false and error.
    static RecordingInfo read(const std::string &path);
    static RecordingInfo read(const std::string &path, const PictureSink &pictures);
    // As read, with every picture decoded: fills decodedToEnd.
    static RecordingInfo verify(const std::string &path);
};

}  // namespace dvrspace

#endif  // DVR_RECORDING_READER_H
