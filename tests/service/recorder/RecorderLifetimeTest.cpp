// Construction and destruction of a recorder: waiting for the encoder
// service, the encoder and its registration, the devices it borrows, and the
// aborts that guard them.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "DVRSimulatorControl.h"
#include "RecorderFixture.h"
#include "SvcStateDir.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

class RecorderLifetime : public RecorderFixture {
protected:
    void writeEncoderServiceState(const std::string &state) {
        std::string error;
        ASSERT_TRUE(SvcStateDir(mEnv.serviceDir()).write("es_server", state, &error)) << error;
    }
};

}  // namespace

TEST_F(RecorderLifetime, ConstructionLogsItsStatesAndRegistersUnderTheEncoderId) {
    build();
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "Recorder", rec("CONSTRUCTOR\n", 0)));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "Recorder", "Switch to state: DVR_STM_NONE\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "Recorder", rec("Switch to state: DVR_STM_IDLE\n")));
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    ASSERT_EQ(1u, gRecorderList.size());
    EXPECT_EQ(mRecorder, gRecorderList.at(kEncoderId));
    EXPECT_EQ(mService.get(), &mRecorder->getService());
    EXPECT_FALSE(mRecorder->hasNextFile());
    EXPECT_FALSE(peer().autoNextFile());
    EXPECT_EQ(nullptr, mRecorder->getAttachedCamera());
    EXPECT_EQ(nullptr, mRecorder->getAttachedAudio());
}

TEST_F(RecorderLifetime, DestructionUnregistersAndEndsInStateNone) {
    build(2);
    Recorder *second = DVRPeer::takeRecorder(*mService, 1);
    EXPECT_EQ(2u, gRecorderList.size());
    mCapture.clear();
    delete second;
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "~Recorder", rec("DESTRUCTOR\n", 101)));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "~Recorder", "Switch to state: DVR_STM_NONE\n"));
    ASSERT_EQ(1u, gRecorderList.size());
    EXPECT_EQ(1u, gRecorderList.count(kEncoderId));
    destroyRecorder();
    EXPECT_TRUE(gRecorderList.empty());
}

TEST_F(RecorderLifetime, ConstructionWaitsUntilTheEncoderServiceRuns) {
    writeEncoderServiceState("stopped");
    // The service comes up once the recorder has looked twice, however long
    // the service's start-up before it took.
    std::thread serviceManager([this] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (logged(ANDROID_LOG_WARN, "Recorder", rec("es_server NOT ready: stopped\n", 0)) < 2 &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        writeEncoderServiceState("running");
    });
    build();
    serviceManager.join();
    EXPECT_GE(logged(ANDROID_LOG_WARN, "Recorder", rec("es_server NOT ready: stopped\n", 0)), 2u);
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
}

TEST_F(RecorderLifetime, CameraAttachKeepsTheFirstAndDetachTwiceWarns) {
    build(2);
    EXPECT_EQ(nullptr, mRecorder->getCameraDevice());
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_WARN, "getCameraDevice", rec("Camera device does NOT exist!\n")));
    attachCamera();
    mRecorder->attachCamera(DVRPeer::camera(*mService, 1));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "attachCamera", rec("Already attached\n")));
    EXPECT_EQ(mCamera, mRecorder->getCameraDevice());
    mRecorder->detachCamera();
    mRecorder->detachCamera();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "detachCamera", "Camera device already detached\n"));
    EXPECT_EQ(nullptr, mRecorder->getAttachedCamera());
}

TEST_F(RecorderLifetime, AudioAttachKeepsTheFirstAndDetachTwiceWarns) {
    build();
    EXPECT_EQ(nullptr, mRecorder->getAudioDevice());
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_WARN, "getAudioDevice", rec("Audio device does NOT exist!\n")));
    std::unique_ptr<DVRAudioDevice> audio(DVRAudioDeviceFactory::getFactory()->createDevice(0));
    ASSERT_NE(nullptr, audio);
    mRecorder->attachAudio(audio.get());
    mRecorder->attachAudio(audio.get());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "attachAudio", rec("Already attached\n")));
    EXPECT_EQ(audio.get(), mRecorder->getAttachedAudio());
    mRecorder->detachAudio();
    mRecorder->detachAudio();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "detachAudio", "Audio device already detached\n"));
}

using RecorderLifetimeDeathTest = RecorderLifetime;

TEST_F(RecorderLifetimeDeathTest, DestroyingWithACameraAttachedAborts) {
    buildWithCamera();
    EXPECT_DEATH(destroyRecorder(),
                 "Camera device does not detach! Please call Recorder::detachCamera\\(\\) before "
                 "releasing Recorder instance!");
}

TEST_F(RecorderLifetimeDeathTest, DestroyingWithAnAudioInputAttachedAborts) {
    build();
    std::unique_ptr<DVRAudioDevice> audio(DVRAudioDeviceFactory::getFactory()->createDevice(0));
    mRecorder->attachAudio(audio.get());
    EXPECT_DEATH(destroyRecorder(),
                 "Audio device does not detach! Please call Recorder::detachAudio\\(\\) before "
                 "releasing Recorder instance!");
    mRecorder->detachAudio();
}

TEST_F(RecorderLifetimeDeathTest, SecondRecorderForARegisteredEncoderIdAborts) {
    build(2);
    // The service's second recorder holds encoder 101, as if it were handed out twice.
    EXPECT_DEATH(Recorder second(1, *mService), "Fatal! gRecorderList key 101 exists");
}

TEST_F(RecorderLifetimeDeathTest, CallbackForAnUnknownEncoderAborts) {
    build();
    EXPECT_DEATH(onNeedDataCallback(7, ENC_NEED_VIDEO),
                 "\\[_get_recorder_from_list:[0-9]+\\] Recorder not found with encoder ID: "
                 "7.*Assertion failed: pRec != NULL");
    EXPECT_DEATH(OnRecordStartCallback(7, "x"), "Recorder not found with encoder ID: 7");
    EXPECT_DEATH(onRecordFinishCallback(7, "x"), "Recorder not found with encoder ID: 7");
    EXPECT_DEATH(onFileFinishCallback(7, "x"), "Recorder not found with encoder ID: 7");
    EXPECT_DEATH(onErrorCallback(7, DVR_ERROR_NORMAL, 1), "Recorder not found with encoder ID: 7");
}

TEST_F(RecorderLifetimeDeathTest, EncoderServiceStateThatCannotBeReadAborts) {
    DVRSimConfig sim = DVRSimulatorControl::config();
    sim.encoderServiceName = ".hidden";
    DVRSimulatorControl::setConfig(sim);
    EXPECT_DEATH(build(), "Assertion failed: smRet == SVC_MON_NOERROR");
}

TEST_F(RecorderLifetimeDeathTest, MissingEncoderAborts) {
    mService = new DVR();
    EXPECT_DEATH(Recorder(9, *mService), "Assertion failed: mEncoder != NULL");
}
