#include "DVRSystemFixture.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"
#include "RecorderPeer.h"
#include "ServiceStates.h"

namespace dvrtest {

void DVRSystemFixture::SetUp() {
    // The service runs threads of its own; a forked child would lack them.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    // The receiver's name comes from the environment the test sets, never
    // from the one ctest was started in.
    unsetenv("SVC_NAME");
    useSmallFastCameras();
    // The storage-tuning commands write to the device's sysfs: not here.
    mPreviousRunner = countTuningCommands();
}

void DVRSystemFixture::TearDown() {
    if (mService != nullptr) {
        // Recorders are destroyed idle; channels that do not record refuse.
        (void)mService->stopRecordAll();
        dvrspace::DVRPeer::forgetDeathRecipients(*mService);
        mService.clear();
    }
    dvrspace::Recorder::setCommandRunner(mPreviousRunner);
}

void DVRSystemFixture::build() {
    mService = new dvrspace::DVR();
}

void DVRSystemFixture::attachClient(int pid, const android::sp<dvrspace::IDVRCallback> &client,
                                    int cbkId) {
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(pid, client));
    for (auto type :
         {dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_OBJ_ABNORMAL,
          dvrspace::DVR_CBK_OBJ_STAMP, dvrspace::DVR_CBK_OBJ_FILENAME}) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->registerCallback(pid, cbkId, type));
    }
}

void DVRSystemFixture::prepareChannel(int encId, int camId, bool withAudio) {
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->attachCamera(encId, camId));
    if (withAudio) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->attachAudio(encId, kAudio0));
    }
    // The factory defaults record audio; a channel without an input must not.
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->setAudioRecording(encId, withAudio));
    dvrspace::QVStampSettings_t time{true, 8, 8, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL, 1, 0};
    dvrspace::QVStampSettings_t user{true, 8, 48, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL, 1, 1000};
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->setTimestamp(encId, &time));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->setSelfDefinedStamp(encId, &user));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->autoNextFile(encId, true));
}

std::string DVRSystemFixture::encoderService() {
    return dvrspace::DVREncoderFactory::getFactory()->getServiceName();
}

std::string DVRSystemFixture::cameraService() {
    return dvrspace::DVRCameraDeviceFactory::getFactory()->getServiceName();
}

std::string DVRSystemFixture::audioService() {
    return dvrspace::DVRAudioDeviceFactory::getFactory()->getServiceName();
}

void DVRSystemFixture::setServiceState(const std::string &service, const std::string &state) {
    ServiceStates(mEnv.serviceDir()).set(service, state);
}

std::string DVRSystemFixture::serviceState(const std::string &service) {
    return ServiceStates(mEnv.serviceDir()).get(service);
}

size_t DVRSystemFixture::logged(int priority, const std::string &tag, const std::string &function,
                                const std::string &rest) const {
    return countLogged(mCapture, priority, tag, function, rest);
}

bool DVRSystemFixture::waitForLogged(int priority, const std::string &tag,
                                     const std::string &function, const std::string &rest,
                                     size_t count, int timeoutSeconds) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    while (logged(priority, tag, function, rest) < count) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool DVRSystemFixture::waitForContent(const std::string &path, uintmax_t bytes,
                                      int timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    std::error_code error;
    while (std::filesystem::file_size(path, error) < bytes || error) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool DVRSystemFixture::cameraDelivers(dvrspace::DVRCameraDevice *camera) {
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    uint64_t timestamp = 0;
    EXPECT_EQ(0, camera->start());
    const int ret = camera->getVideoFrame(frameVA, framePA, &timestamp);
    EXPECT_EQ(0, camera->stop());
    return ret == 0 && frameVA[0] != nullptr;
}

bool DVRSystemFixture::audioDelivers(dvrspace::DVRAudioDevice *audio) {
    const int handle = audio->open();
    EXPECT_EQ(0, audio->start(handle));
    void *data = nullptr;
    int length = 0;
    const int ret = audio->getAudioData(handle, &data, &length, nullptr);
    EXPECT_EQ(0, audio->stop(handle));
    EXPECT_EQ(0, audio->close(handle));
    return ret >= 0 && length > 0;
}

dvrspace::DVRCameraDevice *DVRSystemFixture::camera(int index) {
    return dvrspace::DVRPeer::camera(*mService, index);
}

dvrspace::DVRAudioDevice *DVRSystemFixture::audio(int index) {
    return dvrspace::DVRPeer::audio(*mService, index);
}

}  // namespace dvrtest
