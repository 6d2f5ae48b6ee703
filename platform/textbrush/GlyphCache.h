// Process-wide cache of rendered glyphs of DejaVu Sans Mono, shared by every
// brush and thread. The font is loaded once, on first use, with the printable
// ASCII glyphs of all five sizes; other characters are rendered on first use
// and kept. Cached glyphs never move or change, so callers keep pointers.
#ifndef GLYPH_CACHE_H
#define GLYPH_CACHE_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

struct FT_LibraryRec_;
struct FT_FaceRec_;

class GlyphCache {
public:
    static constexpr int kSizeCount = 5;

    // An anti-aliased glyph: coverage 0..255, rows of width bytes, placed
    // left pixels right of the pen and top pixels above the baseline.
    struct Glyph {
        int left = 0;
        int top = 0;
        int width = 0;
        int rows = 0;
        int advance = 0;
        std::unique_ptr<uint8_t[]> coverage;
    };

    struct Metrics {
        int ascender;    // pixels from the top of a line to its baseline
        int lineHeight;  // ascender plus descender
    };

    // The cache, loading the font on the first call; any thread. The font is
    // DVR_TEXTBRUSH_FONT, else Debian's DejaVu Sans Mono.
    static GlyphCache &instance();

    // False (and logged once) when the font could not be loaded.
    bool usable() const { return mUsable; }
    // Font size code 1..5; the cache must be usable.
    const Metrics &metrics(int fontSize) const;
    // The glyph of a code point at font size code 1..5; never null.
    const Glyph &glyph(int fontSize, char32_t codePoint);

    ~GlyphCache();
    GlyphCache(const GlyphCache &) = delete;
    GlyphCache &operator=(const GlyphCache &) = delete;

private:
    static constexpr char32_t kFirstAscii = 0x20;
    static constexpr char32_t kLastAscii = 0x7e;
    static constexpr int kAsciiCount = kLastAscii - kFirstAscii + 1;

    GlyphCache();
    bool load(const char *path);
    // Renders with FreeType; the face is not thread-safe, so callers hold
    // mRenderLock once other threads can see the cache.
    void render(int fontSize, char32_t codePoint, Glyph *glyph);

    FT_LibraryRec_ *mLibrary = nullptr;
    FT_FaceRec_ *mFace = nullptr;
    bool mUsable = false;
    std::array<Metrics, kSizeCount> mMetrics{};
    std::array<std::array<Glyph, kAsciiCount>, kSizeCount> mAscii;
    std::mutex mRenderLock;
    std::map<std::pair<int, char32_t>, Glyph> mOthers;  // guarded by mRenderLock
};

#endif  // GLYPH_CACHE_H
