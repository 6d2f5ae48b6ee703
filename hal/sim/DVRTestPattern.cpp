#include "DVRTestPattern.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace dvrspace {

namespace {

constexpr int kStripePeriod = 128;  // luma pixels
constexpr int kHuePeriod = 64;      // chroma pairs
constexpr int kPixelsPerFrame = 4;  // stripe movement
constexpr int kDigits = 8;
constexpr uint8_t kBlack = 16;
constexpr uint8_t kWhite = 235;

// Segments a to g of each decimal digit, bit 0 = a.
constexpr uint8_t kSegments[10] = {0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f};

}  // namespace

DVRTestPattern::DVRTestPattern(int width, int height, int stride)
    : mWidth(width), mHeight(height), mStride(stride) {
    mLumaRamp.resize(static_cast<size_t>(width) + kStripePeriod);
    for (size_t x = 0; x < mLumaRamp.size(); ++x) {
        const int phase = static_cast<int>(x % kStripePeriod);
        // Triangle wave: soft stripes compress well and still show motion.
        const int level = phase < kStripePeriod / 2 ? phase : kStripePeriod - phase;
        mLumaRamp[x] = static_cast<uint8_t>(48 + level * 2);
    }
    mChromaRamp.resize((static_cast<size_t>(width) / 2 + kHuePeriod) * 2);
    for (size_t pair = 0; pair < mChromaRamp.size() / 2; ++pair) {
        const double angle = 2.0 * M_PI * static_cast<double>(pair % kHuePeriod) / kHuePeriod;
        mChromaRamp[pair * 2] = static_cast<uint8_t>(128 + 48 * std::cos(angle));
        mChromaRamp[pair * 2 + 1] = static_cast<uint8_t>(128 + 48 * std::sin(angle));
    }
}

void DVRTestPattern::draw(uint8_t *luma, uint8_t *chroma, uint32_t frameNumber) const {
    const size_t motion = static_cast<size_t>(frameNumber) * kPixelsPerFrame;
    for (int y = 0; y < mHeight; ++y) {
        const size_t offset = (motion + static_cast<size_t>(y)) % kStripePeriod;
        std::memcpy(luma + static_cast<size_t>(y) * mStride, mLumaRamp.data() + offset,
                    static_cast<size_t>(mWidth));
    }
    for (int y = 0; y < mHeight / 2; ++y) {
        const size_t pair = (frameNumber + static_cast<size_t>(y) / 4) % kHuePeriod;
        std::memcpy(chroma + static_cast<size_t>(y) * mStride, mChromaRamp.data() + pair * 2,
                    static_cast<size_t>(mWidth));
    }
    drawDigits(luma, frameNumber);
    drawCode(luma, frameNumber);
}

int DVRTestPattern::blockSize(int width, int height) {
    // Multiples of 8 stay sharp through a block-based codec.
    return std::max(8, std::min(width / (kCodeBits + 8), height / 12) / 8 * 8);
}

void DVRTestPattern::fillLuma(uint8_t *luma, int x, int y, int width, int height,
                              uint8_t value) const {
    x = std::max(0, x);
    y = std::max(0, y);
    width = std::min(width, mWidth - x);
    height = std::min(height, mHeight - y);
    for (int row = 0; row < height && width > 0; ++row) {
        std::memset(luma + static_cast<size_t>(y + row) * mStride + x, value,
                    static_cast<size_t>(width));
    }
}

void DVRTestPattern::drawDigits(uint8_t *luma, uint32_t frameNumber) const {
    const int digitHeight = std::max(10, mHeight / 10);
    const int digitWidth = digitHeight / 2;
    const int thickness = std::max(2, digitHeight / 8);
    const int gap = thickness * 2;
    const int left = gap;
    const int top = mHeight - digitHeight - 3 * gap - blockSize(mWidth, mHeight);
    fillLuma(luma, left - gap / 2, top - gap / 2, kDigits * (digitWidth + gap) + gap / 2,
             digitHeight + gap, kBlack);
    uint32_t remaining = frameNumber;
    for (int digit = kDigits - 1; digit >= 0; --digit) {
        const uint8_t segments = kSegments[remaining % 10];
        remaining /= 10;
        const int x = left + digit * (digitWidth + gap);
        const int middle = top + (digitHeight - thickness) / 2;
        const int bottom = top + digitHeight - thickness;
        const int halfHeight = digitHeight / 2;
        const int right = x + digitWidth - thickness;
        if (segments & 0x01)
            fillLuma(luma, x, top, digitWidth, thickness, kWhite);
        if (segments & 0x02)
            fillLuma(luma, right, top, thickness, halfHeight, kWhite);
        if (segments & 0x04)
            fillLuma(luma, right, top + halfHeight, thickness, halfHeight, kWhite);
        if (segments & 0x08)
            fillLuma(luma, x, bottom, digitWidth, thickness, kWhite);
        if (segments & 0x10)
            fillLuma(luma, x, top + halfHeight, thickness, halfHeight, kWhite);
        if (segments & 0x20)
            fillLuma(luma, x, top, thickness, halfHeight, kWhite);
        if (segments & 0x40)
            fillLuma(luma, x, middle, digitWidth, thickness, kWhite);
    }
}

void DVRTestPattern::drawCode(uint8_t *luma, uint32_t frameNumber) const {
    const int block = blockSize(mWidth, mHeight);
    const int top = (mHeight - 2 * block) / 8 * 8;
    const int left = (mWidth - (kCodeBits + 1) * block) / 8 * 8;
    for (int bit = 0; bit < kCodeBits; ++bit) {
        const bool set = (frameNumber >> (kCodeBits - 1 - bit)) & 1U;
        fillLuma(luma, left + bit * block, top, block, block, set ? kWhite : kBlack);
    }
}

int64_t DVRTestPattern::readFrameNumber(const uint8_t *luma, int width, int height, int stride) {
    const int block = blockSize(width, height);
    const int top = (height - 2 * block) / 8 * 8;
    const int left = (width - (kCodeBits + 1) * block) / 8 * 8;
    int64_t number = 0;
    for (int bit = 0; bit < kCodeBits; ++bit) {
        // The centre of a block survives compression best.
        int sum = 0;
        int samples = 0;
        for (int y = block / 4; y < block * 3 / 4; ++y) {
            for (int x = block / 4; x < block * 3 / 4; ++x) {
                sum += luma[static_cast<size_t>(top + y) * stride + left + bit * block + x];
                ++samples;
            }
        }
        const int mean = sum / samples;
        if (mean > 90 && mean < 160) {
            return -1;
        }
        number = (number << 1) | (mean >= 160 ? 1 : 0);
    }
    return number;
}

}  // namespace dvrspace
