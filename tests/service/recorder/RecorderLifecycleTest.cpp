// The recorder's state machine and its answers to the encoder's callbacks,
// with a fake encoder standing in for the simulated one, so that exactly what
// reaches the encoder can be seen and no encoder thread calls in.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "DVRSimulatorControl.h"
#include "RecordingFixture.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr int kCameraId = 10;  // the simulator's first camera
constexpr int kAudioId = 20;   // and its audio input

class RecorderLifecycle : public RecordingFixture {
protected:
    // A recorder with camera (and audio input), the fake encoder, ready to start.
    void prepare(bool withAudio, size_t cameras = 1) {
        buildWithDevices(withAudio, cameras);
        useFakeEncoder();
        ASSERT_EQ(DVR_SUCCESS, mRecorder->nextFile("first.ts"));
    }
    void startRecording() {
        const int starts = mFake->startCount();
        ASSERT_EQ(DVR_SUCCESS, mRecorder->start());
        ASSERT_TRUE(mFake->waitForStarts(starts + 1));
    }
    std::string unexpected(const char *state) {
        return rec(std::string("Receive under unexpect state: ") + state +
                   " (expect: DVR_STM_RECORDING)\n");
    }
};

// The service's second recorder on the second camera and encoder, with a
// fake encoder too.
class SecondRecorder {
public:
    explicit SecondRecorder(DVR &service) : mRecorder(*DVRPeer::recorder(service, 1)) {
        mRecorder.attachCamera(DVRPeer::camera(service, 1));
        RecorderPeer peer(mRecorder);
        mRealEncoder = peer.encoder();
        peer.setEncoder(&mFake);
        EXPECT_EQ(DVR_SUCCESS, mRecorder.nextFile("second.ts"));
    }
    ~SecondRecorder() {
        RecorderPeer(mRecorder).setEncoder(mRealEncoder);
        mRecorder.detachCamera();
    }
    Recorder &recorder() { return mRecorder; }
    FakeEncoder mFake{101};

private:
    Recorder &mRecorder;
    DVREncoderHAL *mRealEncoder = nullptr;
};

}  // namespace

// ---------------------------------------------------------------- start and stop

TEST_F(RecorderLifecycle, StartInIdleIsRefusedAndSucceedsAfterNextFile) {
    buildWithDevices(false);
    useFakeEncoder();
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->start());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "start",
                         rec("Invalid operation under state: DVR_STM_IDLE\n")));
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    ASSERT_EQ(DVR_SUCCESS, mRecorder->nextFile("first.ts"));
    startRecording();
    EXPECT_EQ(DVR_STM_RECORDING, mRecorder->getCurrentState());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "start", rec("Switch to state: DVR_STM_RECORDING\n")));
    EXPECT_EQ("first.ts", peer().fileName());
}

TEST_F(RecorderLifecycle, StartWhileSuspendedIsRefusedEvenWhenReady) {
    prepare(false);
    DVRPeer::setSuspend(*mService, true);
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->start());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "start", rec("Invalid operation during suspend\n")));
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(0, mFake->startCount());
    DVRPeer::setSuspend(*mService, false);
}

TEST_F(RecorderLifecycle, StopOutsideRecordingIsRefused) {
    prepare(false);
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->stopAndWait());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "stopAndWait",
                         rec("Invalid operation under state: DVR_STM_READY\n")));
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
}

TEST_F(RecorderLifecycle, StopStopsTheEncoderAndEndsReadyWithItsStatesLogged) {
    prepare(true);
    startRecording();
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ(1, mFake->stopCount());
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_WARN, "stopAndWait", rec("Switch to state: DVR_STM_STOPPING\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "stopAndWait", rec("Switch to state: DVR_STM_READY\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "threadLoop", rec("Exit\n")));
    EXPECT_FALSE(peer().triggerEncodeThread()->isRunning());
}

