#define LOG_TAG "DVRRecorder"

#include "TriggerEncodeThread.h"

#include <unistd.h>

#include <cstring>

#include "DVRAssert.h"
#include "DVRLog.h"
#include "Recorder.h"
#include "dvr_file_name_generator.h"
#include "dvr_utils.h"

namespace dvrspace {

namespace {

constexpr useconds_t kWaitRunningPollUs = 1000;
constexpr long kDataReadyWaitMs = 1000;

}  // namespace

TriggerEncodeThread::TriggerEncodeThread(Recorder *pRecorder, DVREncoderHAL *pEncoder)
    : android::Thread(true),
      mFrameVA{nullptr, nullptr},
      mFramePA{0, 0},
      mAudioData(nullptr),
      mAudioLength(0),
      mRecorder(pRecorder),
      mEncoder(pEncoder),
      mbWaiting(false),
      mbPreStopped(false) {
    memset(&mCond, 0, sizeof(mCond));
    memset(&mMutex, 0, sizeof(mMutex));
    pthread_cond_init(&mCond, nullptr);
    pthread_mutex_init(&mMutex, nullptr);
}

TriggerEncodeThread::~TriggerEncodeThread() {
    DVR_ASSERT(isRunning() == false);
    pthread_cond_destroy(&mCond);
    pthread_mutex_destroy(&mMutex);
    mFrameVA[0] = mFrameVA[1] = nullptr;
    mFramePA[0] = mFramePA[1] = 0;
    mAudioData = nullptr;
    mAudioLength = 0;
    mRecorder = nullptr;
    mEncoder = nullptr;
}

android::status_t TriggerEncodeThread::readyToRun() {
    DVR_ASSERT(mRecorder != NULL);
    DVR_ASSERT(mEncoder != NULL);
    DVRCameraDevice *pCamera = mRecorder->getCameraDevice();
    DVR_ASSERT(pCamera != NULL);
    const DVRCameraCaps_t cameraCaps = *pCamera->getCaps();

    mSettings.clear();
    mRecorder->getCurrentSettings(&mSettings);

    pthread_mutex_lock(&mRecorder->mFileNameLock);
    if (mRecorder->mFileNameGenerator->isFormatSet()) {
        mRecorder->mFileNameGenerator->genFileName(mRecorder->mNextFileName, mSettings.fileLength,
                                                   Recorder::mgDeviceCaps->file_name_length_limit);
    }
    pthread_mutex_unlock(&mRecorder->mFileNameLock);
    mRecorder->_applyNextFile();

    int ret = mEncoder->configure(&mRecorder->mCurSettings, cameraCaps);
    DVR_ASSERT(ret == 0);
    ret = mEncoder->start();
    DVR_ASSERT(ret == 0);
    return android::OK;
}

bool TriggerEncodeThread::threadLoop() {
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    void *audioData = nullptr;
    uint32_t audioLength = 0;

    pthread_mutex_lock(&mMutex);
    mbWaiting = true;
    // No predicate: a trigger while the loop is elsewhere is lost by design,
    // producers wait in _waitRunning() until the loop is back here.
    pthread_cond_wait(&mCond, &mMutex);
    mbWaiting = false;
    if (!exitPending()) {
        // A frame with either first address zero is not a frame: it stays.
        if (mFrameVA[0] != nullptr && mFramePA[0] != 0) {
            frameVA[0] = mFrameVA[0];
            frameVA[1] = mFrameVA[1];
            framePA[0] = mFramePA[0];
            framePA[1] = mFramePA[1];
            mFrameVA[0] = mFrameVA[1] = nullptr;
            mFramePA[0] = mFramePA[1] = 0;
        }
        if (mAudioData != nullptr) {
            audioData = mAudioData;
            audioLength = mAudioLength;
            mAudioData = nullptr;
            mAudioLength = 0;
        }
    }
    pthread_mutex_unlock(&mMutex);

    if (!exitPending()) {
        DVR_ASSERT(mEncoder != NULL);
        uint64_t timestamp = 0;
        if (frameVA[0] != nullptr) {
            mEncoder->pushVideoFrame(framePA, &timestamp);
        }
        if (audioData != nullptr) {
            mEncoder->pushAudioData(audioData, static_cast<int>(audioLength), &timestamp);
        }
        if (!exitPending()) {
            return true;
        }
    }

    REC_LOGI(getEncoderId(), "Exit\n");
    DVR_ASSERT(mbPreStopped == true);
    mbWaiting = false;
    return false;
}

int TriggerEncodeThread::preStop() {
    DVR_ASSERT(mEncoder != NULL);
    mbPreStopped = true;
    const int ret = mEncoder->stop();
    if (ret != 0) {
        REC_LOGE(getEncoderId(), "Stop encode service failed: %d\n", ret);
    }
    mRecorder->_waitLastCallback();
    return ret;
}

void TriggerEncodeThread::trigger() {
    pthread_mutex_lock(&mMutex);
    pthread_cond_signal(&mCond);
    pthread_mutex_unlock(&mMutex);
}

void TriggerEncodeThread::collectVideoData(void **frameVA, unsigned int *framePA) {
    DVRCameraDevice *pCamDev = mRecorder->getCameraDevice();
    DVR_ASSERT(pCamDev != NULL);
    mRecorder->_renderStamp(frameVA);
    pthread_mutex_lock(&mMutex);
    mFrameVA[0] = frameVA[0];
    mFrameVA[1] = frameVA[1];
    mFramePA[0] = framePA[0];
    mFramePA[1] = framePA[1];
    pthread_mutex_unlock(&mMutex);
    _dataReady();
}

void TriggerEncodeThread::collectAudioData(void *data, unsigned int length) {
    pthread_mutex_lock(&mMutex);
    mAudioData = data;
    mAudioLength = length;
    pthread_mutex_unlock(&mMutex);
    _dataReady();
}

void TriggerEncodeThread::_dataReady() {
    if (mbPreStopped || exitPending()) {
        trigger();
        return;
    }
    if (isRunning()) {
        const int ret = _waitRunning(kDataReadyWaitMs);
        DVR_ASSERT(ret == 0);
    }
    trigger();
}

int TriggerEncodeThread::_waitRunning(long milliseconds) {
    const uint64_t limitUs = 1000 * static_cast<uint64_t>(milliseconds > 0 ? milliseconds : 0);
    const uint64_t startUs = getMonotonicClockUs();
    int result = 0;
    while (!(mbWaiting || mbPreStopped || exitPending() || !isRunning())) {
        if (milliseconds > 0 && getMonotonicClockUs() - startUs > limitUs) {
            REC_LOGE(getEncoderId(), "Wait timeout!\n");
            result = -1;
            break;
        }
        usleep(kWaitRunningPollUs);
    }
    if (mbPreStopped || exitPending() || !isRunning()) {
        return 0;
    }
    return result;
}

int TriggerEncodeThread::getEncoderId() const {
    return mEncoder != nullptr ? mEncoder->mId : -1;
}

}  // namespace dvrspace
