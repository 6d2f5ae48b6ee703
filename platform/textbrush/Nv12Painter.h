// Paints into an NV12 frame (luma plane, then one interleaved U/V pair per
// 2x2 pixels at stride * height), never outside a clip box that the caller
// keeps inside the frame. A chroma pair shared by pixels inside and outside
// the box takes the inside pixels' share only.
#ifndef NV12_PAINTER_H
#define NV12_PAINTER_H

#include <cstdint>

#include "GlyphCache.h"

class Nv12Painter {
public:
    struct Colour {
        uint8_t y;
        uint8_t u;
        uint8_t v;
    };
    // Half-open pixel box: left <= x < right, top <= y < bottom.
    struct Box {
        int left;
        int top;
        int right;
        int bottom;
    };

    Nv12Painter(uint8_t *frame, int height, int stride, const Box &clip);

    // Paints the whole clip box in colour.
    void fill(const Colour &colour);
    // Blends colour into the frame by the glyph's coverage, its bitmap's
    // top-left pixel at (left, top).
    void blend(const GlyphCache::Glyph &glyph, int left, int top, const Colour &colour);

private:
    uint8_t *mLuma;
    uint8_t *mChroma;
    int mStride;
    Box mClip;
};

#endif  // NV12_PAINTER_H
