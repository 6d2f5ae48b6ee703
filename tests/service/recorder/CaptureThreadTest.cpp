// The push-side capture threads: each polls its device and posts what it gets
// to a trigger-encode thread, which hands it to a fake encoder.
#include <gtest/gtest.h>

#include <atomic>
#include <set>

#include "DVRAudioThread.h"
#include "DVRVideoThread.h"
#include "RecordingFixture.h"
#include "TriggerEncodeThread.h"

namespace dvrspace {

class DVRAudioThreadPeer {
public:
    static unsigned char *dummyBuffer(DVRAudioThread &thread) { return thread.mDummyAudioBuffer; }
};

}  // namespace dvrspace

using namespace dvrspace;
using namespace dvrtest;

namespace {

// An audio input that always has a chunk of no bytes.
class EmptyChunkAudio : public DVRAudioDevice {
public:
    EmptyChunkAudio() : DVRAudioDevice(77, DVRAudioCaps_t{1, 16}) {}
    int getAudioData(int handle, void **data, int *length, uint64_t *) override {
        mLastHandle = handle;
        *data = mChunk;
        *length = 0;
        return 0;
    }
    int open() override { return 3; }
    int close(int) override { return 0; }
    int start(int) override { return 0; }
    int stop(int) override { return 0; }
    int prepareStop(int) override { return 0; }
    int suspend() override { return 0; }
    int resume() override { return 0; }
    int setSamplingRate(unsigned int) override { return 0; }
    unsigned int getSamplingRate() override { return 16000; }
    std::set<unsigned int> getSupportedSamplingRates() override { return {16000}; }

    uint8_t mChunk[4] = {9, 9, 9, 9};
    std::atomic<int> mLastHandle{0};
};

class CaptureThreadTest : public RecordingFixture {
protected:
    void SetUp() override {
        RecordingFixture::SetUp();
        buildWithDevices(false);
        ASSERT_EQ(DVR_SUCCESS, mRecorder->nextFile("capture.ts"));
        mTarget = new TriggerEncodeThread(mRecorder, &mEncoder);
        peer().setTriggerEncodeThread(mTarget);
        ASSERT_EQ(android::OK, mTarget->run("DVR Trigger Encode Thread", -1, 0));
        ASSERT_TRUE(mEncoder.waitForStarts(1));
    }
    void TearDown() override {
        // The encode thread may still push the audio thread's silence block,
        // which the audio thread owns: stop the consumer first.
        mTarget->preStop();
        mTarget->requestExit();
        mTarget->trigger();
        mTarget->join();
        if (mCaptureThread != nullptr) {
            mCaptureThread->requestExitAndWait();
            mCaptureThread.clear();
        }
        mTarget.clear();
        RecordingFixture::TearDown();
    }

    // Runs the capture thread until its first post, 1024 zero bytes.
    void runUntilSilencePosted() {
        ASSERT_EQ(android::OK, mCaptureThread->run("audio", -1, 0));
        ASSERT_TRUE(mEncoder.waitForAudioPushes(1));
        const auto pushes = mEncoder.audioPushes();
        EXPECT_EQ(1024, pushes[0].length);
        EXPECT_TRUE(pushes[0].allZero);
    }

    FakeEncoder mEncoder{kEncoderId};
    EmptyChunkAudio mDevice;
    android::sp<TriggerEncodeThread> mTarget;
    android::sp<android::Thread> mCaptureThread;
};

}  // namespace

TEST_F(CaptureThreadTest, VideoThreadPostsTheCamerasFrames) {
    ASSERT_EQ(0, mCamera->start());
    mCaptureThread = new DVRVideoThread(mCamera, mTarget);
    ASSERT_EQ(android::OK, mCaptureThread->run("video", -1, 0));
    ASSERT_TRUE(mEncoder.waitForVideoPushes(2));
    mCaptureThread->requestExitAndWait();
    mCaptureThread.clear();
    mCamera->stop();
    // Frames of the camera's ring: non-zero addresses, chroma right after luma.
    for (const auto &push : mEncoder.videoPushes()) {
        EXPECT_NE(0u, push.pa[0]);
        EXPECT_EQ(push.pa[0] + 320u * 240u, push.pa[1]);
    }
}

TEST_F(CaptureThreadTest, DisabledAudioThreadPostsSilence) {
    android::sp<DVRAudioThread> audio = new DVRAudioThread(&mDevice, mTarget, false);
    mCaptureThread = audio;
    runUntilSilencePosted();
    EXPECT_EQ(0, mDevice.mLastHandle);  // never asked
}

TEST_F(CaptureThreadTest, SetEnableKeepsOneSilenceBlockAndFreesItWhenEnabled) {
    android::sp<DVRAudioThread> audio = new DVRAudioThread(&mDevice, mTarget, true);
    EXPECT_EQ(nullptr, DVRAudioThreadPeer::dummyBuffer(*audio));
    audio->setEnable(false);
    unsigned char *block = DVRAudioThreadPeer::dummyBuffer(*audio);
    ASSERT_NE(nullptr, block);
    audio->setEnable(false);
    EXPECT_EQ(block, DVRAudioThreadPeer::dummyBuffer(*audio));
    audio->setEnable(true);
    EXPECT_EQ(nullptr, DVRAudioThreadPeer::dummyBuffer(*audio));
    audio->setEnable(false);
    ASSERT_NE(nullptr, DVRAudioThreadPeer::dummyBuffer(*audio));

    mCaptureThread = audio;
    runUntilSilencePosted();
}

TEST_F(CaptureThreadTest, EnabledAudioThreadPostsWhatTheDeviceReturnsEvenNoBytes) {
    mCaptureThread = new DVRAudioThread(&mDevice, mTarget, true);
    ASSERT_EQ(android::OK, mCaptureThread->run("audio", -1, 0));
    ASSERT_TRUE(mEncoder.waitForAudioPushes(1));
    const auto pushes = mEncoder.audioPushes();
    EXPECT_EQ(mDevice.mChunk, pushes[0].data);
    EXPECT_EQ(0, pushes[0].length);
    // The push arrangement has no handle of its own.
    EXPECT_EQ(-1, mDevice.mLastHandle);
}

using CaptureThreadDeathTest = CaptureThreadTest;

TEST_F(CaptureThreadDeathTest, VideoThreadWithoutACameraAborts) {
    EXPECT_DEATH(
        {
            android::sp<DVRVideoThread> video = new DVRVideoThread(nullptr, mTarget);
            video->run("video", -1, 0);
            video->join();
        },
        "Assertion failed: mCameraDevice != NULL && mEncodeTh != NULL");
}

TEST_F(CaptureThreadDeathTest, AudioThreadWithoutADeviceAborts) {
    EXPECT_DEATH(
        {
            android::sp<DVRAudioThread> audio = new DVRAudioThread(nullptr, mTarget, true);
            audio->run("audio", -1, 0);
            audio->join();
        },
        "Assertion failed: mAudioDevice != NULL && mEncodeTh != NULL");
}
