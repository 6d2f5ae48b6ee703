#include "Nv12Image.h"

#include <png.h>

#include <algorithm>

namespace dvrctl {

namespace {

uint8_t clampToByte(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

}  // namespace

Nv12Image::Nv12Image(const uint8_t *luma, const uint8_t *chroma, int width, int height, int stride)
    : mLuma(luma), mChroma(chroma), mWidth(width), mHeight(height), mStride(stride) {}

size_t Nv12Image::lumaBytes(int height, int stride) {
    return static_cast<size_t>(height) * static_cast<size_t>(stride);
}

size_t Nv12Image::chromaBytes(int height, int stride) {
    return static_cast<size_t>((height + 1) / 2) * static_cast<size_t>(stride);
}

std::vector<uint8_t> Nv12Image::toRgb() const {
    std::vector<uint8_t> rgb(static_cast<size_t>(mWidth) * mHeight * 3);
    uint8_t *out = rgb.data();
    for (int y = 0; y < mHeight; ++y) {
        const uint8_t *lumaLine = mLuma + static_cast<size_t>(y) * mStride;
        const uint8_t *chromaLine = mChroma + static_cast<size_t>(y / 2) * mStride;
        for (int x = 0; x < mWidth; ++x) {
            // Fixed-point BT.601 limited range, scaled by 256.
            const int c = 298 * (lumaLine[x] - 16);
            const int d = chromaLine[x / 2 * 2] - 128;
            const int e = chromaLine[x / 2 * 2 + 1] - 128;
            *out++ = clampToByte((c + 409 * e + 128) >> 8);
            *out++ = clampToByte((c - 100 * d - 208 * e + 128) >> 8);
            *out++ = clampToByte((c + 516 * d + 128) >> 8);
        }
    }
    return rgb;
}

bool Nv12Image::writePng(const std::string &path, std::string *error) const {
    const std::vector<uint8_t> rgb = toRgb();
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(mWidth);
    image.height = static_cast<png_uint_32>(mHeight);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) == 0) {
        *error = "cannot write " + path + ": " + image.message;
        return false;
    }
    return true;
}

}  // namespace dvrctl
