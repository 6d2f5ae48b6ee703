#include "TextBrush.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"

using dvrtest::LogCapture;

namespace {

constexpr int kNV12 = TextBrush::kFormatNV12;
constexpr int kWhite = 7;
constexpr int kBlack = 1;
constexpr int kNone = 0;
constexpr int kGuard = 4096;
constexpr uint8_t kGuardByte = 0xA5;
const char kStamp[] = "2026/11/22 12:34:56";
const char kTag[] = "TextBrush";

struct Yuv {
    int y;
    int u;
    int v;
};
const Yuv kPalette[9] = {{0, 0, 0},      {16, 128, 128},  {170, 166, 16},
                         {81, 90, 240},  {145, 54, 34},   {41, 240, 110},
                         {210, 16, 146}, {235, 128, 128}, {106, 202, 222}};

struct Box {
    int left;
    int top;
    int right;
    int bottom;
    bool contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
    // Whether the chroma pair of column pair cx, row pair cy covers a pixel inside.
    bool touchesPair(int cx, int cy) const {
        return 2 * cx + 1 >= left && 2 * cx < right && 2 * cy + 1 >= top && 2 * cy < bottom;
    }
};

// An NV12 frame with a recognisable pattern and guard bytes on both sides, so
// a test sees any byte written outside the frame or in the line padding.
class Frame {
public:
    Frame(int width, int height, int stride)
        : mWidth(width),
          mHeight(height),
          mStride(stride),
          mBytes(kGuard + static_cast<size_t>(stride) * (height + (height + 1) / 2) + kGuard,
                 kGuardByte) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < stride; ++x) {
                luma(x, y) = static_cast<uint8_t>(x < width ? 40 + (x + 3 * y) % 50 : 0xEE);
            }
        }
        for (int y = 0; y < (height + 1) / 2; ++y) {
            for (int x = 0; x < stride; ++x) {
                chromaRow(y)[x] = static_cast<uint8_t>(x < width + width % 2 ? 100 + x % 40 : 0xEE);
            }
        }
        mOriginal = mBytes;
    }

    void *data() { return mBytes.data() + kGuard; }
    uint8_t &luma(int x, int y) { return mBytes[kGuard + static_cast<size_t>(y) * mStride + x]; }
    uint8_t *chromaRow(int y) {
        return mBytes.data() + kGuard + static_cast<size_t>(mStride) * mHeight +
               static_cast<size_t>(y) * mStride;
    }
    bool unchanged() const { return mBytes == mOriginal; }
    const std::vector<uint8_t> &bytes() const { return mBytes; }

    // Every byte that changed lies inside box (chroma: a pair touching it);
    // returns the number of luma pixels that changed.
    int expectChangesOnlyInside(const Box &box) {
        for (int i = 0; i < kGuard; ++i) {
            EXPECT_EQ(kGuardByte, mBytes[i]) << "guard before the frame, byte " << i;
            EXPECT_EQ(kGuardByte, mBytes[mBytes.size() - 1 - i]) << "guard after the frame";
        }
        int changed = 0;
        for (int y = 0; y < mHeight; ++y) {
            for (int x = 0; x < mStride; ++x) {
                const size_t at = kGuard + static_cast<size_t>(y) * mStride + x;
                if (mBytes[at] != mOriginal[at]) {
                    EXPECT_TRUE(x < mWidth && box.contains(x, y)) << "luma " << x << "," << y;
                    ++changed;
                }
            }
        }
        const size_t chroma = kGuard + static_cast<size_t>(mStride) * mHeight;
        for (int y = 0; y < (mHeight + 1) / 2; ++y) {
            for (int x = 0; x < mStride; ++x) {
                const size_t at = chroma + static_cast<size_t>(y) * mStride + x;
                if (mBytes[at] != mOriginal[at]) {
                    EXPECT_TRUE(x < mWidth + mWidth % 2 && box.touchesPair(x / 2, y))
                        << "chroma " << x << "," << y;
                }
            }
        }
        return changed;
    }

