// Audio and video of a one-hour recording stay together. The simulated audio
// input pauses its tone for one chunk at the start of every minute of
// capture, and the camera paints its frame number into every picture; a
// minute's pause found in the decoded audio (ffmpeg) must play within 100 ms
// of the picture captured at the same minute. An hour of media time in fast
// pacing at 320x240: labelled slow, kept out of the sanitizer stage.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include "CommandResult.h"
#include "EncoderHarness.h"
#include "MediaProbe.h"
#include "SimulatorFixture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

constexpr int kFps = 30;
constexpr int kRate = 8000;  // half the AAC work of 16 kHz
constexpr int kChunkMs = 20;
constexpr int kSeconds = 3600;
constexpr int kMarkSeconds = 60;
constexpr double kBound = 0.100;  // seconds
constexpr double kPrimingSamples = 1024;

class EncoderAvSync : public SimulatorFixture {
protected:
    void SetUp() override {
        SimulatorFixture::SetUp();
        DVRSimConfig config = DVRSimulatorControl::config();
        config.audioInputs[0].samplingRate = kRate;
        config.audioInputs[0].chunkMs = kChunkMs;
        config.audioInputs[0].markSeconds = kMarkSeconds;
        DVRSimulatorControl::setConfig(config);
    }

    // The decoded audio of path as 16-bit mono samples at kRate, from its
    // first packet's presentation time on.
    std::vector<int16_t> decodeAudio(const std::string &path) {
        const std::string raw = dir.file("audio.raw");
        const dvrtest::CommandResult result = dvrtest::runCommand(
            "ffmpeg -nostdin -v error -i '" + path + "' -map 0:a:0 -f s16le -ac 1 -ar " +
            std::to_string(kRate) + " -y '" + raw + "'");
        EXPECT_EQ(0, result.status) << result.err;
        std::ifstream in(raw, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        std::vector<int16_t> samples(bytes.size() / sizeof(int16_t));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(int16_t));
        return samples;
    }

    // Where the tone pauses: the first sample of every run of near silence
    // at least half a chunk long, after the encoder's priming at the start.
    static std::vector<size_t> silentRuns(const std::vector<int16_t> &samples) {
        const size_t minimum = kRate * kChunkMs / 2000;
        std::vector<size_t> starts;
        size_t run = 0;
        for (size_t index = 0; index < samples.size(); ++index) {
            if (std::abs(samples[index]) < 400) {
                if (++run == minimum) {
                    starts.push_back(index + 1 - minimum);
                }
            } else {
                run = 0;
            }
        }
        return starts;
    }

    dvrtest::TempDir dir;
};

}  // namespace

TEST_F(EncoderAvSync, AudioAndVideoOfAnHourLongFileStayWithin100Ms) {
    EncoderHarness harness;
    const size_t frames = static_cast<size_t>(kSeconds) * kFps;
    const size_t chunks = static_cast<size_t>(kSeconds) * 1000 / kChunkMs;
    harness.setFrameLimit(frames);
    harness.setAudioChunkLimit(chunks);
    const std::string path = dir.file("hour.ts");
    ASSERT_EQ(
        0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, kSeconds, true, kRate),
                          path));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(10);
    while ((harness.framesPushed() < frames || harness.audioChunksPushed() < chunks) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    ASSERT_EQ(frames, harness.framesPushed());
    ASSERT_EQ(chunks, harness.audioChunksPushed());
    ASSERT_EQ(0, harness.stop());

    const MediaProbe probe = MediaProbe::read(path);
    ASSERT_TRUE(probe.opened) << probe.error;
    ASSERT_EQ(frames, probe.frameNumbers.size());
    EXPECT_EQ(0, probe.missingSlots());
    // Where each picture plays, by the frame number painted into it.
    std::map<int64_t, double> playsAt;
    for (size_t i = 0; i < probe.frameNumbers.size(); ++i) {
        playsAt[probe.frameNumbers[i]] = static_cast<double>(probe.videoPts[i]) / probe.frameRate;
    }
    ASSERT_EQ(frames, playsAt.size()) << "a frame number appears twice";
    const int64_t firstFrame = playsAt.begin()->first;

    // Start and end of the file. The first AAC packet begins with the
    // encoder's 1024 priming samples (128 ms at 8 kHz), time stamped before
    // the first captured sample.
    EXPECT_NEAR(probe.firstPtsSeconds(), probe.audioStartSeconds + kPrimingSamples / kRate, kBound);
    EXPECT_NEAR(probe.lastPtsSeconds() + 1.0 / kFps, probe.audioEndSeconds, kBound);

    // Every minute in between: the pause the input made at capture minute m
    // against the picture the camera took at that minute.
    const std::vector<int16_t> samples = decodeAudio(path);
    ASSERT_NEAR(static_cast<double>(samples.size()) / kRate,
                probe.audioEndSeconds - probe.audioStartSeconds, 0.2);
    std::vector<double> pauses;
    for (const size_t start : silentRuns(samples)) {
        const double at = probe.audioStartSeconds + static_cast<double>(start) / kRate;
        // The first minute's pause runs into the encoder's priming silence.
        if (at > probe.firstPtsSeconds() + kMarkSeconds / 2) {
            pauses.push_back(at);
        }
    }
    ASSERT_EQ(static_cast<size_t>(kSeconds / kMarkSeconds - 1), pauses.size());
    double worst = 0;
    for (size_t minute = 1; minute <= pauses.size(); ++minute) {
        const auto picture = playsAt.find(firstFrame + static_cast<int64_t>(minute) * 60 * kFps);
        ASSERT_NE(playsAt.end(), picture) << "minute " << minute;
        const double offset = pauses[minute - 1] - picture->second;
        EXPECT_LT(std::abs(offset), kBound) << "minute " << minute;
        worst = std::max(worst, std::abs(offset));
    }
    RecordProperty("worst_offset_ms", std::to_string(static_cast<int>(worst * 1000)));
    std::printf("worst A/V offset over %zu minutes: %.2f ms\n", pauses.size(), worst * 1000);
}
