// dvrctl snapshot: the test service answers with a frame that the test put
// into an arena of its own; dvrctl must write exactly that frame as a PNG.
#include <gtest/gtest.h>
#include <png.h>

#include <cstring>

#include "DVRPhysicalArena.h"
#include "DvrctlTool.h"
#include "ServiceProcess.h"

using dvrspace::DVRPhysicalArena;

namespace {

constexpr int kWidth = 8;
constexpr int kHeight = 4;
constexpr int kStride = 12;  // wider than the picture: padding must not show

struct Rgb {
    int r, g, b;
};

// Left half black over white, right half red over blue, in NV12 with BT.601
// limited-range samples; the bytes beyond the width are garbage.
struct ArenaFrame {
    std::unique_ptr<DVRPhysicalArena> arena;
    dvrspace::SnapshotPA_t snapshot{};
};

ArenaFrame placeFrame(const std::string &path) {
    ArenaFrame frame;
    std::string error;
    frame.arena = DVRPhysicalArena::create(path, 1 << 20, DVRPhysicalArena::kDefaultBase, &error);
    EXPECT_NE(nullptr, frame.arena) << error;
    if (frame.arena == nullptr) {
        return frame;
    }
    DVRPhysicalArena::Buffer luma{};
    DVRPhysicalArena::Buffer chroma{};
    EXPECT_TRUE(frame.arena->allocate(kStride * kHeight, &luma));
    EXPECT_TRUE(frame.arena->allocate(kStride * kHeight / 2, &chroma));
    auto *y = static_cast<uint8_t *>(luma.va);
    auto *uv = static_cast<uint8_t *>(chroma.va);
    std::memset(y, 0x5a, kStride * kHeight);
    std::memset(uv, 0xa5, kStride * kHeight / 2);
    for (int row = 0; row < kHeight; ++row) {
        for (int x = 0; x < kWidth; ++x) {
            const bool right = x >= kWidth / 2;
            const bool bottom = row >= kHeight / 2;
            y[row * kStride + x] = right ? (bottom ? 41 : 81) : (bottom ? 235 : 16);
        }
    }
    for (int row = 0; row < kHeight / 2; ++row) {
        for (int x = 0; x < kWidth; x += 2) {
            const bool right = x >= kWidth / 2;
            const bool bottom = row >= kHeight / 4;
            uv[row * kStride + x] = right ? (bottom ? 240 : 90) : 128;
            uv[row * kStride + x + 1] = right ? (bottom ? 110 : 240) : 128;
        }
    }
    frame.snapshot = {{luma.pa, chroma.pa}, kWidth, kHeight, kStride, 42};
    return frame;
}

std::vector<uint8_t> readPng(const std::string &path, int *width, int *height) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << "cannot read " << path << ": " << image.message;
        return {};
    }
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0) {
        ADD_FAILURE() << "cannot decode " << path << ": " << image.message;
        return {};
    }
    *width = static_cast<int>(image.width);
    *height = static_cast<int>(image.height);
    return pixels;
}

void expectPixel(const std::vector<uint8_t> &pixels, int x, int y, Rgb expected) {
    const size_t at = (static_cast<size_t>(y) * kWidth + x) * 3;
    ASSERT_LT(at + 2, pixels.size());
    EXPECT_NEAR(expected.r, pixels[at], 2) << "red at " << x << "," << y;
    EXPECT_NEAR(expected.g, pixels[at + 1], 2) << "green at " << x << "," << y;
    EXPECT_NEAR(expected.b, pixels[at + 2], 2) << "blue at " << x << "," << y;
}

void expectQuadrants(const std::string &path) {
    int width = 0;
    int height = 0;
    const std::vector<uint8_t> pixels = readPng(path, &width, &height);
    ASSERT_EQ(kWidth, width);
    ASSERT_EQ(kHeight, height);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const bool right = x >= kWidth / 2;
            const bool bottom = y >= kHeight / 2;
            const Rgb expected = right ? (bottom ? Rgb{0, 0, 255} : Rgb{255, 0, 0})
                                       : (bottom ? Rgb{255, 255, 255} : Rgb{0, 0, 0});
            expectPixel(pixels, x, y, expected);
        }
    }
}

