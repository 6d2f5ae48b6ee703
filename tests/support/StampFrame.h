// Helpers for checking drawn stamps: a stamp client that answers a fixed
// text, a black NV12 frame, the box a text fills, and which pixels changed
// inside and outside such boxes.
#ifndef DVR_TEST_STAMP_FRAME_H
#define DVR_TEST_STAMP_FRAME_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "IDVRCallback.h"

namespace dvrtest {

// Answers getStampString with its text and counts the questions; the other
// calls do nothing. Any thread.
class StampClient : public dvrspace::BnDVRCallback {
public:
    explicit StampClient(std::string text) : mText(std::move(text)) {}
    int onRecordStart(int, int, const char *) override { return 0; }
    int onRecordFinish(int, int, const char *) override { return 0; }
    int onRecordError(int, int, int) override { return 0; }
    int onRecordErrorSevere(int, int, int) override { return 0; }
    int onRecordAbnormal(int, int, int) override { return 0; }
    int getStampString(int cbkId, int index, char *buffer) override;
    int fileNameGenerator(int, int, char *, int) override { return 0; }

    std::atomic<int> mAsked{0};
    std::atomic<int> mAskedIndex{-1};

private:
    const std::string mText;
};

// A black NV12 frame (luma 16, chroma 128) of stride * height * 3 / 2 bytes.
class Nv12Frame {
public:
    Nv12Frame(int width, int height, int stride);
    void *address() { return mBytes.data(); }
    const std::vector<uint8_t> &bytes() const { return mBytes; }
    int width() const { return mWidth; }
    int height() const { return mHeight; }
    int stride() const { return mStride; }

private:
    int mWidth;
    int mHeight;
    int mStride;
    std::vector<uint8_t> mBytes;
};

struct Box {
    int x, y, width, height;
    bool contains(int px, int py) const {
        return px >= x && px < x + width && py >= y && py < y + height;
    }
};

// The box TextBrush fills for text at (x, y) with renderer size rendererFontSize.
Box textBox(const Nv12Frame &frame, int x, int y, int rendererFontSize, const std::string &text);

struct PixelChanges {
    int inside = 0;   // changed luma pixels inside one of the boxes
    int outside = 0;  // changed luma pixels and chroma samples outside all boxes
};

// A chroma sample counts as inside when one of its four pixels is.
PixelChanges comparePixels(const Nv12Frame &before, const Nv12Frame &after,
                           const std::vector<Box> &boxes);

// A black frame before and after something drew into it.
struct Drawing {
    Nv12Frame before;
    Nv12Frame after;
    int result;  // what the drawing returned
};

// Runs draw on a black frame of the given geometry.
Drawing drawOnBlack(int width, int height, int stride, const std::function<int(Nv12Frame &)> &draw);

// Expects more than minInside changed luma pixels inside box and no change
// outside it.
void expectDrawnOnlyInside(const Drawing &drawing, const Box &box, int minInside);

}  // namespace dvrtest

#endif  // DVR_TEST_STAMP_FRAME_H