TEST_F(RecorderLifecycle, StartBringsTheStagedSettingsIntoForce) {
    prepare(false);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setFileLength(5));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setBitRate(2));
    startRecording();
    const RecordSettings_t configured = mFake->lastSettings();
    EXPECT_EQ(5, configured.fileLength);
    EXPECT_EQ(2, configured.bitRate);
    EXPECT_EQ(320, configured.width);
    EXPECT_EQ(5, mRecorder->getFileLength());
}

TEST_F(RecorderLifecycle, SecondStartAfterAStopRerunsTheSameTriggerThread) {
    prepare(false);
    EXPECT_EQ(nullptr, peer().triggerEncodeThread().get());
    startRecording();
    const android::sp<TriggerEncodeThread> first = peer().triggerEncodeThread();
    ASSERT_NE(nullptr, first.get());
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    startRecording();
    EXPECT_EQ(first.get(), peer().triggerEncodeThread().get());
    EXPECT_TRUE(first->isRunning());
    EXPECT_EQ(2, mFake->configureCount());
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ(2, mFake->stopCount());
}

TEST_F(RecorderLifecycle, AutomaticNamingAsksTheClientAtStart) {
    prepare(false);
    subscribeClient();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("pattern_%ST.ts", "%Y"));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    startRecording();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "start", rec("File format is set but ignore here\n")));
    ASSERT_EQ(1u, mClient->namesGiven().size());
    // The pattern still names the first file: the trigger thread's start-up
    // generates from it over the client's name.
    EXPECT_EQ("pattern_", peer().fileName().substr(0, 8));
}

// ---------------------------------------------------------------- tuning commands

TEST_F(RecorderLifecycle, FirstStartAndLastStopRunTheTuningCommands) {
    prepare(false);
    startRecording();
    EXPECT_EQ(std::vector<std::string>{kTuningRecording}, tuningCommands());
    EXPECT_EQ(1, RecorderPeer::recordCount());
    ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_EQ((std::vector<std::string>{kTuningRecording, kTuningIdle}), tuningCommands());
    EXPECT_EQ(0, RecorderPeer::recordCount());
}

TEST_F(RecorderLifecycle, OverlappingRecordersRunTheTuningCommandsOnceEachWay) {
    prepare(false, 2);
    {
        SecondRecorder second(*mService);
        // First in, first out.
        startRecording();
        ASSERT_EQ(DVR_SUCCESS, second.recorder().start());
        ASSERT_TRUE(second.mFake.waitForStarts(1));
        EXPECT_EQ(2, RecorderPeer::recordCount());
        ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
        EXPECT_EQ(std::vector<std::string>{kTuningRecording}, tuningCommands());
        ASSERT_EQ(DVR_SUCCESS, second.recorder().stopAndWait());
        EXPECT_EQ((std::vector<std::string>{kTuningRecording, kTuningIdle}), tuningCommands());

        // A second recorder's start and stop in between runs neither.
        clearTuningCommands();
        startRecording();
        ASSERT_EQ(DVR_SUCCESS, second.recorder().start());
        ASSERT_TRUE(second.mFake.waitForStarts(2));
        ASSERT_EQ(DVR_SUCCESS, second.recorder().stopAndWait());
        EXPECT_EQ(std::vector<std::string>{kTuningRecording}, tuningCommands());
        ASSERT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
        EXPECT_EQ((std::vector<std::string>{kTuningRecording, kTuningIdle}), tuningCommands());
        EXPECT_EQ(0, RecorderPeer::recordCount());
    }
}

// ---------------------------------------------------------------- failed stops

