#include "GlyphCache.h"

#define LOG_TAG "TextBrush"

#include <ft2build.h>
#include FT_FREETYPE_H
#include <log/log.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kFontEnv = "DVR_TEXTBRUSH_FONT";
constexpr const char *kDefaultFont = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";
// Em heights in pixels of the size codes 1..5: from a small caption to a
// headline on a 1920x1080 frame; size 3 makes a time stamp about 370 by 38.
constexpr int kPixelSizes[GlyphCache::kSizeCount] = {16, 24, 32, 48, 64};

// FreeType measures in 1/64 pixel.
int ceilPixels(FT_Pos value) {
    return static_cast<int>((value + 63) >> 6);
}
int floorPixels(FT_Pos value) {
    return static_cast<int>(value >> 6);
}
int roundPixels(FT_Pos value) {
    return static_cast<int>((value + 32) >> 6);
}

}  // namespace

GlyphCache &GlyphCache::instance() {
    static GlyphCache cache;
    return cache;
}

GlyphCache::GlyphCache() {
    const char *configured = getenv(kFontEnv);
    const char *path = configured != nullptr && configured[0] != '\0' ? configured : kDefaultFont;
    mUsable = load(path);
    if (!mUsable) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "Cannot load font %s: text is not drawn",
                            path);
    }
}

GlyphCache::~GlyphCache() {
    if (mFace != nullptr) {
        FT_Done_Face(mFace);
    }
    if (mLibrary != nullptr) {
        FT_Done_FreeType(mLibrary);
    }
}

const GlyphCache::Metrics &GlyphCache::metrics(int fontSize) const {
    return mMetrics[fontSize - 1];
}

const GlyphCache::Glyph &GlyphCache::glyph(int fontSize, char32_t codePoint) {
    if (codePoint >= kFirstAscii && codePoint <= kLastAscii) {
        return mAscii[fontSize - 1][codePoint - kFirstAscii];
    }
    std::lock_guard<std::mutex> guard(mRenderLock);
    auto found = mOthers.find({fontSize, codePoint});
    if (found != mOthers.end()) {
        return found->second;
    }
    Glyph &glyph = mOthers[{fontSize, codePoint}];
    render(fontSize, codePoint, &glyph);
    return glyph;
}

bool GlyphCache::load(const char *path) {
    if (FT_Init_FreeType(&mLibrary) != 0) {
        mLibrary = nullptr;
        return false;
    }
    if (FT_New_Face(mLibrary, path, 0, &mFace) != 0) {
        mFace = nullptr;
        return false;
    }
    for (int size = 1; size <= kSizeCount; ++size) {
        if (FT_Set_Pixel_Sizes(mFace, 0, kPixelSizes[size - 1]) != 0) {
            return false;
        }
        const FT_Size_Metrics &sizeMetrics = mFace->size->metrics;
        mMetrics[size - 1].ascender = ceilPixels(sizeMetrics.ascender);
        mMetrics[size - 1].lineHeight =
            ceilPixels(sizeMetrics.ascender) - floorPixels(sizeMetrics.descender);
        for (char32_t codePoint = kFirstAscii; codePoint <= kLastAscii; ++codePoint) {
            render(size, codePoint, &mAscii[size - 1][codePoint - kFirstAscii]);
        }
    }
    return true;
}

void GlyphCache::render(int fontSize, char32_t codePoint, Glyph *glyph) {
    if (FT_Set_Pixel_Sizes(mFace, 0, kPixelSizes[fontSize - 1]) != 0 ||
        FT_Load_Char(mFace, codePoint, FT_LOAD_RENDER | FT_LOAD_TARGET_NORMAL) != 0) {
        // A glyph FreeType cannot produce draws as blank space of the usual width.
        glyph->advance = mAscii[fontSize - 1][0].advance;
        return;
    }
    const FT_GlyphSlot slot = mFace->glyph;
    const FT_Bitmap &bitmap = slot->bitmap;
    glyph->left = slot->bitmap_left;
    glyph->top = slot->bitmap_top;
    glyph->advance = roundPixels(slot->advance.x);
    if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY || bitmap.width == 0 || bitmap.rows == 0) {
        return;
    }
    glyph->width = static_cast<int>(bitmap.width);
    glyph->rows = static_cast<int>(bitmap.rows);
    glyph->coverage.reset(new uint8_t[static_cast<size_t>(glyph->width) * glyph->rows]);
    for (int row = 0; row < glyph->rows; ++row) {
        memcpy(glyph->coverage.get() + static_cast<size_t>(row) * glyph->width,
               bitmap.buffer + static_cast<ptrdiff_t>(row) * bitmap.pitch, glyph->width);
    }
}
