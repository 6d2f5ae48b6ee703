#include "Nv12Painter.h"

#include <algorithm>

namespace {

inline uint8_t mix(uint8_t base, uint8_t paint, int alpha) {
    return static_cast<uint8_t>(base + (static_cast<int>(paint) - base) * alpha / 255);
}

}  // namespace

Nv12Painter::Nv12Painter(uint8_t *frame, int height, int stride, const Box &clip)
    : mLuma(frame),
      mChroma(frame + static_cast<ptrdiff_t>(stride) * height),
      mStride(stride),
      mClip(clip) {}

void Nv12Painter::fill(const Colour &colour) {
    for (int row = mClip.top; row < mClip.bottom; ++row) {
        std::fill_n(mLuma + static_cast<ptrdiff_t>(row) * mStride + mClip.left,
                    mClip.right - mClip.left, colour.y);
    }
    // Pairs wholly inside take the colour; pairs on the box's edge take the
    // share of their pixels that lies inside.
    const int firstPair = mClip.left / 2;
    const int lastPair = (mClip.right - 1) / 2;
    for (int chromaRow = mClip.top / 2; chromaRow <= (mClip.bottom - 1) / 2; ++chromaRow) {
        const int rowsInside =
            std::min(mClip.bottom, 2 * chromaRow + 2) - std::max(mClip.top, 2 * chromaRow);
        uint8_t *pairs = mChroma + static_cast<ptrdiff_t>(chromaRow) * mStride;
        for (int column = firstPair; column <= lastPair; ++column) {
            const int columnsInside =
                std::min(mClip.right, 2 * column + 2) - std::max(mClip.left, 2 * column);
            if (rowsInside * columnsInside == 4) {
                pairs[2 * column] = colour.u;
                pairs[2 * column + 1] = colour.v;
            } else {
                const int alpha = rowsInside * columnsInside * 255 / 4;
                pairs[2 * column] = mix(pairs[2 * column], colour.u, alpha);
                pairs[2 * column + 1] = mix(pairs[2 * column + 1], colour.v, alpha);
            }
        }
    }
}

void Nv12Painter::blend(const GlyphCache::Glyph &glyph, int left, int top, const Colour &colour) {
    const int x0 = std::max(left, mClip.left);
    const int x1 = std::min(left + glyph.width, mClip.right);
    const int y0 = std::max(top, mClip.top);
    const int y1 = std::min(top + glyph.rows, mClip.bottom);
    if (x0 >= x1 || y0 >= y1) {
        return;
    }
    const uint8_t *coverage = glyph.coverage.get();
    for (int row = y0; row < y1; ++row) {
        const uint8_t *source = coverage + static_cast<ptrdiff_t>(row - top) * glyph.width;
        uint8_t *luma = mLuma + static_cast<ptrdiff_t>(row) * mStride;
        for (int x = x0; x < x1; ++x) {
            const uint8_t alpha = source[x - left];
            if (alpha != 0) {
                luma[x] = mix(luma[x], colour.y, alpha);
            }
        }
    }
    // Each chroma pair takes the mean coverage of its four pixels.
    for (int chromaRow = y0 / 2; chromaRow <= (y1 - 1) / 2; ++chromaRow) {
        uint8_t *pairs = mChroma + static_cast<ptrdiff_t>(chromaRow) * mStride;
        const int rowBegin = std::max(y0, 2 * chromaRow);
        const int rowEnd = std::min(y1, 2 * chromaRow + 2);
        for (int column = x0 / 2; column <= (x1 - 1) / 2; ++column) {
            const int columnBegin = std::max(x0, 2 * column);
            const int columnEnd = std::min(x1, 2 * column + 2);
            int sum = 0;
            for (int row = rowBegin; row < rowEnd; ++row) {
                const uint8_t *source = coverage + static_cast<ptrdiff_t>(row - top) * glyph.width;
                for (int x = columnBegin; x < columnEnd; ++x) {
                    sum += source[x - left];
                }
            }
            if (sum != 0) {
                pairs[2 * column] = mix(pairs[2 * column], colour.u, sum / 4);
                pairs[2 * column + 1] = mix(pairs[2 * column + 1], colour.v, sum / 4);
            }
        }
    }
}
