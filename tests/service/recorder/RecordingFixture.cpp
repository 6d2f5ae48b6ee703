#include "RecordingFixture.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "DVRSimulatorControl.h"

namespace dvrtest {

namespace {

std::mutex gCommandsLock;
std::vector<std::string> gCommands;

int countCommand(const char *command) {
    std::lock_guard<std::mutex> lock(gCommandsLock);
    gCommands.emplace_back(command);
    return 0;
}

}  // namespace

std::vector<std::string> tuningCommands() {
    std::lock_guard<std::mutex> lock(gCommandsLock);
    return gCommands;
}

void clearTuningCommands() {
    std::lock_guard<std::mutex> lock(gCommandsLock);
    gCommands.clear();
}

int EventClient::onRecordStart(int, int index, const char *fileName) {
    add(Event{dvrspace::DVR_CBK_RECORD_START, index, fileName, 0});
    return 0;
}

int EventClient::onRecordFinish(int, int index, const char *fileName) {
    add(Event{dvrspace::DVR_CBK_RECORD_FINISH, index, fileName, 0});
    return 0;
}

int EventClient::onRecordError(int, int index, int errorCode) {
    add(Event{dvrspace::DVR_CBK_ERROR, index, "", errorCode});
    return 0;
}

int EventClient::onRecordErrorSevere(int, int index, int errorCode) {
    add(Event{dvrspace::DVR_CBK_ERROR_SEVERE, index, "", errorCode});
    return 0;
}

int EventClient::onRecordAbnormal(int, int index, int value) {
    add(Event{dvrspace::DVR_CBK_ABNORMAL, index, "", value});
    return 0;
}

int EventClient::getStampString(int, int, char *buffer) {
    snprintf(buffer, 64, "%s", mStampText.c_str());
    std::unique_lock<std::mutex> lock(mLock);
    if (++mStampRequests == mPauseAt) {
        mPaused = true;
        mChanged.notify_all();
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(mPauseMs));
    }
    return 0;
}

void EventClient::pauseStampAt(int stampRequest, int pauseMs) {
    std::lock_guard<std::mutex> lock(mLock);
    mPauseAt = stampRequest;
    mPauseMs = pauseMs;
}

bool EventClient::waitUntilPaused() {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::seconds(60), [this] { return mPaused; });
}

int EventClient::fileNameGenerator(int, int, char *buffer, int length) {
    std::lock_guard<std::mutex> lock(mLock);
    const std::string name =
        mNameDirectory + "/clip_" + std::to_string(mNames.size() + 1) + "." + mNameExtension;
    mNames.push_back(name);
    snprintf(buffer, length, "%s", name.c_str());
    return 0;
}

void EventClient::add(Event event) {
    std::lock_guard<std::mutex> lock(mLock);
    mEvents.push_back(std::move(event));
    mChanged.notify_all();
}

std::vector<EventClient::Event> EventClient::events() {
    std::lock_guard<std::mutex> lock(mLock);
    return mEvents;
}

size_t EventClient::countEvents(int cmd) {
    std::lock_guard<std::mutex> lock(mLock);
    size_t count = 0;
    for (const Event &event : mEvents) {
        count += event.cmd == cmd ? 1 : 0;
    }
    return count;
}

bool EventClient::waitForEvents(int cmd, size_t count, int timeoutSeconds) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, std::chrono::seconds(timeoutSeconds), [&] {
        size_t seen = 0;
        for (const Event &event : mEvents) {
            seen += event.cmd == cmd ? 1 : 0;
        }
        return seen >= count;
    });
}

std::vector<std::string> EventClient::namesGiven() {
    std::lock_guard<std::mutex> lock(mLock);
    return mNames;
}

dvrspace::Recorder::CommandRunner countTuningCommands() {
    clearTuningCommands();
    return dvrspace::Recorder::setCommandRunner(&countCommand);
}

void useSmallFastCameras() {
    dvrspace::DVRSimConfig sim = dvrspace::DVRSimulatorControl::config();
    sim.pacing = dvrspace::DVRSimPacing::Fast;
    for (auto &camera : sim.cameras) {
        camera.width = 320;
        camera.height = 240;
        camera.stride = 320;
    }
    dvrspace::DVRSimulatorControl::setConfig(sim);
}

void RecordingFixture::SetUp() {
    // Recorders run threads of their own; a forked child would lack them.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    useSmallFastCameras();
    mPreviousRunner = countTuningCommands();
}

void RecordingFixture::TearDown() {
    if (mRecorder != nullptr) {
        if (mRecorder->getCurrentState() == dvrspace::DVR_STM_RECORDING) {
            mRecorder->stopAndWait();
        }
        if (mRealEncoder != nullptr) {
            peer().setEncoder(mRealEncoder);
        }
        if (mRecorder->getAttachedAudio() != nullptr) {
            mRecorder->detachAudio();
        }
    }
    RecorderFixture::TearDown();
    dvrspace::Recorder::setCommandRunner(mPreviousRunner);
}

void RecordingFixture::buildWithDevices(bool withAudio, size_t cameras) {
    build(cameras);
    attachCamera();
    // Both stamps on, inside the small frame. The factory defaults switch them
    // on without a font size, which the renderer refuses.
    const dvrspace::QVStampSettings_t time{true, 8, 8, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL,
                                           1,    0};
    const dvrspace::QVStampSettings_t user{true, 8,   48, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL,
                                           1,    1000};
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mRecorder->setTimestamp(time));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mRecorder->setSelfDefinedStamp(&user));
    if (withAudio) {
        attachAudio();
    }
}

void RecordingFixture::attachAudio() {
    mAudio = dvrspace::DVRPeer::audio(*mService, 0);
    ASSERT_NE(nullptr, mAudio);
    mRecorder->attachAudio(mAudio);
}

FakeEncoder &RecordingFixture::useFakeEncoder() {
    mRealEncoder = peer().encoder();
    mFake = std::make_unique<FakeEncoder>(mRealEncoder->mId);
    peer().setEncoder(mFake.get());
    return *mFake;
}

void RecordingFixture::subscribeClient() {
    dvrspace::CallbackManager &manager = dvrspace::DVRPeer::callbackManager(*mService);
    ASSERT_EQ(0, manager.addClient(4321, mClient));
    for (auto type :
         {dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_OBJ_ABNORMAL,
          dvrspace::DVR_CBK_OBJ_STAMP, dvrspace::DVR_CBK_OBJ_FILENAME}) {
        ASSERT_EQ(0, manager.addCallbackObject(4321, 7, type));
    }
}

}  // namespace dvrtest
