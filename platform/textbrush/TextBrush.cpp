#include "TextBrush.h"

#define LOG_TAG "TextBrush"

#include <log/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "GlyphCache.h"
#include "Nv12Painter.h"

namespace {

constexpr int kColourCount = 9;
constexpr int kNoColour = 0;
// BT.601 limited range, as the encoder expects; index = colour code.
constexpr Nv12Painter::Colour kPalette[kColourCount] = {
    {0, 0, 0},        // 0 none (never painted)
    {16, 128, 128},   // 1 black
    {170, 166, 16},   // 2 cyan
    {81, 90, 240},    // 3 red
    {145, 54, 34},    // 4 green
    {41, 240, 110},   // 5 blue
    {210, 16, 146},   // 6 yellow
    {235, 128, 128},  // 7 white
    {106, 202, 222},  // 8 magenta
};
constexpr char32_t kReplacement = 0xFFFD;

// Decodes the UTF-8 character at text and advances past it. A malformed
// sequence gives U+FFFD and skips one byte; control characters read as spaces.
char32_t nextCodePoint(const unsigned char *&text) {
    const unsigned char lead = *text++;
    if (lead < 0x80) {
        return lead < 0x20 ? U' ' : lead;
    }
    int continuation;
    char32_t codePoint;
    char32_t smallest;
    if ((lead & 0xE0) == 0xC0) {
        continuation = 1;
        codePoint = lead & 0x1F;
        smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        continuation = 2;
        codePoint = lead & 0x0F;
        smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        continuation = 3;
        codePoint = lead & 0x07;
        smallest = 0x10000;
    } else {
        return kReplacement;
    }
    for (int i = 0; i < continuation; ++i) {
        if ((text[i] & 0xC0) != 0x80) {  // also stops at the terminating NUL
            return kReplacement;
        }
        codePoint = (codePoint << 6) | (text[i] & 0x3F);
    }
    if (codePoint < smallest || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        return kReplacement;
    }
    text += continuation;
    return codePoint;
}

int64_t advanceOf(GlyphCache &cache, int fontSize, const char *text) {
    int64_t width = 0;
    for (auto cursor = reinterpret_cast<const unsigned char *>(text); *cursor != 0;) {
        width += cache.glyph(fontSize, nextCodePoint(cursor)).advance;
    }
    return width;
}

}  // namespace

TextBrush::TextBrush(int width, int height, int stride, int format, int fontSize, int background,
                     int foreground)
    : mWidth(width),
      mHeight(height),
      mStride(stride),
      mFormat(format),
      mFontSize(fontSize == kDefaultFontSize ? kDefaultFontSizeCode : fontSize),
      mBackground(background),
      mForeground(foreground) {}

TextBrush::~TextBrush() = default;

int TextBrush::drawText(int x, int y, void *frameAddress, const char *text) {
    const int invalid = checkArguments(frameAddress, text);
    if (invalid != 0) {
        return invalid;
    }
    GlyphCache &cache = GlyphCache::instance();
    if (!cache.usable()) {
        return -ENOENT;
    }
    const GlyphCache::Metrics &metrics = cache.metrics(mFontSize);
    // 64-bit so that no position or text length can overflow before clipping.
    const int64_t boxRight = static_cast<int64_t>(x) + advanceOf(cache, mFontSize, text);
    const int64_t boxBottom = static_cast<int64_t>(y) + metrics.lineHeight;
    const Nv12Painter::Box clip = {static_cast<int>(std::max<int64_t>(x, 0)),
                                   static_cast<int>(std::max<int64_t>(y, 0)),
                                   static_cast<int>(std::min<int64_t>(boxRight, mWidth)),
                                   static_cast<int>(std::min<int64_t>(boxBottom, mHeight))};
    if (clip.left >= clip.right || clip.top >= clip.bottom) {
        return 0;
    }
    Nv12Painter painter(static_cast<uint8_t *>(frameAddress), mHeight, mStride, clip);
    if (mBackground != kNoColour) {
        painter.fill(kPalette[mBackground]);
    }
    if (mForeground == kNoColour) {
        return 0;
    }
    const int64_t baseline = static_cast<int64_t>(y) + metrics.ascender;
    int64_t pen = x;
    for (auto cursor = reinterpret_cast<const unsigned char *>(text); *cursor != 0;) {
        // No glyph reaches further left of its pen than a line is high.
        if (pen - metrics.lineHeight >= clip.right) {
            break;
        }
        const GlyphCache::Glyph &glyph = cache.glyph(mFontSize, nextCodePoint(cursor));
        const int64_t left = pen + glyph.left;
        const int64_t top = baseline - glyph.top;
        if (glyph.width > 0 && left < clip.right && left + glyph.width > clip.left &&
            top < clip.bottom && top + glyph.rows > clip.top) {
            painter.blend(glyph, static_cast<int>(left), static_cast<int>(top),
                          kPalette[mForeground]);
        }
        pen += glyph.advance;
    }
    return 0;
}

int TextBrush::measureText(const char *text, int *width, int *height) const {
    if (text == nullptr || width == nullptr || height == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TextBrush: null argument");
        return -EINVAL;
    }
    if (mFontSize < 1 || mFontSize > GlyphCache::kSizeCount) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TextBrush: font size %d is not 1 to 5",
                            mFontSize);
        return -EINVAL;
    }
    GlyphCache &cache = GlyphCache::instance();
    if (!cache.usable()) {
        return -ENOENT;
    }
    *width = static_cast<int>(std::min<int64_t>(advanceOf(cache, mFontSize, text), INT_MAX));
    *height = cache.metrics(mFontSize).lineHeight;
    return 0;
}

int TextBrush::checkArguments(const void *frameAddress, const char *text) const {
    if (mFormat != kFormatNV12) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TextBrush: unsupported pixel format %d",
                            mFormat);
        return -EINVAL;
    }
    if (frameAddress == nullptr || text == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TextBrush: null %s",
                            frameAddress == nullptr ? "frame address" : "text");
        return -EINVAL;
    }
    if (mFontSize < 1 || mFontSize > GlyphCache::kSizeCount) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "TextBrush: font size %d is not 1 to 5",
                            mFontSize);
        return -EINVAL;
    }
    if (mBackground < 0 || mBackground >= kColourCount || mForeground < 0 ||
        mForeground >= kColourCount) {
        __android_log_print(
            ANDROID_LOG_ERROR, LOG_TAG,
            "TextBrush: colour codes %d (background), %d (foreground) are not 0 to 8", mBackground,
            mForeground);
        return -EINVAL;
    }
    // Chroma pairs cover two columns, so an odd width needs a padded line.
    if (mWidth <= 0 || mHeight <= 0 || mStride < mWidth + mWidth % 2) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "TextBrush: bad frame geometry %dx%d, stride %d", mWidth, mHeight,
                            mStride);
        return -EINVAL;
    }
    return 0;
}