// An arena with the frame in a temporary directory, and the test service
// answering takeSnapshot with it.
class DvrctlSnapshot : public ::testing::Test {
protected:
    void SetUp() override {
        mFrame = placeFrame(arenaPath());
        ASSERT_NE(nullptr, mFrame.arena);
    }

    std::string arenaPath() const { return mDir.file("arena"); }
    std::string pngPath() const { return mDir.file("frame.png"); }
    dvrtest::RecordingDVR::Plan planWithFrame() const {
        dvrtest::RecordingDVR::Plan plan;
        plan.snapshot = mFrame.snapshot;
        return plan;
    }

    dvrtest::TempDir mDir;
    ArenaFrame mFrame;
};

}  // namespace

TEST_F(DvrctlSnapshot, WritesTheFrameFromTheArenaAsAnRgbPng) {
    dvrtest::ServiceProcess service(planWithFrame());
    const dvrtest::CommandResult result =
        dvrtest::runDvrctl("snapshot 3 " + pngPath() + " --arena " + arenaPath());
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("result: 0\nfile: " + pngPath() + "\narena: " + arenaPath() +
                  "\nwidthPx: 8\nheightPx: 4\ntimestampUs: 42\n",
              result.out);
    EXPECT_EQ((std::vector<std::string>{
                  "33 takeSnapshot(3, {planePA=0u,0u width=0 height=0 stride=0 timestamp=0})"}),
              service.waitForTranscriptLines(1));
    expectQuadrants(pngPath());
}

TEST_F(DvrctlSnapshot, FindsTheArenaThroughTheEnvironment) {
    dvrtest::ServiceProcess service(planWithFrame());
    const dvrtest::CommandResult result = dvrtest::runCommand(
        "DVR_ARENA=" + arenaPath() + " " + dvrtest::dvrctlCommand("snapshot 3 " + pngPath()));
    EXPECT_EQ(0, result.status) << result.err;
    expectQuadrants(pngPath());
}

TEST_F(DvrctlSnapshot, AFrameOutsideTheArenaIsAnError) {
    dvrtest::RecordingDVR::Plan plan = planWithFrame();
    plan.snapshot.planePA[1] = 0x1000;
    dvrtest::ServiceProcess service(plan);
    const dvrtest::CommandResult result =
        dvrtest::runDvrctl("snapshot 3 " + pngPath() + " --arena " + arenaPath());
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("dvrctl: snapshot: the frame's planes do not lie in the arena " + arenaPath() + "\n",
              result.err);
    EXPECT_NE(0, access(pngPath().c_str(), F_OK));
}

TEST_F(DvrctlSnapshot, AMissingArenaIsAnErrorBeforeTheServiceIsAsked) {
    dvrtest::ServiceProcess service(planWithFrame());
    const std::string missing = mDir.file("missing");
    const dvrtest::CommandResult result =
        dvrtest::runDvrctl("snapshot 3 " + pngPath() + " --arena " + missing);
    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.err.find(missing)) << result.err;
    EXPECT_EQ("", result.out);
    EXPECT_TRUE(service.newTranscriptLines().empty());
}

TEST_F(DvrctlSnapshot, AFailedSnapshotExitsWithOne) {
    dvrtest::RecordingDVR::Plan plan = planWithFrame();
    plan.results["takeSnapshot"] = -1;
    dvrtest::ServiceProcess service(plan);
    const dvrtest::CommandResult result =
        dvrtest::runDvrctl("snapshot 3 " + pngPath() + " --arena " + arenaPath());
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("-1\n", result.out);
    EXPECT_NE(0, access(pngPath().c_str(), F_OK));
}
