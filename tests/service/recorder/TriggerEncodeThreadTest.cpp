// The trigger-encode thread on its own: start-up of the encoder, the hand-off
// of posted frames and audio to the encoder, its stop, and its aborts. A fake
// encoder shows exactly what reaches the encoder.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "RecordingFixture.h"
#include "TriggerEncodeThread.h"

namespace dvrspace {

// Test access to the pending slots and the loop's waiting flag.
class TriggerEncodeThreadPeer {
public:
    explicit TriggerEncodeThreadPeer(TriggerEncodeThread &thread) : mThread(thread) {}
    void *pendingFrameVA() {
        pthread_mutex_lock(&mThread.mMutex);
        void *va = mThread.mFrameVA[0];
        pthread_mutex_unlock(&mThread.mMutex);
        return va;
    }
    bool isWaiting() const { return mThread.mbWaiting; }

private:
    TriggerEncodeThread &mThread;
};

}  // namespace dvrspace

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr size_t kFrameBytes = 320 * 240 * 3 / 2;

class TriggerEncodeThreadTest : public RecordingFixture {
protected:
    void SetUp() override {
        RecordingFixture::SetUp();
        buildWithDevices(false);
        ASSERT_EQ(DVR_SUCCESS, mRecorder->nextFile("first.ts"));
        mThread = new TriggerEncodeThread(mRecorder, &mEncoder);
        // The recorder's stop steps reach the thread through the recorder.
        peer().setTriggerEncodeThread(mThread);
    }
    void TearDown() override {
        if (mThread->isRunning()) {
            stopThread();
        }
        mThread.clear();
        RecordingFixture::TearDown();
    }

    void runThread() {
        const int starts = mEncoder.startCount();
        ASSERT_EQ(android::OK, mThread->run("DVR Trigger Encode Thread", -1, 0));
        ASSERT_TRUE(mEncoder.waitForStarts(starts + 1));
        waitUntilLoopWaits();
    }
    void waitUntilLoopWaits() {
        TriggerEncodeThreadPeer threadPeer(*mThread);
        for (int i = 0; i < 10000 && !threadPeer.isWaiting(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(threadPeer.isWaiting());
    }
    // The recorder's stop sequence.
    void stopThread() {
        mThread->preStop();
        mThread->requestExit();
        mThread->trigger();
        mThread->join();
    }

    FakeEncoder mEncoder{kEncoderId};
    android::sp<TriggerEncodeThread> mThread;
    std::vector<uint8_t> mFrameA = std::vector<uint8_t>(kFrameBytes, 0x40);
    std::vector<uint8_t> mFrameB = std::vector<uint8_t>(kFrameBytes, 0x80);
};

}  // namespace

TEST_F(TriggerEncodeThreadTest, StartUpConfiguresAndStartsTheEncoderWithTheCameraWords) {
    runThread();
    EXPECT_EQ(1, mEncoder.configureCount());
    EXPECT_EQ(1, mEncoder.startCount());
    const DVRCameraCaps_t caps = mEncoder.lastCameraCaps();
    EXPECT_EQ(30, caps.frameRate);
    EXPECT_EQ(320, caps.width);
    EXPECT_EQ(240, caps.height);
    EXPECT_EQ(320, caps.stride);
    EXPECT_EQ(DVR_VIDEO_FORMAT_NV12, caps.format);
    // The recorder's next file became its current one.
    EXPECT_EQ("first.ts", peer().fileName());
    EXPECT_FALSE(mThread->isPreStopped());
}

TEST_F(TriggerEncodeThreadTest, StartUpNamesTheFileFromTheRecordersPattern) {
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("pattern_%ST.ts", "%Y"));
    runThread();
    const std::string name = peer().fileName();
    ASSERT_EQ(std::string("pattern_2026.ts").size(), name.size()) << name;
    EXPECT_EQ("pattern_", name.substr(0, 8));
}

TEST_F(TriggerEncodeThreadTest, StopStopsTheEncoderAndTheLoopLogsItsExit) {
    runThread();
    mCapture.clear();
    stopThread();
    EXPECT_EQ(1, mEncoder.stopCount());
    EXPECT_TRUE(mThread->isPreStopped());
    EXPECT_FALSE(mThread->isRunning());
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "threadLoop", rec("Exit\n")));
}

TEST_F(TriggerEncodeThreadTest, FailedEncoderStopIsLoggedAndReturned) {
    runThread();
    mEncoder.mStopResult = -5;
    EXPECT_EQ(-5, mThread->preStop());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "preStop", rec("Stop encode service failed: -5\n")));
    mThread->requestExit();
    mThread->trigger();
    mThread->join();
}

TEST_F(TriggerEncodeThreadTest, RestartRunsStartUpAgainOnTheSameObject) {
    runThread();
    stopThread();
    runThread();
    EXPECT_EQ(2, mEncoder.configureCount());
    EXPECT_EQ(2, mEncoder.startCount());
    // Set by the first stop and never cleared.
    EXPECT_TRUE(mThread->isPreStopped());
}