TEST_F(RecorderLifecycle, EncoderThatNeverPlaysLeavesTheRecorderStopping) {
    prepare(false);
    startRecording();
    mFake->mNeverPlaying = true;
    mCapture.clear();
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->stopAndWait());
    EXPECT_EQ(10u, logged(ANDROID_LOG_ERROR, "stopAndWait",
                          rec("Invalid operation to stop! Encoder is not in PLAYING state...")));
    EXPECT_EQ(DVR_STM_STOPPING, mRecorder->getCurrentState());
    EXPECT_EQ(0, mFake->stopCount());
    // For good: every later start and stop is refused.
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->start());
    EXPECT_EQ(DVR_INVALID_OPERATION, mRecorder->stopAndWait());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "start",
                         rec("Invalid operation under state: DVR_STM_STOPPING\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "stopAndWait",
                         rec("Invalid operation under state: DVR_STM_STOPPING\n")));
    // Let the teardown stop the encoder and the thread.
    mFake->mNeverPlaying = false;
    peer().setState(DVR_STM_RECORDING);
}

TEST_F(RecorderLifecycle, StopWaitsForTheRunningCallbackToEnd) {
    prepare(false);
    startRecording();
    peer().setInCallback(true);
    std::atomic<bool> ended{false};
    std::thread callback([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ended = true;
        peer().setInCallback(false);
    });
    EXPECT_EQ(DVR_SUCCESS, mRecorder->stopAndWait());
    EXPECT_TRUE(ended);
    callback.join();
}

// ---------------------------------------------------------------- suspend, resume, abnormal

TEST_F(RecorderLifecycle, SuspendAndResumeAnswerWithTheEncodersResult) {
    prepare(false);
    EXPECT_EQ(0, mRecorder->onSuspend());
    EXPECT_EQ(0, mRecorder->onResume());
    mFake->mSuspendResult = 3;
    mFake->mResumeResult = -8;
    EXPECT_EQ(-1, mRecorder->onSuspend());
    EXPECT_EQ(-1, mRecorder->onResume());
}

TEST_F(RecorderLifecycle, AbnormalTellsTheClients) {
    prepare(false);
    subscribeClient();
    mRecorder->abnormal();
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ABNORMAL, 1));
    const auto events = mClient->events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(kEncoderId, events[0].index);
    EXPECT_EQ(0, events[0].value);
}

// ---------------------------------------------------------------- need data

TEST_F(RecorderLifecycle, NeedDataOutsideRecordingOnlyLogs) {
    prepare(true);
    mRecorder->onNeedData(ENC_NEED_VIDEO);
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    EXPECT_EQ(2u, logged(ANDROID_LOG_ERROR, "onNeedData", unexpected("DVR_STM_READY")));
    EXPECT_TRUE(mFake->videoPushes().empty());
    EXPECT_TRUE(mFake->audioPushes().empty());
}

TEST_F(RecorderLifecycle, VideoNeedDataPushesTheCamerasFrame) {
    prepare(false);
    startRecording();
    mRecorder->onNeedData(ENC_NEED_VIDEO);
    const auto video = mFake->videoPushes();
    ASSERT_EQ(1u, video.size());
    EXPECT_NE(0u, video[0].pa[0]);
    EXPECT_EQ(video[0].pa[0] + 320u * 240u, video[0].pa[1]);
}

TEST_F(RecorderLifecycle, VideoFetchFailureIsLoggedAndNothingIsPushed) {
    prepare(false);
    startRecording();
    DVRSimulatorControl::failVideoFrames(kCameraId, 1, -7);
    mRecorder->onNeedData(ENC_NEED_VIDEO);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "onNeedData", rec("getVideoFrame() failed: -7\n")));
    EXPECT_TRUE(mFake->videoPushes().empty());
}

TEST_F(RecorderLifecycle, VideoNeedDataWithoutACameraWarns) {
    build();
    useFakeEncoder();
    peer().setState(DVR_STM_RECORDING);
    mRecorder->onNeedData(ENC_NEED_VIDEO);
    peer().setState(DVR_STM_IDLE);
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "onNeedData", rec("Camera device does NOT exist\n")));
    EXPECT_TRUE(mFake->videoPushes().empty());
}

