// Text renderer: draws a line of text into a frame in place. Cheap to build:
// glyphs come from a process-wide cache shared by every brush and thread.
#ifndef TEXT_BRUSH_H
#define TEXT_BRUSH_H

#include <cstdint>

class TextBrush {
public:
    // Pixel format codes.
    static constexpr int kFormatNV12 = 2;  // luma plane, interleaved chroma at stride * height

    // fontSize: 1 (smallest) to 5. background, foreground: colour codes 0 to 8
    // (palette in TextBrush.cpp's table, written down below); background 0
    // draws no background.
    //   0 none/transparent, 1 black, 2 white, 3 red, 4 green, 5 blue,
    //   6 yellow, 7 cyan, 8 magenta
    TextBrush(int width, int height, int stride, int format, int fontSize, int background,
              int foreground);
    ~TextBrush();
    TextBrush(const TextBrush &) = delete;
    TextBrush &operator=(const TextBrush &) = delete;

    // Draws text with its top-left corner at (x, y) into the frame at
    // frameAddress, clipped to the frame. 0 on success; non-zero for an
    // unsupported format, a null address or bad codes. Any thread.
    int drawText(int x, int y, void *frameAddress, const char *text);

private:
    int mWidth;
    int mHeight;
    int mStride;
    int mFormat;
    int mFontSize;
    int mBackground;
    int mForeground;
};

#endif  // TEXT_BRUSH_H