private:
    int mWidth;
    int mHeight;
    int mStride;
    std::vector<uint8_t> mBytes;
    std::vector<uint8_t> mOriginal;
};

Box textBox(int fontSize, const char *text, int x, int y) {
    TextBrush brush(16, 16, 16, kNV12, fontSize, kNone, kWhite);
    int width = 0;
    int height = 0;
    EXPECT_EQ(0, brush.measureText(text, &width, &height));
    return {x, y, x + width, y + height};
}

}  // namespace

TEST(TextBrushTest, AStampChangesPixelsOnlyInsideItsBox) {
    Frame frame(1920, 1080, 1920);
    TextBrush brush(1920, 1080, 1920, kNV12, 3, kNone, kWhite);
    ASSERT_EQ(0, brush.drawText(101, 57, frame.data(), kStamp));
    const Box box = textBox(3, kStamp, 101, 57);
    const int changed = frame.expectChangesOnlyInside(box);
    const int area = (box.right - box.left) * (box.bottom - box.top);
    EXPECT_GT(changed, area / 10) << "too little ink for a stamp";
    EXPECT_LT(changed, area / 2) << "no background was asked for";
}

TEST(TextBrushTest, FullyCoveredPixelsTakeTheForegroundColour) {
    Frame frame(640, 480, 640);
    TextBrush brush(640, 480, 640, kNV12, 5, kNone, kWhite);
    ASSERT_EQ(0, brush.drawText(10, 10, frame.data(), "IIII"));
    int brightest = 0;
    for (int y = 10; y < 100; ++y) {
        for (int x = 10; x < 200; ++x) {
            brightest = std::max<int>(brightest, frame.luma(x, y));
        }
    }
    EXPECT_EQ(kPalette[kWhite].y, brightest);
}

TEST(TextBrushTest, EdgesAreAntiAliased) {
    Frame frame(640, 480, 640);
    TextBrush brush(640, 480, 640, kNV12, 3, kBlack, kWhite);
    ASSERT_EQ(0, brush.drawText(0, 0, frame.data(), "O"));
    int between = 0;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 20; ++x) {
            between +=
                frame.luma(x, y) > kPalette[kBlack].y && frame.luma(x, y) < kPalette[kWhite].y;
        }
    }
    EXPECT_GT(between, 10);
}

TEST(TextBrushTest, BackgroundFillsTheTextBoxInEachPaletteColour) {
    for (int colour = 1; colour <= 8; ++colour) {
        SCOPED_TRACE("colour " + std::to_string(colour));
        Frame frame(320, 240, 320);
        TextBrush brush(320, 240, 320, kNV12, 2, colour, kNone);
        ASSERT_EQ(0, brush.drawText(10, 20, frame.data(), "Box"));
        const Box box = textBox(2, "Box", 10, 20);
        frame.expectChangesOnlyInside(box);
        for (int y = box.top; y < box.bottom; ++y) {
            for (int x = box.left; x < box.right; ++x) {
                ASSERT_EQ(kPalette[colour].y, frame.luma(x, y)) << x << "," << y;
            }
        }
        // Pairs wholly inside the box (it starts on even coordinates).
        for (int cy = box.top / 2; cy < box.bottom / 2; ++cy) {
            for (int cx = box.left / 2; cx < box.right / 2; ++cx) {
                ASSERT_EQ(kPalette[colour].u, frame.chromaRow(cy)[2 * cx]);
                ASSERT_EQ(kPalette[colour].v, frame.chromaRow(cy)[2 * cx + 1]);
            }
        }
    }
}

TEST(TextBrushTest, BackgroundZeroDrawsNoBackground) {
    Frame frame(320, 240, 320);
    TextBrush brush(320, 240, 320, kNV12, 3, kNone, kWhite);
    ASSERT_EQ(0, brush.drawText(0, 0, frame.data(), "A  B"));
    const Box box = textBox(3, "A", 0, 0);
    const int advance = box.right - box.left;
    // The two spaces between the letters keep the frame's own pixels.
    for (int y = box.top; y < box.bottom; ++y) {
        for (int x = advance + 3; x < 3 * advance - 3; ++x) {
            ASSERT_EQ(40 + (x + 3 * y) % 50, frame.luma(x, y)) << x << "," << y;
        }
    }
}

