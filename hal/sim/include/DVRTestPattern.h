// The simulated cameras' picture: NV12 diagonal stripes that move a few pixels
// each frame, the frame number in large seven-segment digits at the lower left
// for people, and the same number as a row of black and white blocks at the
// lower right for machines (tests read it back from decoded files).
//
// Drawing copies precomputed rows, so a frame costs about one memcpy of its
// size. One instance per camera; not thread safe.
#ifndef DVR_TEST_PATTERN_H
#define DVR_TEST_PATTERN_H

#include <cstdint>
#include <vector>

namespace dvrspace {

class DVRTestPattern {
public:
    static constexpr int kCodeBits = 24;

    // width and height even, stride >= width.
    DVRTestPattern(int width, int height, int stride);

    // Draws frame number frameNumber into the two planes (luma: stride x height,
    // chroma: stride x height / 2).
    void draw(uint8_t *luma, uint8_t *chroma, uint32_t frameNumber) const;
    // The frame number coded in a luma plane drawn by draw() (after lossy
    // coding, too); -1 when the block row is unreadable.
    static int64_t readFrameNumber(const uint8_t *luma, int width, int height, int stride);

private:
    static int blockSize(int width, int height);
    void drawDigits(uint8_t *luma, uint32_t frameNumber) const;
    void drawCode(uint8_t *luma, uint32_t frameNumber) const;
    void fillLuma(uint8_t *luma, int x, int y, int width, int height, uint8_t value) const;

    int mWidth;
    int mHeight;
    int mStride;
    std::vector<uint8_t> mLumaRamp;    // periodic stripes, long enough for any row offset
    std::vector<uint8_t> mChromaRamp;  // interleaved U and V, likewise
};

}  // namespace dvrspace

#endif  // DVR_TEST_PATTERN_H
