// Time from the camera: recordings whose encoder is starved (the simulator's
// knob stalls it like a loaded machine) play in real time with frames
// missing, never with time compressed; every missing frame slot is counted
// alike by the file's reader and by the encoder's log line.
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "EncoderHarness.h"
#include "LogCapture.h"
#include "MediaProbe.h"
#include "SimulatorFixture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

constexpr int kFps = 30;
constexpr int kEncoderId = 100;

class EncoderTiming : public SimulatorFixture {
protected:
    // Records about three seconds in real time into two-second files, the
    // encoder stalling 150 ms after every 20th frame it asks for.
    std::vector<std::string> recordStarved(int format, const std::string &extension) {
        DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
        DVRSimulatorControl::starveEncoder(kEncoderId, 20, 150);
        EncoderHarness harness;
        const std::vector<std::string> names{dir.file("a" + extension), dir.file("b" + extension)};
        harness.setNextNames({names[1]});
        EXPECT_EQ(0, harness.record(EncoderHarness::settings(format, kFps, 2, true), names[0]));
        EXPECT_TRUE(harness.waitFor("fileFinish", 1, std::chrono::seconds(30)));
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        // Fed again before the stop, so the last file ends with its audio.
        DVRSimulatorControl::starveEncoder(kEncoderId, 0, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(0, harness.stop());
        return names;
    }

    // The encoder's line for a completed file: frames written and slots dropped.
    bool loggedFileEnd(const std::string &path, int64_t frames, int64_t dropped) {
        char expected[512];
        snprintf(expected, sizeof(expected),
                 "Encoder %d: %s: %lld frames written, %lld frame slots dropped\n", kEncoderId,
                 path.c_str(), static_cast<long long>(frames), static_cast<long long>(dropped));
        for (const dvrtest::LogLine &line : log.lines()) {
            const std::string &message = line.message;
            if (line.priority == ANDROID_LOG_INFO && line.tag == "DVRHal" &&
                message.size() >= strlen(expected) &&
                message.compare(message.size() - strlen(expected), std::string::npos, expected) ==
                    0 &&
                message.rfind("[logFileEnd:", 0) == 0) {
                return true;
            }
        }
        return false;
    }

    // Checks one starved file against the frame numbers painted into it;
    // returns the last frame number.
    int64_t expectRealTime(const std::string &path, int64_t previousLast) {
        const MediaProbe probe = MediaProbe::read(path);
        EXPECT_TRUE(probe.opened) << path << ": " << probe.error;
        if (!probe.opened || probe.frameNumbers.empty()) {
            ADD_FAILURE() << path << " holds no frames";
            return previousLast;
        }
        EXPECT_EQ(probe.videoPts.size(), probe.frameNumbers.size()) << path;
        const std::vector<int64_t> &numbers = probe.frameNumbers;
        EXPECT_GT(numbers.front(), previousLast) << path << ": frame numbers went back";
        const int64_t firstPts = probe.videoPts.front();
        for (size_t i = 0; i < numbers.size(); ++i) {
            if (i > 0) {
                EXPECT_GT(numbers[i], numbers[i - 1]) << path << " frame " << i;
            }
            // The clock burned into frame i against its presentation time.
            EXPECT_LE(std::llabs((numbers[i] - numbers.front()) - (probe.videoPts[i] - firstPts)),
                      1)
                << path << " frame " << i << " number " << numbers[i];
        }
        const int64_t cameraSlots = numbers.back() - numbers.front() + 1;
        const int64_t missing = cameraSlots - static_cast<int64_t>(numbers.size());
        EXPECT_GT(missing, 0) << path << ": the starved encoder lost no frames";
        EXPECT_EQ(missing, probe.missingSlots()) << path;
        EXPECT_TRUE(loggedFileEnd(path, static_cast<int64_t>(numbers.size()), missing))
            << path << ": no matching log line; lines:\n"
            << testing::PrintToString(log.messagesContaining("frames written"));
        // Plays for the camera's time, within one frame period.
        const double cameraSeconds = static_cast<double>(cameraSlots) / kFps;
        EXPECT_NEAR(cameraSeconds, probe.lastPtsSeconds() - probe.firstPtsSeconds() + 1.0 / kFps,
                    1.0 / kFps)
            << path;
        // Audio covers the same time. In MPEG-TS the AAC encoder's latency
        // carries up to about 0.2 s of audio across a file boundary, with
        // its own time stamps; AVI's PCM has none.
        const double slack = probe.container == "mpegts" ? 0.25 : 0.1;
        EXPECT_NEAR(probe.firstPtsSeconds(), probe.audioStartSeconds, slack) << path;
        EXPECT_NEAR(probe.lastPtsSeconds() + 1.0 / kFps, probe.audioEndSeconds, slack) << path;
        return numbers.back();
    }

    // A file ends when its time is up, however many frames it lost: the
    // next file begins with the first frame captured after two seconds.
    static void expectFileOfTwoSeconds(const std::string &path, const std::string &next) {
        const MediaProbe file = MediaProbe::read(path);
        const MediaProbe following = MediaProbe::read(next);
        ASSERT_FALSE(file.frameNumbers.empty()) << path;
        ASSERT_FALSE(following.frameNumbers.empty()) << next;
        EXPECT_LT(file.frameNumbers.back() - file.frameNumbers.front(), 2 * kFps) << path;
        EXPECT_GE(following.frameNumbers.front() - file.frameNumbers.front(), 2 * kFps) << next;
        EXPECT_LE(following.frameNumbers.front() - file.frameNumbers.front(), 2 * kFps + 6) << next;
    }

    dvrtest::LogCapture log;
    dvrtest::TempDir dir;
};

}  // namespace