TEST(TextBrushTest, ForegroundZeroWithBackgroundZeroLeavesTheFrameUntouched) {
    Frame frame(320, 240, 320);
    TextBrush brush(320, 240, 320, kNV12, 3, kNone, kNone);
    EXPECT_EQ(0, brush.drawText(0, 0, frame.data(), kStamp));
    EXPECT_TRUE(frame.unchanged());
}

TEST(TextBrushTest, FiveSizesGrowAndAStampFitsA1080pFrameAtEach) {
    int previousHeight = 0;
    for (int size = 1; size <= 5; ++size) {
        const Box box = textBox(size, kStamp, 0, 0);
        const Box letter = textBox(size, "0", 0, 0);
        EXPECT_GT(box.bottom, previousHeight) << "size " << size;
        EXPECT_EQ(19 * letter.right, box.right) << "monospaced, size " << size;
        EXPECT_LT(box.right, 1920 / 2) << "size " << size;
        previousHeight = box.bottom;
    }
    EXPECT_GE(textBox(1, kStamp, 0, 0).bottom, 16) << "smallest size still readable";
}

TEST(TextBrushTest, MeasureOfAnEmptyTextIsZeroWide) {
    const Box box = textBox(3, "", 0, 0);
    EXPECT_EQ(0, box.right);
    EXPECT_GT(box.bottom, 0);
}

TEST(TextBrushTest, EmptyTextDrawsNothing) {
    Frame frame(64, 64, 64);
    TextBrush brush(64, 64, 64, kNV12, 3, kBlack, kWhite);
    EXPECT_EQ(0, brush.drawText(0, 0, frame.data(), ""));
    EXPECT_TRUE(frame.unchanged());
}

TEST(TextBrushTest, TextIsClippedAtEveryEdgeOfTheFrame) {
    const struct {
        int x;
        int y;
    } positions[] = {{-30, -10}, {250, -15}, {-45, 220}, {270, 225}, {-5, 100}, {300, 100}};
    for (const auto &at : positions) {
        SCOPED_TRACE("at " + std::to_string(at.x) + "," + std::to_string(at.y));
        Frame frame(320, 240, 336);  // padded lines
        TextBrush brush(320, 240, 336, kNV12, 4, kBlack, kWhite);
        ASSERT_EQ(0, brush.drawText(at.x, at.y, frame.data(), "Wg|"));
        EXPECT_GT(frame.expectChangesOnlyInside(textBox(4, "Wg|", at.x, at.y)), 0);
    }
}

TEST(TextBrushTest, OddFrameSizesAreClippedToo) {
    Frame frame(101, 51, 102);
    TextBrush brush(101, 51, 102, kNV12, 3, kBlack, kWhite);
    ASSERT_EQ(0, brush.drawText(60, 20, frame.data(), kStamp));
    EXPECT_GT(frame.expectChangesOnlyInside(textBox(3, kStamp, 60, 20)), 0);
}

TEST(TextBrushTest, TextWhollyOutsideTheFrameDrawsNothing) {
    const struct {
        int x;
        int y;
    } positions[] = {{320, 0},           {0, 240},           {-800, 0},    {0, -80},
                     {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}, {INT_MAX, 0}, {INT_MIN, 0}};
    for (const auto &at : positions) {
        Frame frame(320, 240, 320);
        TextBrush brush(320, 240, 320, kNV12, 5, kBlack, kWhite);
        EXPECT_EQ(0, brush.drawText(at.x, at.y, frame.data(), kStamp));
        EXPECT_TRUE(frame.unchanged()) << "at " << at.x << "," << at.y;
    }
}

