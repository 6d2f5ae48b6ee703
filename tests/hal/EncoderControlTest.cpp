// The encoder's operations outside a normal recording: its factory, argument
// checks, capability, and every fault the simulator control can provoke.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <thread>

#include "DVREncoderFactory.h"
#include "EncoderHarness.h"
#include "MediaProbe.h"
#include "SimulatorFixture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

constexpr int kFps = 10;

void ignoreStart(int, const char *) {}
void ignoreFinish(int, const char *) {}
void ignoreFileFinish(int, const char *) {}
void ignoreNeedData(int, ENCNeedDataType_e) {}
void ignoreError(int, DVRErrorServerity_e, int) {}

class EncoderControl : public SimulatorFixture {
protected:
    RecordSettings_t settings(int format = DVR_FILE_FORMAT_TS) {
        return EncoderHarness::settings(format, kFps, 1);
    }

    int configure(EncoderHarness &harness, RecordSettings_t settings) {
        return harness.encoder()->configure(&settings, *harness.camera()->getCaps());
    }

    dvrtest::TempDir dir;
};

}  // namespace

TEST_F(EncoderControl, FactoryGivesEncodersWithTheConfiguredIdsNotTheirIndices) {
    EncoderHarness first(0);
    EncoderHarness second(1);
    ASSERT_NE(nullptr, first.encoder());
    ASSERT_NE(nullptr, second.encoder());
    EXPECT_EQ(100, first.encoder()->mId);
    EXPECT_EQ(101, second.encoder()->mId);
    DVREncoderFactory *factory = DVREncoderFactory::getFactory();
    EXPECT_EQ(nullptr, factory->getEncoder(2, ignoreStart, ignoreFinish, ignoreFileFinish,
                                           ignoreNeedData, ignoreError));
    EXPECT_EQ(nullptr, factory->getEncoder(-1, ignoreStart, ignoreFinish, ignoreFileFinish,
                                           ignoreNeedData, ignoreError));
    EXPECT_EQ(nullptr, factory->getEncoder(0, ignoreStart, ignoreFinish, ignoreFileFinish, nullptr,
                                           ignoreError));
    EXPECT_STREQ("es_server", factory->getServiceName());
}

TEST_F(EncoderControl, CapabilityDefaultsExceedTheServiceLimits) {
    EncoderHarness harness;
    EncoderCapability_t capability{};
    ASSERT_EQ(0, harness.encoder()->getCapability(&capability));
    EXPECT_EQ(255, capability.file_name_length_limit);
    EXPECT_EQ(3840, capability.max_width);
    EXPECT_EQ(2160, capability.max_height);
    EXPECT_EQ(3600, capability.max_file_length);
    EXPECT_EQ(1, capability.min_file_length);
    EXPECT_EQ(40, capability.max_bit_rate);
    EXPECT_EQ(1, capability.min_bit_rate);
    EXPECT_EQ(60, capability.max_frame_rate);
    EXPECT_EQ(1, capability.min_frame_rate);
    EXPECT_EQ(-2, harness.encoder()->getCapability(nullptr));
    EXPECT_EQ((std::set<unsigned int>{8000, 16000, 22050, 32000, 44100, 48000}),
              harness.encoder()->getSupportedSamplingRates());
}

TEST_F(EncoderControl, SamplingRatesCanBeMadeDisjointFromTheAudioInput) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.encoder.samplingRates = {22050};
    DVRSimulatorControl::setConfig(config);
    EncoderHarness harness;
    EXPECT_EQ((std::set<unsigned int>{22050}), harness.encoder()->getSupportedSamplingRates());
    RecordSettings_t withAudio = EncoderHarness::settings(DVR_FILE_FORMAT_TS, kFps, 1, true, 16000);
    EXPECT_EQ(-2, configure(harness, withAudio));
}

