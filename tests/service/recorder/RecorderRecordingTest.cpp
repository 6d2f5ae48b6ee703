// Real recordings on the simulated devices and encoder, read back from disk,
// and the encoder's faults provoked through the simulator's control.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "DVRSimulatorControl.h"
#include "DVRTestPattern.h"
#include "DecodedFrame.h"
#include "MediaProbe.h"
#include "RecordingFixture.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr int kCameraId = 10;
constexpr int kAudioId = 20;
constexpr int kFramesPerFile = 30 * 2;  // 30 fps, files of 2 s

class RecorderRecording : public RecordingFixture {
protected:
    // Camera and audio, files of 2 s named by the client.
    void prepare() {
        buildWithDevices(true);
        subscribeClient();
        ASSERT_EQ(DVR_SUCCESS, mRecorder->setFileLength(2));
        ASSERT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    }
    void startAndWaitForFrames() {
        ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
        ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, 1));
    }
    // Share of a box's pixels whose luma differs clearly between a decoded
    // picture and the bare test pattern of the same frame.
    static double changedShare(const DecodedFrame &decoded, const std::vector<uint8_t> &pattern,
                               int x0, int y0, int x1, int y1) {
        int changed = 0;
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) {
                changed += std::abs(int(decoded.at(x, y)) - int(pattern[y * 320 + x])) > 40 ? 1 : 0;
            }
        }
        return double(changed) / ((x1 - x0) * (y1 - y0));
    }
};

}  // namespace

TEST_F(RecorderRecording, RecordsStampedFilesWithAudioFromStartToStop) {
    prepare();
    // Both stamps are on (the fixture's), the user stamp's text from the client.
    ASSERT_TRUE(mRecorder->getAudioRecording());
    // The stop comes while the 31st frame of the fourth file is being stamped:
    // three complete files and an early-stopped one, about 7 s.
    mClient->pauseStampAt(3 * kFramesPerFile + 31, 500);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
    ASSERT_TRUE(mClient->waitUntilPaused());
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());

    // Start and finish of every file, in order, with the client's names.
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 4));
    const auto names = mClient->namesGiven();
    ASSERT_EQ(4u, names.size());
    const auto events = mClient->events();
    ASSERT_EQ(8u, events.size());
    for (size_t file = 0; file < 4; ++file) {
        EXPECT_EQ(DVR_CBK_RECORD_START, events[2 * file].cmd);
        EXPECT_EQ(names[file], events[2 * file].text);
        EXPECT_EQ(DVR_CBK_RECORD_FINISH, events[2 * file + 1].cmd);
        EXPECT_EQ(names[file], events[2 * file + 1].text);
        EXPECT_EQ(kEncoderId, events[2 * file].index);
    }
    size_t filesOnDisk = 0;
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        filesOnDisk += entry.path().extension() == ".ts" ? 1 : 0;
    }
    EXPECT_EQ(4u, filesOnDisk);

    int64_t nextFrameNumber = -1;
    for (size_t file = 0; file < 4; ++file) {
        SCOPED_TRACE(names[file]);
        const MediaProbe probe = MediaProbe::read(names[file]);
        ASSERT_TRUE(probe.opened);
        EXPECT_EQ("mpegts", probe.container);
        EXPECT_EQ(0, probe.decodeErrors);
        if (file < 3) {
            EXPECT_EQ(static_cast<size_t>(kFramesPerFile), probe.frameNumbers.size());
        } else {
            // Stopped early, and still playable.
            EXPECT_GT(probe.frameNumbers.size(), 0u);
            EXPECT_LT(probe.frameNumbers.size(), static_cast<size_t>(kFramesPerFile));
        }
        ASSERT_FALSE(probe.keyFrames.empty());
        EXPECT_TRUE(probe.keyFrames[0]);
        EXPECT_TRUE(probe.hasAudio);
        EXPECT_EQ(16000, probe.sampleRate);
        EXPECT_GT(probe.audioPackets, 0);
        // No frame lost within a file or at a roll-over.
        for (int64_t number : probe.frameNumbers) {
            if (nextFrameNumber >= 0) {
                EXPECT_EQ(nextFrameNumber, number);
            }
            nextFrameNumber = number + 1;
        }
    }

    // Both stamps differ from the bare pattern; elsewhere the picture does not.
    const MediaProbe second = MediaProbe::read(names[1]);
    ASSERT_FALSE(second.frameNumbers.empty());
    const DecodedFrame decoded = DecodedFrame::first(names[1]);
    ASSERT_EQ(320, decoded.width);
    std::vector<uint8_t> pattern(320 * 240 * 3 / 2);
    DVRTestPattern(320, 240, 320)
        .draw(pattern.data(), pattern.data() + 320 * 240,
              static_cast<uint32_t>(second.frameNumbers[0]));
    EXPECT_GT(changedShare(decoded, pattern, 8, 8, 120, 24), 0.05);
    EXPECT_GT(changedShare(decoded, pattern, 8, 48, 80, 64), 0.05);
    EXPECT_LT(changedShare(decoded, pattern, 160, 100, 240, 140), 0.01);
}