TEST_F(RecorderLifecycle, AudioOffIsAnsweredWithSilenceEvenWithoutAnAudioInput) {
    prepare(false);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setAudioRecording(false));
    startRecording();
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    const auto audio = mFake->audioPushes();
    ASSERT_EQ(2u, audio.size());
    for (const auto &push : audio) {
        EXPECT_EQ(1024, push.length);
        EXPECT_TRUE(push.allZero);
    }
    // One static block, no allocation per request.
    EXPECT_EQ(audio[0].data, audio[1].data);
}

TEST_F(RecorderLifecycle, AudioOnWithoutAnAudioInputPushesNothing) {
    prepare(false);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setAudioRecording(true));
    startRecording();
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    EXPECT_TRUE(mFake->audioPushes().empty());
}

TEST_F(RecorderLifecycle, AudioPushesTheDevicesChunk) {
    prepare(true);
    startRecording();
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    const auto audio = mFake->audioPushes();
    ASSERT_EQ(1u, audio.size());
    // 20 ms of 16-bit mono at 16 kHz.
    EXPECT_EQ(640, audio[0].length);
    EXPECT_FALSE(audio[0].allZero);
}

TEST_F(RecorderLifecycle, AudioDeviceErrorIsLoggedAndAnsweredWithSilence) {
    prepare(true);
    startRecording();
    DVRSimulatorControl::failAudioData(kAudioId, 1, -5);
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "onNeedData", rec("getAudioData failed: -5\n")));
    const auto audio = mFake->audioPushes();
    ASSERT_EQ(1u, audio.size());
    EXPECT_EQ(1024, audio[0].length);
    EXPECT_TRUE(audio[0].allZero);
}

TEST_F(RecorderLifecycle, AudioThatArrivesOnTheNinetyNinthRetryIsPushed) {
    prepare(true);
    startRecording();
    // The first fetch and 98 retries find nothing.
    DVRSimulatorControl::failAudioData(kAudioId, 99, 0);
    mRecorder->onNeedData(ENC_NEED_AUDIO);
    const auto audio = mFake->audioPushes();
    ASSERT_EQ(1u, audio.size());
    EXPECT_EQ(640, audio[0].length);
}

// ---------------------------------------------------------------- file events

TEST_F(RecorderLifecycle, FileFinishOutsideRecordingOnlyLogs) {
    prepare(false);
    subscribeClient();
    mRecorder->onFileFinish("old.ts");
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "onFileFinish", unexpected("DVR_STM_READY")));
    // A later notification arrives alone: nothing was queued before it.
    mRecorder->OnRecordStart("marker.ts");
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, 1));
    const auto events = mClient->events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("marker.ts", events[0].text);
    EXPECT_EQ("first.ts", peer().nextFileName());
}

TEST_F(RecorderLifecycle, FileFinishNamesTheNextFileAndReportsFinishThenStart) {
    prepare(false);
    subscribeClient();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    startRecording();
    const std::string first = peer().fileName();
    EXPECT_EQ("./clip_1.ts", first);
    mRecorder->onFileFinish(first.c_str());
    EXPECT_EQ("./clip_2.ts", peer().fileName());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, 1));
    const auto events = mClient->events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(DVR_CBK_RECORD_FINISH, events[0].cmd);
    EXPECT_EQ("./clip_1.ts", events[0].text);
    EXPECT_EQ(DVR_CBK_RECORD_START, events[1].cmd);
    EXPECT_EQ("./clip_2.ts", events[1].text);
    EXPECT_EQ(kEncoderId, events[1].index);
}

TEST_F(RecorderLifecycle, FileFinishWithAPatternGeneratesTheNextName) {
    prepare(false);
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("next_%ST.ts", "%Y"));
    startRecording();
    mRecorder->onFileFinish("whatever.ts");
    EXPECT_EQ("next_", peer().fileName().substr(0, 5));
}