TEST(TextBrushTest, HugeTextIsClippedAndDrawn) {
    const std::string huge(200000, 'M');
    Frame frame(320, 240, 320);
    TextBrush brush(320, 240, 320, kNV12, 5, kBlack, kWhite);
    ASSERT_EQ(0, brush.drawText(-1000001, 100, frame.data(), huge.c_str()));
    int width = 0;
    int height = 0;
    ASSERT_EQ(0, brush.measureText(huge.c_str(), &width, &height));
    frame.expectChangesOnlyInside({0, 100, 320, 100 + height});
    EXPECT_EQ(kPalette[kBlack].y, frame.luma(0, 100));  // background reaches the left edge
}

TEST(TextBrushTest, Utf8AndMalformedBytesAreDrawnWithoutHarm) {
    Frame frame(640, 120, 640);
    TextBrush brush(640, 120, 640, kNV12, 3, kNone, kWhite);
    const char text[] = "Grüße Жж \xff\xc3(\xe2\x82 \xf0\x9f\x98\x80 \x01\t";
    ASSERT_EQ(0, brush.drawText(4, 4, frame.data(), text));
    EXPECT_GT(frame.expectChangesOnlyInside(textBox(3, text, 4, 4)), 0);
    // 13 characters (the emoji lacks a glyph and draws the font's box), 4
    // malformed bytes (one replacement each) and 2 control characters drawn
    // as spaces: one cell each.
    const Box letter = textBox(3, "0", 0, 0);
    EXPECT_EQ(19 * letter.right, textBox(3, text, 0, 0).right);
}

TEST(TextBrushTest, UnsupportedPixelFormatsAreRejected) {
    LogCapture capture;
    for (int format : {0, 1, 3, -1}) {
        Frame frame(64, 64, 64);
        TextBrush brush(64, 64, 64, format, 3, kBlack, kWhite);
        EXPECT_EQ(-EINVAL, brush.drawText(0, 0, frame.data(), kStamp));
        EXPECT_TRUE(frame.unchanged());
    }
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, kTag, "TextBrush: unsupported pixel format 1"));
}

TEST(TextBrushTest, NullFrameOrTextIsRejected) {
    LogCapture capture;
    Frame frame(64, 64, 64);
    TextBrush brush(64, 64, 64, kNV12, 3, kBlack, kWhite);
    EXPECT_EQ(-EINVAL, brush.drawText(0, 0, nullptr, kStamp));
    EXPECT_EQ(-EINVAL, brush.drawText(0, 0, frame.data(), nullptr));
    EXPECT_TRUE(frame.unchanged());
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, kTag, "TextBrush: null frame address"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, kTag, "TextBrush: null text"));
    int width = 0;
    EXPECT_EQ(-EINVAL, brush.measureText(nullptr, &width, &width));
    EXPECT_EQ(-EINVAL, brush.measureText(kStamp, nullptr, &width));
}

TEST(TextBrushTest, FontSizeZeroDrawsAtTheDefaultSizeThree) {
    Frame byDefault(640, 64, 640);
    Frame sizeThree(640, 64, 640);
    TextBrush defaultBrush(640, 64, 640, kNV12, 0, kBlack, kWhite);
    TextBrush threeBrush(640, 64, 640, kNV12, 3, kBlack, kWhite);
    ASSERT_EQ(0, defaultBrush.drawText(4, 4, byDefault.data(), kStamp));
    ASSERT_EQ(0, threeBrush.drawText(4, 4, sizeThree.data(), kStamp));
    EXPECT_FALSE(byDefault.unchanged());
    EXPECT_TRUE(byDefault.bytes() == sizeThree.bytes());
}

TEST(TextBrushTest, FontSizesOutsideZeroToFiveAreRejected) {
    LogCapture capture;
    for (int size : {6, -3}) {
        Frame frame(64, 64, 64);
        TextBrush brush(64, 64, 64, kNV12, size, kBlack, kWhite);
        EXPECT_EQ(-EINVAL, brush.drawText(0, 0, frame.data(), kStamp));
        int width = 0;
        EXPECT_EQ(-EINVAL, brush.measureText(kStamp, &width, &width));
        EXPECT_TRUE(frame.unchanged());
    }
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, kTag, "TextBrush: font size 6 is not 1 to 5"));
}

