// Recordings read back with libavformat: containers, codecs, sizes, frame
// counts per file, key frames, time stamps and content across roll-overs.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "DVREncoderFactory.h"
#include "DVRTestPattern.h"
#include "EncoderHarness.h"
#include "MediaProbe.h"
#include "SimulatorFixture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

constexpr int kFps = 10;

class EncoderRecording : public SimulatorFixture {
protected:
    // Records `files` complete files and three frames of the next, then stops.
    void recordFiles(EncoderHarness &harness, const RecordSettings_t &settings, size_t files) {
        const size_t frames = files * settings.frameRate + 3;
        harness.setFrameLimit(frames);
        ASSERT_EQ(0, harness.record(settings, dir.file("first" + extension(settings))));
        ASSERT_TRUE(harness.waitFor("pushedVideo", frames));
        ASSERT_EQ(0, harness.stop());
    }

    static std::string extension(const RecordSettings_t &settings) {
        return settings.outputFormat == DVR_FILE_FORMAT_TS ? ".ts" : ".avi";
    }

    // File names in callback order: every started or rolled file, then the last.
    static std::vector<std::string> files(EncoderHarness &harness) {
        std::vector<std::string> names;
        for (const auto &event : harness.events()) {
            if (event.kind == "fileFinish" || event.kind == "finish") {
                names.push_back(event.file);
            }
        }
        return names;
    }

    // A 320x240 H.264 file at kFps with mono audio, starting with a key
    // frame; a complete file holds kFps frames (one second).
    static void expectRecording(const MediaProbe &probe, const std::string &name,
                                const std::string &container, const std::string &audioCodec,
                                int sampleRate, bool complete) {
        ASSERT_TRUE(probe.opened) << name;
        EXPECT_EQ(container, probe.container);
        EXPECT_EQ("h264", probe.videoCodec);
        EXPECT_EQ(320, probe.width);
        EXPECT_EQ(240, probe.height);
        EXPECT_DOUBLE_EQ(kFps, probe.frameRate);
        EXPECT_TRUE(probe.hasAudio);
        EXPECT_EQ(audioCodec, probe.audioCodec);
        EXPECT_EQ(sampleRate, probe.sampleRate);
        EXPECT_EQ(1, probe.channels);
        EXPECT_GT(probe.audioPackets, 0);
        ASSERT_FALSE(probe.keyFrames.empty());
        EXPECT_TRUE(probe.keyFrames.front()) << name;
        EXPECT_EQ(0, probe.decodeErrors);
        if (complete) {
            EXPECT_EQ(static_cast<size_t>(kFps), probe.videoPts.size()) << name;
        }
    }

    static void expectConsecutive(const std::vector<int64_t> &numbers, int64_t first) {
        for (size_t index = 0; index < numbers.size(); ++index) {
            EXPECT_EQ(first + static_cast<int64_t>(index), numbers[index]) << "frame " << index;
        }
    }

    dvrtest::TempDir dir;
};

}  // namespace

TEST_F(EncoderRecording, AviFilesHoldH264AtTheSettingsSizeAndRateWithPcmAudio) {
    EncoderHarness harness;
    harness.setNextNames({dir.file("second.avi"), dir.file("third.avi")});
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_AVI, kFps, 1, true, 16000), 2);
    const auto names = files(harness);
    ASSERT_EQ(3u, names.size());
    EXPECT_EQ(dir.file("first.avi"), names[0]);
    EXPECT_EQ(dir.file("second.avi"), names[1]);
    EXPECT_EQ(dir.file("third.avi"), names[2]);
    int64_t nextFrame = 0;
    for (size_t index = 0; index < names.size(); ++index) {
        const MediaProbe probe = MediaProbe::read(names[index]);
        expectRecording(probe, names[index], "avi", "pcm_s16le", 16000, index < 2);
        // AVI has no start offset: each file counts from 0, without gaps.
        expectConsecutive(probe.videoPts, 0);
        // The camera's frame numbers run on across files: none lost, none twice.
        ASSERT_EQ(probe.videoPts.size(), probe.frameNumbers.size());
        expectConsecutive(probe.frameNumbers, nextFrame);
        nextFrame += static_cast<int64_t>(probe.frameNumbers.size());
    }
}