TEST_F(TriggerEncodeThreadTest, PostedFrameAndAudioReachTheEncoderOnce) {
    runThread();
    void *frameVA[2] = {mFrameA.data(), mFrameA.data() + 320 * 240};
    unsigned int framePA[2] = {0x1000, 0x2000};
    mThread->collectVideoData(frameVA, framePA);
    ASSERT_TRUE(mEncoder.waitForVideoPushes(1));
    static uint8_t silence[16] = {};
    mThread->collectAudioData(silence, sizeof(silence));
    ASSERT_TRUE(mEncoder.waitForAudioPushes(1));
    const auto video = mEncoder.videoPushes();
    ASSERT_EQ(1u, video.size());
    EXPECT_EQ(0x1000u, video[0].pa[0]);
    EXPECT_EQ(0x2000u, video[0].pa[1]);
    const auto audio = mEncoder.audioPushes();
    ASSERT_EQ(1u, audio.size());
    EXPECT_EQ(silence, audio[0].data);
    EXPECT_EQ(16, audio[0].length);
}

TEST_F(TriggerEncodeThreadTest, FrameWithZeroPhysicalAddressIsNeitherEncodedNorCleared) {
    runThread();
    void *frameVA[2] = {mFrameA.data(), mFrameA.data() + 320 * 240};
    unsigned int framePA[2] = {0, 0x2000};
    mThread->collectVideoData(frameVA, framePA);
    // An audio chunk after it makes sure a loop pass has seen the frame.
    static uint8_t chunk[8] = {1};
    mThread->collectAudioData(chunk, sizeof(chunk));
    ASSERT_TRUE(mEncoder.waitForAudioPushes(1));
    EXPECT_TRUE(mEncoder.videoPushes().empty());
    EXPECT_EQ(mFrameA.data(), TriggerEncodeThreadPeer(*mThread).pendingFrameVA());
}

TEST_F(TriggerEncodeThreadTest, SecondFramePostedBeforeTheLoopTakesTheFirstReplacesIt) {
    // Not running yet: both posts only signal, and nobody waits.
    void *frameA[2] = {mFrameA.data(), mFrameA.data() + 320 * 240};
    unsigned int paA[2] = {0x1000, 0x2000};
    void *frameB[2] = {mFrameB.data(), mFrameB.data() + 320 * 240};
    unsigned int paB[2] = {0x3000, 0x4000};
    mThread->collectVideoData(frameA, paA);
    mThread->collectVideoData(frameB, paB);
    runThread();
    mThread->trigger();
    ASSERT_TRUE(mEncoder.waitForVideoPushes(1));
    stopThread();
    const auto video = mEncoder.videoPushes();
    ASSERT_EQ(1u, video.size());
    EXPECT_EQ(0x3000u, video[0].pa[0]);
    EXPECT_EQ(0x4000u, video[0].pa[1]);
}

TEST_F(TriggerEncodeThreadTest, PostWaitsUntilTheLoopIsBackAtItsWait) {
    runThread();
    mEncoder.holdPushes();
    static uint8_t chunk[8] = {1};
    mThread->collectAudioData(chunk, sizeof(chunk));
    ASSERT_TRUE(mEncoder.waitUntilPushHeld());
    std::atomic<bool> released{false};
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        released = true;
        mEncoder.releasePushes();
    });
    mThread->collectAudioData(chunk, sizeof(chunk));
    // The second post could only go out once the held push had returned.
    EXPECT_TRUE(released);
    releaser.join();
    ASSERT_TRUE(mEncoder.waitForAudioPushes(2));
}

TEST_F(TriggerEncodeThreadTest, AfterAStopPostsSignalWithoutWaiting) {
    runThread();
    stopThread();
    runThread();
    mEncoder.holdPushes();
    static uint8_t chunk[8] = {1};
    mThread->collectAudioData(chunk, sizeof(chunk));
    ASSERT_TRUE(mEncoder.waitUntilPushHeld());
    // With the loop held in a push, a waiting post would time out and abort;
    // the lasting pre-stop flag makes it return at once.
    mThread->collectAudioData(chunk, sizeof(chunk));
    mEncoder.releasePushes();
    ASSERT_TRUE(mEncoder.waitForAudioPushes(1));
}

using TriggerEncodeThreadDeathTest = TriggerEncodeThreadTest;

TEST_F(TriggerEncodeThreadDeathTest, ExitWithoutPreStopAborts) {
    EXPECT_DEATH(
        {
            runThread();
            mThread->requestExit();
            mThread->trigger();
            mThread->join();
        },
        "Exit.*Assertion failed: mbPreStopped == true");
}

TEST_F(TriggerEncodeThreadDeathTest, PostThatTheLoopCannotTakeWithinASecondAborts) {
    EXPECT_DEATH(
        {
            runThread();
            mEncoder.holdPushes();
            static uint8_t chunk[8] = {1};
            mThread->collectAudioData(chunk, sizeof(chunk));
            mEncoder.waitUntilPushHeld();
            mThread->collectAudioData(chunk, sizeof(chunk));
        },
        "Wait timeout!.*Assertion failed: ret == 0");
}

TEST_F(TriggerEncodeThreadDeathTest, StartUpWithoutACameraAborts) {
    mRecorder->detachCamera();
    EXPECT_DEATH(
        {
            mThread->run("DVR Trigger Encode Thread", -1, 0);
            mThread->join();
        },
        "Assertion failed: pCamera != NULL");
}