TEST(TextBrushTest, ColourCodesOutsideZeroToEightAreRejected) {
    LogCapture capture;
    const struct {
        int background;
        int foreground;
    } codes[] = {{9, kWhite}, {-1, kWhite}, {kBlack, 9}, {kBlack, -1}};
    for (const auto &code : codes) {
        Frame frame(64, 64, 64);
        TextBrush brush(64, 64, 64, kNV12, 3, code.background, code.foreground);
        EXPECT_EQ(-EINVAL, brush.drawText(0, 0, frame.data(), kStamp));
        EXPECT_TRUE(frame.unchanged());
    }
    EXPECT_TRUE(
        capture.contains(ANDROID_LOG_ERROR, kTag,
                         "TextBrush: colour codes 9 (background), 7 (foreground) are not 0 to 8"));
}

TEST(TextBrushTest, BadFrameGeometryIsRejected) {
    LogCapture capture;
    const struct {
        int width;
        int height;
        int stride;
    } shapes[] = {{0, 64, 64}, {64, 0, 64}, {64, 64, 63}, {-64, 64, 64}, {63, 64, 63}};
    for (const auto &shape : shapes) {
        Frame frame(64, 64, 64);
        TextBrush brush(shape.width, shape.height, shape.stride, kNV12, 3, kBlack, kWhite);
        EXPECT_EQ(-EINVAL, brush.drawText(0, 0, frame.data(), kStamp));
        EXPECT_TRUE(frame.unchanged());
    }
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, kTag,
                                 "TextBrush: bad frame geometry 63x64, stride 63"));
}

TEST(TextBrushTest, BrushesOnSeveralThreadsDrawWhatOneThreadDraws) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 30;
    const char *texts[kThreads] = {kStamp, "Grüße 12:00", "Ωμέγα ½ € ©", "Жж 2026"};
    std::vector<std::vector<uint8_t>> expected;
    for (int t = 0; t < kThreads; ++t) {
        Frame frame(480, 120, 480);
        TextBrush brush(480, 120, 480, kNV12, t + 1, t % 2 == 0 ? kNone : kBlack, t + 3);
        ASSERT_EQ(0, brush.drawText(5, 5, frame.data(), texts[t]));
        expected.push_back(frame.bytes());
    }
    std::vector<std::thread> threads;
    std::vector<int> mismatches(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                Frame frame(480, 120, 480);
                TextBrush brush(480, 120, 480, kNV12, t + 1, t % 2 == 0 ? kNone : kBlack, t + 3);
                // A character no one drew before takes the cache's slow path.
                const std::string fresh = std::string(texts[t]) + " \u0100" +
                                          std::string(1, static_cast<char>('a' + round % 26));
                if (brush.drawText(5, 5, frame.data(), texts[t]) != 0 ||
                    frame.bytes() != expected[t]) {
                    ++mismatches[t];
                }
                Frame scratch(480, 120, 480);
                if (brush.drawText(5, 60, scratch.data(), fresh.c_str()) != 0) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(0, mismatches[t]) << "thread " << t;
    }
}

TEST(TextBrushDeathTest, WithoutItsFontABrushDrawsNothingAndSaysWhy) {
    // A fresh process, so that the font is loaded under this setting.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("DVR_TEXTBRUSH_FONT", "/nonexistent/font.ttf", 1);
            Frame frame(64, 64, 64);
            TextBrush brush(64, 64, 64, kNV12, 3, kBlack, kWhite);
            int width = 0;
            const bool refused = brush.drawText(0, 0, frame.data(), kStamp) == -ENOENT &&
                                 brush.measureText(kStamp, &width, &width) == -ENOENT;
            exit(refused && frame.unchanged() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "Cannot load font /nonexistent/font.ttf: text is not drawn");
}
