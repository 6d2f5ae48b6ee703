// Packed RGB pictures (three bytes a pixel, width * 3 bytes a line) encoded
// as PNG (libpng) or JPEG (TurboJPEG) in memory. Any thread.
#ifndef DVR_WEB_IMAGE_ENCODER_H
#define DVR_WEB_IMAGE_ENCODER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace dvrweb {

enum class ImageType { kPng, kJpeg };

class ImageEncoder {
public:
    static constexpr int kJpegQuality = 80;

    // "png" or "jpeg"/"jpg"; nothing for anything else.
    static std::optional<ImageType> parseType(const std::string &name);
    static const char *mimeType(ImageType type);
    // Empty with *error set when encoding failed.
    static std::string encode(const std::vector<uint8_t> &rgb, int width, int height,
                              ImageType type, std::string *error);
};

}  // namespace dvrweb

#endif  // DVR_WEB_IMAGE_ENCODER_H
