// Text renderer: draws one line of anti-aliased text (DejaVu Sans Mono, UTF-8)
// into a video frame in place. Cheap to build and destroy: glyphs come from a
// process-wide cache shared by every brush and thread, loaded on the first
// draw of the process; a brush allocates nothing and opens no file.
#ifndef TEXT_BRUSH_H
#define TEXT_BRUSH_H

#include <cstdint>

class TextBrush {
public:
    // Pixel format codes.
    static constexpr int kFormatNV12 = 2;  // luma plane, interleaved chroma at stride * height
    // Font size code that selects the default size, and the size it selects.
    static constexpr int kDefaultFontSize = 0;
    static constexpr int kDefaultFontSizeCode = 3;

    // fontSize: 1 (smallest, 16 px em) to 5 (64 px em); size 3 (32 px) makes a
    // 19-character time stamp about 370 by 38 pixels. 0 asks for the default
    // size, 3: a stamp whose size was never set (cleared to 0) still draws.
    // background, foreground: colour codes 0 to 8 (BT.601 limited-range YUV in
    // TextBrush.cpp):
    //   0 none, 1 black, 2 cyan, 3 red, 4 green, 5 blue, 6 yellow, 7 white,
    //   8 magenta
    // Background 0 draws no background, foreground 0 no text. A stamp's
    // cleared colour is 7, so an unset colour draws white.
    // width, height: frame size in pixels; stride: bytes per luma line (also
    // per chroma line). Arguments are checked by drawText.
    TextBrush(int width, int height, int stride, int format, int fontSize, int background,
              int foreground);
    ~TextBrush();
    TextBrush(const TextBrush &) = delete;
    TextBrush &operator=(const TextBrush &) = delete;

    // Draws text with its top-left corner at (x, y) into the frame at
    // frameAddress: the background fills the text's box (measureText), the
    // glyphs are blended into it. Everything is clipped to the box and the
    // frame: nothing outside either is written, whatever x, y and the text's
    // length. 0 on success (also when nothing is visible); -EINVAL for an
    // unsupported format, a null address or text, bad codes or a bad frame
    // geometry; -ENOENT when the font could not be loaded. Any thread; brushes
    // drawing into different frames run in parallel.
    int drawText(int x, int y, void *frameAddress, const char *text);

    // Size in pixels of the box drawText fills for text: the sum of the
    // characters' advances by the font's line height. 0, or -EINVAL for a bad
    // font size or null argument, -ENOENT when the font could not be loaded.
    int measureText(const char *text, int *width, int *height) const;

private:
    int checkArguments(const void *frameAddress, const char *text) const;

    int mWidth;
    int mHeight;
    int mStride;
    int mFormat;
    int mFontSize;
    int mBackground;
    int mForeground;
};

#endif  // TEXT_BRUSH_H
