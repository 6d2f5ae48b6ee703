#include "StampFrame.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "TextBrush.h"

namespace dvrtest {

namespace {

constexpr uint8_t kBlackLuma = 16;
constexpr uint8_t kNeutralChroma = 128;

bool inAnyBox(const std::vector<Box> &boxes, int px, int py, int scale) {
    for (const Box &box : boxes) {
        const int left = box.x / scale;
        const int top = box.y / scale;
        const int right = (box.x + box.width + scale - 1) / scale;
        const int bottom = (box.y + box.height + scale - 1) / scale;
        if (Box{left, top, right - left, bottom - top}.contains(px, py)) {
            return true;
        }
    }
    return false;
}

}  // namespace

int StampClient::getStampString(int, int index, char *buffer) {
    mAskedIndex = index;
    ++mAsked;
    snprintf(buffer, kStampStringCapacity, "%s", mText.c_str());
    return 0;
}

Nv12Frame::Nv12Frame(int width, int height, int stride)
    : mWidth(width),
      mHeight(height),
      mStride(stride),
      mBytes(static_cast<size_t>(stride) * height * 3 / 2, kNeutralChroma) {
    std::memset(mBytes.data(), kBlackLuma, static_cast<size_t>(stride) * height);
}

Box textBox(const Nv12Frame &frame, int x, int y, int rendererFontSize, const std::string &text) {
    TextBrush brush(frame.width(), frame.height(), frame.stride(), TextBrush::kFormatNV12,
                    rendererFontSize, 0, 7);
    Box box{x, y, 0, 0};
    EXPECT_EQ(0, brush.measureText(text.c_str(), &box.width, &box.height));
    return box;
}

PixelChanges comparePixels(const Nv12Frame &before, const Nv12Frame &after,
                           const std::vector<Box> &boxes) {
    PixelChanges changes;
    const std::vector<uint8_t> &old = before.bytes();
    const std::vector<uint8_t> &now = after.bytes();
    const int stride = before.stride();
    for (int row = 0; row < before.height(); ++row) {
        for (int column = 0; column < before.width(); ++column) {
            const size_t offset = static_cast<size_t>(row) * stride + column;
            if (old[offset] != now[offset]) {
                ++(inAnyBox(boxes, column, row, 1) ? changes.inside : changes.outside);
            }
        }
    }
    const size_t chroma = static_cast<size_t>(stride) * before.height();
    for (int row = 0; row < before.height() / 2; ++row) {
        for (int column = 0; column < before.width(); ++column) {
            const size_t offset = chroma + static_cast<size_t>(row) * stride + column;
            // U and V of one sample sit side by side.
            if (old[offset] != now[offset] && !inAnyBox(boxes, column / 2, row, 2)) {
                ++changes.outside;
            }
        }
    }
    return changes;
}

Drawing drawOnBlack(int width, int height, int stride,
                    const std::function<int(Nv12Frame &)> &draw) {
    Drawing drawing{Nv12Frame(width, height, stride), Nv12Frame(width, height, stride), 0};
    drawing.result = draw(drawing.after);
    return drawing;
}

void expectDrawnOnlyInside(const Drawing &drawing, const Box &box, int minInside) {
    const PixelChanges changes = comparePixels(drawing.before, drawing.after, {box});
    EXPECT_GT(changes.inside, minInside);
    EXPECT_EQ(0, changes.outside);
}

}  // namespace dvrtest
