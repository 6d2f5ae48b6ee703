// The first key frame of a recording, decoded with libavcodec and scaled to
// at most kWidth pixels wide, as an image. Any thread.
#ifndef DVR_WEB_THUMBNAIL_H
#define DVR_WEB_THUMBNAIL_H

#include <chrono>
#include <string>

#include "ImageEncoder.h"

namespace dvrweb {

class Thumbnail {
public:
    static constexpr int kWidth = 320;
    static constexpr auto kTimeLimit = std::chrono::seconds(10);

    // Empty with *error set when the file holds no decodable key frame.
    static std::string make(const std::string &path, ImageType type, std::string *error);
};

}  // namespace dvrweb

#endif  // DVR_WEB_THUMBNAIL_H