TEST_F(EncoderControl, ConfigureRefusesWhatItCannotEncode) {
    EncoderHarness harness;
    const auto refused = [&](const std::function<void(RecordSettings_t &)> &change) {
        RecordSettings_t changed = settings();
        change(changed);
        return configure(harness, changed);
    };
    EXPECT_EQ(0, configure(harness, settings()));
    EXPECT_EQ(-2, harness.encoder()->configure(nullptr, *harness.camera()->getCaps()));
    EXPECT_EQ(-2, refused([](auto &s) { s.outputFormat = static_cast<DVRFileFormat_e>(2); }));
    EXPECT_EQ(-2, refused([](auto &s) { s.outputFormat = static_cast<DVRFileFormat_e>(-1); }));
    EXPECT_EQ(-2, refused([](auto &s) { s.bitRate = 0; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.bitRate = 41; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.frameRate = 0; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.frameRate = 61; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.fileLength = 0; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.fileLength = 3601; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.width = 321, s.height = 240; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.width = 4000, s.height = 240; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.width = 0, s.height = 0; }));
    EXPECT_EQ(-2, refused([](auto &s) { s.audioRecording = true, s.samplingRate = 11025; }));
    EXPECT_EQ(0, refused([](auto &s) { s.audioRecording = false, s.samplingRate = 11025; }));
    RecordSettings_t good = settings();
    DVRCameraCaps_t yuyv = *harness.camera()->getCaps();
    yuyv.format = DVR_VIDEO_FORMAT_YUYV;
    EXPECT_EQ(-2, harness.encoder()->configure(&good, yuyv));
}

TEST_F(EncoderControl, ConfigureWhilePlayingIsRefused) {
    EncoderHarness harness;
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    EXPECT_EQ(-3, configure(harness, settings()));
    ASSERT_EQ(0, harness.stop());
}

TEST_F(EncoderControl, StartNeedsASettingsAndAFileName) {
    EncoderHarness harness;
    EXPECT_EQ(-1, harness.encoder()->start());
    ASSERT_EQ(0, configure(harness, settings()));
    EXPECT_EQ(-1, harness.encoder()->start());
    EXPECT_EQ(-2, harness.encoder()->setFileName(nullptr));
    EXPECT_EQ(-2, harness.encoder()->setFileName(""));
    EXPECT_EQ(-2, harness.encoder()->setFileName(std::string(256, 'x').c_str()));
    EXPECT_EQ(0, harness.encoder()->isPlaying());
    EXPECT_EQ(-1, harness.encoder()->stop());
}

TEST_F(EncoderControl, StoppedBeforeAnyDataLeavesNoFileAndNoCallbacks) {
    EncoderHarness harness;
    DVRSimulatorControl::failVideoFrames(10, 1000000, -1);
    ASSERT_EQ(0, harness.record(settings(), dir.file("empty.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 3));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(0u, harness.count("start"));
    EXPECT_EQ(0u, harness.count("finish"));
    EXPECT_NE(0, access(dir.file("empty.ts").c_str(), F_OK));
}

TEST_F(EncoderControl, PushesOutsideARecordingAreRefused) {
    EncoderHarness harness;
    const uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    char pcm[4] = {};
    EXPECT_EQ(-1, harness.encoder()->pushVideoFrame(pa, &stamp));
    EXPECT_EQ(-1, harness.encoder()->pushAudioData(pcm, 4, &stamp));
    EXPECT_EQ(-2, harness.encoder()->pushVideoFrame(nullptr, &stamp));
}

TEST_F(EncoderControl, ForcedResultsOfEveryOperation) {
    EncoderHarness harness;
    DVREncoderHAL *encoder = harness.encoder();
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Configure, -7);
    EXPECT_EQ(-7, configure(harness, settings()));
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Configure, 0);
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::SetFileName, -8);
    EXPECT_EQ(-8, encoder->setFileName(dir.file("x.ts").c_str()));
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::SetFileName, 0);
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Start, -9);
    EXPECT_EQ(-9, harness.record(settings(), dir.file("x.ts")));
    EXPECT_EQ(0, encoder->isPlaying());
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Start, 0);
    ASSERT_EQ(0, encoder->start());
    ASSERT_TRUE(harness.waitFor("needVideo", 2));
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Stop, -10);
    EXPECT_EQ(-10, harness.stop());
    EXPECT_EQ(0, encoder->isPlaying());  // a failed stop still stops
    EXPECT_EQ(1u, harness.count("finish"));
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Suspend, 1);
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Resume, -1);
    EXPECT_EQ(1, encoder->suspend());
    EXPECT_EQ(-1, encoder->resume());
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Suspend, 0);
    DVRSimulatorControl::setEncoderResult(100, DVRSimEncoderOp::Resume, 0);
    EXPECT_EQ(0, encoder->suspend());
    EXPECT_EQ(0, encoder->resume());
}