TEST_F(EncoderTiming, StarvedTransportStreamPlaysInRealTimeWithCountedGaps) {
    const std::vector<std::string> files = recordStarved(DVR_FILE_FORMAT_TS, ".ts");
    const int64_t last = expectRealTime(files[0], -1);
    expectRealTime(files[1], last);
    expectFileOfTwoSeconds(files[0], files[1]);
    // Time stamps run on across the files, on the camera's clock.
    const MediaProbe first = MediaProbe::read(files[0]);
    const MediaProbe second = MediaProbe::read(files[1]);
    ASSERT_FALSE(second.frameNumbers.empty());
    EXPECT_EQ(second.frameNumbers.front() - first.frameNumbers.front(),
              second.videoPts.front() - first.videoPts.front());
}

TEST_F(EncoderTiming, StarvedAviPlaysInRealTimeWithDropChunksForTheGaps) {
    const std::vector<std::string> files = recordStarved(DVR_FILE_FORMAT_AVI, ".avi");
    const int64_t last = expectRealTime(files[0], -1);
    expectRealTime(files[1], last);
    expectFileOfTwoSeconds(files[0], files[1]);
    // A constant-rate container: its stated duration counts the empty slots.
    const MediaProbe first = MediaProbe::read(files[0]);
    EXPECT_NEAR(
        static_cast<double>(first.frameNumbers.back() - first.frameNumbers.front() + 1) / kFps,
        first.durationSeconds, 1.0 / kFps)
        << files[0];
}

// The channel's devices ran for 300 ms before its encoder started (a busy
// service starting several channels): the encoder catches up with the audio
// the input buffered, as with the camera's queue, so the file's audio ends
// with its pictures instead of that much earlier, and it never asks for a
// chunk before the chunk is captured (the service would wait in its 10-ms
// retry loop on the encoder's thread).
TEST_F(EncoderTiming, AudioCatchesUpWithWhatTheInputBufferedAndIsNeverAskedForEarly) {
    DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
    EncoderHarness harness;
    const std::string path = dir.file("late.ts");
    ASSERT_EQ(0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 10, true), path,
                                std::chrono::milliseconds(300)));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(harness.count("needAudio"), harness.audioChunksPushed());
    const MediaProbe probe = MediaProbe::read(path);
    ASSERT_TRUE(probe.opened) << probe.error;
    ASSERT_FALSE(probe.frameNumbers.empty());
    EXPECT_NEAR(probe.firstPtsSeconds(), probe.audioStartSeconds, 0.1);
    EXPECT_NEAR(probe.lastPtsSeconds() + 1.0 / kFps, probe.audioEndSeconds, 0.1);
}