TEST_F(EncoderRecording, TsFilesHoldH264AndAacWithTimeStampsRunningOnAcrossFiles) {
    EncoderHarness harness;
    harness.setNextNames({dir.file("second.ts"), dir.file("third.ts")});
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1, true, 48000), 2);
    const auto names = files(harness);
    ASSERT_EQ(3u, names.size());
    int64_t nextPts = -1;
    int64_t nextFrame = 0;
    for (size_t index = 0; index < names.size(); ++index) {
        const MediaProbe probe = MediaProbe::read(names[index]);
        expectRecording(probe, names[index], "mpegts", "aac", 48000, index < 2);
        ASSERT_FALSE(probe.videoPts.empty());
        if (nextPts < 0) {
            nextPts = probe.videoPts.front();
        }
        expectConsecutive(probe.videoPts, nextPts);
        nextPts += static_cast<int64_t>(probe.videoPts.size());
        expectConsecutive(probe.frameNumbers, nextFrame);
        nextFrame += static_cast<int64_t>(probe.frameNumbers.size());
    }
}

TEST_F(EncoderRecording, WithoutAudioTheFileHasNoAudioStreamAndNoAudioIsRequested) {
    EncoderHarness harness;
    harness.setNextNames({dir.file("second.ts")});
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1, false), 1);
    EXPECT_EQ(0u, harness.count("needAudio"));
    const MediaProbe probe = MediaProbe::read(dir.file("first.ts"));
    ASSERT_TRUE(probe.opened);
    EXPECT_FALSE(probe.hasAudio);
    EXPECT_EQ(static_cast<size_t>(kFps), probe.videoPts.size());
}

TEST_F(EncoderRecording, OutputSizeDifferentFromTheCameraIsScaled) {
    EncoderHarness harness;
    RecordSettings_t settings = EncoderHarness::settings(DVR_FILE_FORMAT_AVI, kFps, 1);
    settings.width = 160;
    settings.height = 120;
    harness.setNextNames({dir.file("second.avi")});
    recordFiles(harness, settings, 1);
    const MediaProbe probe = MediaProbe::read(dir.file("first.avi"));
    ASSERT_TRUE(probe.opened);
    EXPECT_EQ(160, probe.width);
    EXPECT_EQ(120, probe.height);
    EXPECT_EQ(static_cast<size_t>(kFps), probe.frameNumbers.size());
}

TEST_F(EncoderRecording, WithoutANewNameTheNextFileGetsANumberedSuffix) {
    EncoderHarness harness;
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1), 2);
    EXPECT_EQ((std::vector<std::string>{dir.file("first.ts"), dir.file("first_1.ts"),
                                        dir.file("first_2.ts")}),
              files(harness));
    for (const auto &name : files(harness)) {
        EXPECT_TRUE(MediaProbe::read(name).opened) << name;
    }
}

TEST_F(EncoderRecording, AnExistingFileIsNeverOverwritten) {
    dir.write("first.ts", "keep me");
    EncoderHarness harness;
    ASSERT_EQ(0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1),
                                dir.file("first.ts")));
    ASSERT_TRUE(harness.waitFor("start", 1));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(dir.file("first_1.ts"), harness.fileEvents().front().file);
    std::ifstream kept(dir.file("first.ts"));
    std::string content;
    std::getline(kept, content);
    EXPECT_EQ("keep me", content);
}

TEST_F(EncoderRecording, AFileStoppedEarlyIsPlayable) {
    for (int format : {DVR_FILE_FORMAT_AVI, DVR_FILE_FORMAT_TS}) {
        EncoderHarness harness;
        RecordSettings_t settings = EncoderHarness::settings(format, kFps, 60, true);
        ASSERT_EQ(0, harness.record(settings, dir.file("early" + extension(settings))));
        ASSERT_TRUE(harness.waitFor("needVideo", 7));
        ASSERT_EQ(0, harness.stop());
        const MediaProbe probe = MediaProbe::read(dir.file("early" + extension(settings)));
        ASSERT_TRUE(probe.opened);
        EXPECT_GE(probe.frameNumbers.size(), 6u);
        EXPECT_LT(probe.frameNumbers.size(), static_cast<size_t>(kFps * 60));
        EXPECT_EQ(probe.videoPts.size(), probe.frameNumbers.size());
        EXPECT_EQ(0, probe.decodeErrors);
        EXPECT_TRUE(probe.hasAudio);
    }
}

TEST_F(EncoderRecording, CallbacksComeInOrderAndNoneAfterStopReturns) {
    EncoderHarness harness;
    harness.setFrameLimit(kFps + 2);
    ASSERT_EQ(0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1, true),
                                dir.file("order.ts")));
    EXPECT_EQ(1, harness.encoder()->isPlaying());
    ASSERT_TRUE(harness.waitFor("pushedVideo", kFps + 2));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(0, harness.encoder()->isPlaying());
    const size_t allEvents = harness.events().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(allEvents, harness.events().size());
    const auto events = harness.fileEvents();
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ("start", events.front().kind);
    EXPECT_EQ(dir.file("order.ts"), events.front().file);
    EXPECT_EQ("finish", events.back().kind);
    EXPECT_EQ(dir.file("order_1.ts"), events.back().file);
    EXPECT_GT(harness.count("needAudio"), 0u);
}