TEST_F(RecorderLifecycle, RecordStartAndFinishAreReportedInAnyState) {
    prepare(false);
    subscribeClient();
    mRecorder->OnRecordStart("a.ts");
    mRecorder->onRecordFinish("a.ts");
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    const auto events = mClient->events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(DVR_CBK_RECORD_START, events[0].cmd);
    EXPECT_EQ(DVR_CBK_RECORD_FINISH, events[1].cmd);
    EXPECT_EQ("a.ts", events[1].text);
}

TEST_F(RecorderLifecycle, ErrorOfEitherSeverityStopsThenTellsTheClient) {
    prepare(false);
    subscribeClient();
    startRecording();
    mRecorder->onError(DVR_ERROR_NORMAL, -42);
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(1, mFake->stopCount());
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ERROR, 1));
    startRecording();
    mRecorder->onError(DVR_ERROR_SEVERE, -43);
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ERROR_SEVERE, 1));
    // Outside a recording the stop is refused, the error still reported.
    mRecorder->onError(DVR_ERROR_NORMAL, -44);
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_ERROR, 2));
    const auto events = mClient->events();
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(-42, events[0].value);
    EXPECT_EQ(DVR_CBK_ERROR_SEVERE, events[1].cmd);
    EXPECT_EQ(-43, events[1].value);
    EXPECT_EQ(-44, events[2].value);
}

// ---------------------------------------------------------------- aborts

using RecorderLifecycleDeathTest = RecorderLifecycle;

TEST_F(RecorderLifecycleDeathTest, UnknownNeedDataTypeAborts) {
    prepare(false);
    startRecording();
    EXPECT_DEATH(mRecorder->onNeedData(static_cast<ENCNeedDataType_e>(7)),
                 "Unknown type: 0x7.*Assertion failed");
}

TEST_F(RecorderLifecycleDeathTest, AudioThatArrivesOnlyOnTheHundredthRetryAborts) {
    prepare(true);
    startRecording();
    EXPECT_DEATH(
        {
            // The first fetch and 99 retries find nothing.
            DVRSimulatorControl::failAudioData(kAudioId, 100, 0);
            mRecorder->onNeedData(ENC_NEED_AUDIO);
        },
        "Assertion failed: dNoAudCountDown > 0");
}

TEST_F(RecorderLifecycleDeathTest, FrameWithoutAnAddressAborts) {
    prepare(false);
    startRecording();
    EXPECT_DEATH(
        {
            DVRSimulatorControl::failVideoFrames(kCameraId, 1, 0);
            mRecorder->onNeedData(ENC_NEED_VIDEO);
        },
        "Assertion failed: frameVA\\[0\\] != NULL");
}

TEST_F(RecorderLifecycleDeathTest, NullFileNamesInFileEventsAbort) {
    prepare(false);
    EXPECT_DEATH(mRecorder->OnRecordStart(nullptr), "Assertion failed: pStartFile != NULL");
    EXPECT_DEATH(mRecorder->onRecordFinish(nullptr), "Assertion failed: pLastFile != NULL");
    startRecording();
    EXPECT_DEATH(mRecorder->onFileFinish(nullptr), "Assertion failed: pFinishFile != NULL");
}

TEST_F(RecorderLifecycleDeathTest, UnknownErrorSeverityAbortsAfterTheStop) {
    prepare(false);
    startRecording();
    EXPECT_DEATH(mRecorder->onError(static_cast<DVRErrorServerity_e>(5), -1),
                 "Switch to state: DVR_STM_READY.*Unknown error severity: 5.*Assertion failed");
}

TEST_F(RecorderLifecycleDeathTest, CallbackRunningLongerThanASecondAfterTheStopAborts) {
    prepare(false);
    startRecording();
    EXPECT_DEATH(
        {
            peer().setInCallback(true);
            mRecorder->stopAndWait();
        },
        "Wait callback done too long \\(exceeds 1 second!\\)");
}