TEST_F(RecorderRecording, EncoderThatNeverReportsPlayingLeavesTheRecorderStopping) {
    prepare();
    startAndWaitForFrames();
    DVRSimulatorControl::setEncoderNeverPlaying(kEncoderId, true);
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->stopAndWait());
    EXPECT_EQ(10u, logged(ANDROID_LOG_ERROR, "stopAndWait",
                          rec("Invalid operation to stop! Encoder is not in PLAYING state...")));
    EXPECT_EQ(DVR_STM_STOPPING, mRecorder->getCurrentState());
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->start());
    // Let the teardown stop it.
    DVRSimulatorControl::setEncoderNeverPlaying(kEncoderId, false);
    peer().setState(DVR_STM_RECORDING);
}

TEST_F(RecorderRecording, LateNeedDataAfterTheStopOnlyLogs) {
    prepare();
    startAndWaitForFrames();
    DVRSimulatorControl::injectLateCallback(kEncoderId, DVRSimLateCallback::NeedVideo, 0);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    // The injected late request logs; a regular one that the encoder made
    // while the stop was under way may log as well.
    EXPECT_LE(1u, logged(ANDROID_LOG_ERROR, "onNeedData",
                         rec("Receive under unexpect state: DVR_STM_STOPPING (expect: "
                             "DVR_STM_RECORDING)\n")));
}

TEST_F(RecorderRecording, LateFileFinishAfterTheStopOnlyLogs) {
    prepare();
    startAndWaitForFrames();
    DVRSimulatorControl::injectLateCallback(kEncoderId, DVRSimLateCallback::FileFinish, 0);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "onFileFinish",
                         rec("Receive under unexpect state: DVR_STM_STOPPING (expect: "
                             "DVR_STM_RECORDING)\n")));
}

TEST_F(RecorderRecording, LateRecordFinishIsWaitedForAndReported) {
    prepare();
    startAndWaitForFrames();
    DVRSimulatorControl::injectLateCallback(kEncoderId, DVRSimLateCallback::RecordFinish, 0);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 2));
}

TEST_F(RecorderRecording, DeviceFetchFailuresAreLoggedAndTheRecordingGoesOn) {
    prepare();
    startAndWaitForFrames();
    DVRSimulatorControl::failVideoFrames(kCameraId, 3, -7);
    DVRSimulatorControl::failAudioData(kAudioId, 2, -5);
    // The file roll-overs show that frames keep coming after the failures.
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ(3u, logged(ANDROID_LOG_ERROR, "onNeedData", rec("getVideoFrame() failed: -7\n")));
    EXPECT_EQ(2u, logged(ANDROID_LOG_ERROR, "onNeedData", rec("getAudioData failed: -5\n")));
}

TEST_F(RecorderRecording, NormalEncoderErrorStopsTheRecordingAndTellsTheClient) {
    prepare();
    DVRSimulatorControl::injectEncoderError(kEncoderId, 5, DVR_ERROR_NORMAL, -42);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ERROR, 1));
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    for (const auto &event : mClient->events()) {
        if (event.cmd == DVR_CBK_ERROR) {
            EXPECT_EQ(-42, event.value);
        }
    }
    // The stop inside the callback completed the file.
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
}

TEST_F(RecorderRecording, SevereEncoderErrorStopsTheRecordingAndTellsTheClient) {
    prepare();
    DVRSimulatorControl::injectEncoderError(kEncoderId, 5, DVR_ERROR_SEVERE, -43);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ERROR_SEVERE, 1));
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(0u, mClient->countEvents(DVR_CBK_ERROR));
}

TEST_F(RecorderRecording, StartStopStartRecordsAgainOnTheSameTriggerThread) {
    prepare();
    startAndWaitForFrames();
    const android::sp<TriggerEncodeThread> first = peer().triggerEncodeThread();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, 2));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 2));
    EXPECT_EQ(first.get(), peer().triggerEncodeThread().get());
    EXPECT_EQ(
        (std::vector<std::string>{kTuningRecording, kTuningIdle, kTuningRecording, kTuningIdle}),
        tuningCommands());
}

using RecorderRecordingDeathTest = RecorderRecording;

TEST_F(RecorderRecordingDeathTest, EncoderErrorOfUnknownSeverityAborts) {
    prepare();
    EXPECT_DEATH(
        {
            DVRSimulatorControl::injectEncoderError(kEncoderId, 5, 9, -1);
            mRecorder->start();
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "Unknown error severity: 9.*Assertion failed");
}

TEST_F(RecorderRecordingDeathTest, EncoderThatCannotBeConfiguredAbortsTheStart) {
    prepare();
    EXPECT_DEATH(
        {
            DVRSimulatorControl::setEncoderResult(kEncoderId, DVRSimEncoderOp::Configure, -2);
            mRecorder->start();
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "Assertion failed: ret == 0");
}