TEST_F(EncoderRecording, ASecondRecordingStartsAfterAStop) {
    EncoderHarness harness;
    RecordSettings_t settings = EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1);
    ASSERT_EQ(0, harness.record(settings, dir.file("one.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 3));
    ASSERT_EQ(0, harness.stop());
    const size_t framesOfFirst = harness.count("needVideo");
    ASSERT_EQ(0, harness.record(settings, dir.file("two.ts")));
    ASSERT_TRUE(harness.waitFor("start", 2));
    // A file needs frames to be readable: stop only once some have gone in.
    ASSERT_TRUE(harness.waitFor("needVideo", framesOfFirst + 3));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(2u, harness.count("finish"));
    EXPECT_TRUE(MediaProbe::read(dir.file("two.ts")).opened);
}

TEST_F(EncoderRecording, RealTimePacingAsksForOneFramePerPeriod) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.cameras[0].frameRate = 20;  // the encoder follows the camera's pictures
    DVRSimulatorControl::setConfig(config);
    DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
    EncoderHarness harness;
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, 20, 1),
                                dir.file("paced.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 6));
    // The sixth request is due 5 periods (250 ms) after the start.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(240));
    ASSERT_EQ(0, harness.stop());
}

TEST_F(EncoderRecording, OneShortFullHdRecording) {
    DVRSimulatorControl::reset();  // two 1920x1080 30 fps cameras
    DVRSimulatorControl::setPacing(DVRSimPacing::Fast);
    EncoderHarness harness;
    harness.setNextNames({dir.file("hd2.ts")});
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_TS, 30, 1), 1);
    const MediaProbe probe = MediaProbe::read(dir.file("first.ts"));
    ASSERT_TRUE(probe.opened);
    EXPECT_EQ(1920, probe.width);
    EXPECT_EQ(1080, probe.height);
    EXPECT_DOUBLE_EQ(30, probe.frameRate);
    EXPECT_EQ(30u, probe.videoPts.size());
    expectConsecutive(probe.frameNumbers, 0);
}

TEST_F(EncoderRecording, PaddedCameraLinesAndStereoAudio) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.cameras[0].stride = 384;
    config.audioInputs[0].channels = 2;
    config.encoder.audioChannels = 2;
    DVRSimulatorControl::setConfig(config);
    EncoderHarness harness;
    harness.setNextNames({dir.file("second.ts")});
    recordFiles(harness, EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1, true, 32000), 1);
    const MediaProbe probe = MediaProbe::read(dir.file("first.ts"));
    ASSERT_TRUE(probe.opened);
    EXPECT_EQ(320, probe.width);
    EXPECT_EQ(2, probe.channels);
    EXPECT_EQ(32000, probe.sampleRate);
    expectConsecutive(probe.frameNumbers, 0);
    EXPECT_EQ(static_cast<size_t>(kFps), probe.frameNumbers.size());
}

// A snapshot while the encoder reads the camera (the service's takeSnapshot)
// sees the latest picture in a buffer of its own and takes no frame from the
// encoder's stream: the file's frame numbers run on without a gap.
TEST_F(EncoderRecording, SnapshotDuringRecordingSeesTheLatestPictureWithoutTakingAFrame) {
    EncoderHarness harness;
    const size_t frames = 3 * kFps;
    harness.setFrameLimit(frames);
    const std::string path = dir.file("snap.ts");
    ASSERT_EQ(0, harness.record(EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 10), path));
    ASSERT_TRUE(harness.waitFor("pushedVideo", kFps));
    void *va[2] = {nullptr, nullptr};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    ASSERT_EQ(0, harness.camera()->getVideoFrame(va, pa, &stamp));
    ASSERT_NE(nullptr, va[0]);
    const int64_t seen =
        DVRTestPattern::readFrameNumber(static_cast<const uint8_t *>(va[0]), 320, 240, 320);
    // The latest picture the camera delivered when it was asked.
    EXPECT_GE(seen, kFps - 1);
    EXPECT_LT(seen, static_cast<int64_t>(frames));
    EXPECT_NE(nullptr, DVRSimulatorControl::arena()->translate(pa[0], 320 * 240));
    ASSERT_TRUE(harness.waitFor("pushedVideo", frames));
    ASSERT_EQ(0, harness.stop());
    const MediaProbe probe = MediaProbe::read(path);
    ASSERT_TRUE(probe.opened) << probe.error;
    ASSERT_EQ(frames, probe.frameNumbers.size());
    for (size_t i = 0; i < probe.frameNumbers.size(); ++i) {
        ASSERT_EQ(static_cast<int64_t>(i), probe.frameNumbers[i]) << "frame " << i;
    }
}