TEST_F(EncoderControl, SuspendIsRefusedWhileRecordingAndASuspendedEncoderDoesNotStart) {
    EncoderHarness harness;
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    EXPECT_EQ(-1, harness.encoder()->suspend());
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(0, harness.encoder()->suspend());
    EXPECT_EQ(-1, harness.encoder()->start());
    EXPECT_EQ(0, harness.encoder()->resume());
    EXPECT_EQ(0, harness.encoder()->start());
    EXPECT_EQ(0, harness.stop());
}

TEST_F(EncoderControl, AnEncoderThatNeverReportsPlaying) {
    EncoderHarness harness;
    DVRSimulatorControl::setEncoderNeverPlaying(100, true);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 2));
    EXPECT_EQ(0, harness.encoder()->isPlaying());
    EXPECT_EQ(0, harness.stop());
}

TEST_F(EncoderControl, InjectedErrorArrivesAtItsFrameAndTheRecordingGoesOn) {
    EncoderHarness harness;
    DVRSimulatorControl::injectEncoderError(100, 5, DVR_ERROR_SEVERE, -77);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("error", 1));
    ASSERT_TRUE(harness.waitFor("needVideo", 8));
    ASSERT_EQ(0, harness.stop());
    const auto events = harness.events();
    size_t videoRequests = 0;
    for (const auto &event : events) {
        if (event.kind == "needVideo") {
            ++videoRequests;
        } else if (event.kind == "error") {
            EXPECT_EQ(5u, videoRequests);
            EXPECT_EQ(DVR_ERROR_SEVERE, event.severity);
            EXPECT_EQ(-77, event.code);
        }
    }
    EXPECT_EQ(1u, harness.count("error"));
}

TEST_F(EncoderControl, InvalidSeverityIsPassedThroughUnchecked) {
    EncoderHarness harness;
    DVRSimulatorControl::injectEncoderError(100, 1, 7, -1);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("error", 1));
    ASSERT_EQ(0, harness.stop());
    for (const auto &event : harness.events()) {
        if (event.kind == "error") {
            EXPECT_EQ(7, event.severity);
        }
    }
}

TEST_F(EncoderControl, StoppingFromAnotherThreadInsideTheErrorCallbackCompletesTheFile) {
    // The service's error handling: stop on another thread while the error
    // callback waits for it.
    EncoderHarness harness;
    DVRSimulatorControl::injectEncoderError(100, 4, DVR_ERROR_NORMAL, -5);
    std::promise<int> stopResult;
    harness.onError([&] {
        std::thread stopper([&] { stopResult.set_value(harness.stop()); });
        stopper.join();
    });
    ASSERT_EQ(0, harness.record(settings(DVR_FILE_FORMAT_AVI), dir.file("a.avi")));
    EXPECT_EQ(0, stopResult.get_future().get());
    EXPECT_EQ(1u, harness.count("finish"));
    EXPECT_EQ(0, harness.encoder()->isPlaying());
    const size_t events = harness.events().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(events, harness.events().size());
    const MediaProbe probe = MediaProbe::read(dir.file("a.avi"));
    ASSERT_TRUE(probe.opened);
    EXPECT_EQ(4u, probe.frameNumbers.size());
}

TEST_F(EncoderControl, StoppingFromInsideACallbackOnTheEncodersThreadCompletesTheFile) {
    EncoderHarness harness;
    DVRSimulatorControl::injectEncoderError(100, 3, DVR_ERROR_NORMAL, -5);
    std::promise<int> stopResult;
    harness.onError([&] { stopResult.set_value(harness.stop()); });
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    EXPECT_EQ(0, stopResult.get_future().get());
    EXPECT_EQ(1u, harness.count("finish"));
    EXPECT_EQ(3u, MediaProbe::read(dir.file("a.ts")).frameNumbers.size());
}

