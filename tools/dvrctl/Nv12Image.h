// A camera frame in NV12 (a luma plane, then a half-height plane of
// interleaved U and V samples, both stride bytes a line), turned into an RGB
// PNG file. Colours are limited-range BT.601, as the cameras deliver them.
#ifndef DVRCTL_NV12_IMAGE_H
#define DVRCTL_NV12_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

namespace dvrctl {

class Nv12Image {
public:
    // The planes are read, not copied; they must outlive this object.
    Nv12Image(const uint8_t *luma, const uint8_t *chroma, int width, int height, int stride);

    // Bytes each plane spans, for checking them against the memory they lie in.
    static size_t lumaBytes(int height, int stride);
    static size_t chromaBytes(int height, int stride);

    // Packed RGB, three bytes a pixel, width * 3 bytes a line.
    std::vector<uint8_t> toRgb() const;
    // False with *error set when the file cannot be written.
    bool writePng(const std::string &path, std::string *error) const;

private:
    const uint8_t *mLuma;
    const uint8_t *mChroma;
    int mWidth;
    int mHeight;
    int mStride;
};

}  // namespace dvrctl

#endif  // DVRCTL_NV12_IMAGE_H