TEST_F(EncoderControl, AFrameOutsideTheArenaIsReportedNeverRead) {
    EncoderHarness harness;
    DVRSimulatorControl::failVideoFrames(10, 1000000, -1);  // the harness pushes nothing
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    const uint32_t bogus[2] = {0x1000, 0x2000};
    uint64_t stamp = 0;
    EXPECT_EQ(-14, harness.encoder()->pushVideoFrame(bogus, &stamp));
    ASSERT_TRUE(harness.waitFor("error", 1));
    ASSERT_EQ(0, harness.stop());
    const auto events = harness.events();
    for (const auto &event : events) {
        if (event.kind == "error") {
            EXPECT_EQ(DVR_ERROR_NORMAL, event.severity);
            EXPECT_EQ(-14, event.code);
        }
    }
}

TEST_F(EncoderControl, MissingDirectoryIsASevereErrorWithoutRecordStart) {
    EncoderHarness harness;
    ASSERT_EQ(0, harness.record(settings(), dir.file("gone/a.ts")));
    ASSERT_TRUE(harness.waitFor("error", 1));
    EXPECT_EQ(1, harness.encoder()->isPlaying());
    ASSERT_EQ(0, harness.stop());
    // The file is made with the first frame: that fails, and nothing else.
    EXPECT_EQ(1u, harness.count("needVideo"));
    const auto events = harness.fileEvents();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("error", events[0].kind);
    EXPECT_EQ(DVR_ERROR_SEVERE, events[0].severity);
    EXPECT_EQ(-ENOENT, events[0].code);
}

TEST_F(EncoderControl, AWriteFailureIsASevereErrorAndTheFileIsStillFinished) {
    // A file size limit stands in for a full disk; the arena is sized first.
    ASSERT_NE(nullptr, DVRSimulatorControl::arena());
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{64 * 1024, RLIM_INFINITY};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    EncoderHarness harness;
    RecordSettings_t big = EncoderHarness::settings(DVR_FILE_FORMAT_AVI, kFps, 60);
    big.bitRate = 20;
    ASSERT_EQ(0, harness.record(big, dir.file("full.avi")));
    ASSERT_TRUE(harness.waitFor("error", 1));
    ASSERT_EQ(0, harness.stop());
    const auto events = harness.fileEvents();
    ASSERT_EQ(3u, events.size()) << "start, error, finish";
    EXPECT_EQ("start", events.front().kind);
    EXPECT_EQ("finish", events.back().kind);
    for (const auto &event : events) {
        if (event.kind == "error") {
            EXPECT_EQ(DVR_ERROR_SEVERE, event.severity);
            EXPECT_EQ(-EFBIG, event.code);
        }
    }
}

TEST_F(EncoderControl, LateCallbackArrivesAfterStopReturned) {
    EncoderHarness harness;
    // However late the stop comes, the recording stays in its first file.
    harness.setFrameLimit(3);
    DVRSimulatorControl::injectLateCallback(100, DVRSimLateCallback::RecordFinish, 50);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 2));
    ASSERT_EQ(0, harness.stop());
    EXPECT_EQ(1u, harness.count("finish"));
    ASSERT_TRUE(harness.waitFor("finish", 2, std::chrono::seconds(10)));
    const auto events = harness.events();
    EXPECT_EQ(dir.file("a.ts"), events.back().file);
}

TEST_F(EncoderControl, LateNeedDataCallbackAfterStop) {
    EncoderHarness harness;
    DVRSimulatorControl::injectLateCallback(100, DVRSimLateCallback::NeedVideo, 10);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("needVideo", 2));
    ASSERT_EQ(0, harness.stop());
    const size_t before = harness.count("needVideo");
    ASSERT_TRUE(harness.waitFor("needVideo", before + 1, std::chrono::seconds(10)));
}

TEST_F(EncoderControl, MissingVideoFramesAreSkippedNotInvented) {
    EncoderHarness harness;
    harness.setFrameLimit(5);
    DVRSimulatorControl::failVideoFrames(10, 3, -1);
    ASSERT_EQ(0, harness.record(settings(), dir.file("a.ts")));
    ASSERT_TRUE(harness.waitFor("pushedVideo", 5));
    ASSERT_EQ(0, harness.stop());
    const MediaProbe probe = MediaProbe::read(dir.file("a.ts"));
    EXPECT_EQ(5u, harness.framesPushed());
    EXPECT_EQ(5u, probe.frameNumbers.size());
    ASSERT_FALSE(probe.frameNumbers.empty());
    EXPECT_EQ(0, probe.frameNumbers.front());
}
