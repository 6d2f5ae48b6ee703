#define LOG_TAG "DVRRecorder"

#include "DVRAudioThread.h"

#include <unistd.h>

#include <cstdlib>

#include "DVRAssert.h"

namespace dvrspace {

namespace {

constexpr useconds_t kCapturePeriodUs = 200000;
// The push arrangement has no handle of its own.
constexpr int kNoAudioHandle = -1;

}  // namespace

DVRAudioThread::DVRAudioThread(DVRAudioDevice *pAudioDevice,
                               android::sp<TriggerEncodeThread> &encodeTh, bool enable)
    : mEncodeTh(encodeTh), mAudioDevice(pAudioDevice), mEnable(enable), mDummyAudioBuffer(nullptr) {
    if (!enable) {
        _allocDummyBuffer();
    }
}

DVRAudioThread::~DVRAudioThread() {
    free(mDummyAudioBuffer);
    mDummyAudioBuffer = nullptr;
    mAudioDevice = nullptr;
    mEncodeTh.clear();
}

void DVRAudioThread::setEnable(bool enable) {
    std::lock_guard<std::mutex> guard(mLock);
    mEnable = enable;
    if (enable) {
        free(mDummyAudioBuffer);
        mDummyAudioBuffer = nullptr;
    } else {
        _allocDummyBuffer();
    }
}

void DVRAudioThread::_allocDummyBuffer() {
    if (mDummyAudioBuffer != nullptr) {
        return;
    }
    mDummyAudioBuffer = static_cast<unsigned char *>(calloc(kDummyAudioBytes, 1));
    DVR_ASSERT(mDummyAudioBuffer != NULL);
}

bool DVRAudioThread::threadLoop() {
    void *data = nullptr;
    int length = 0;
    uint64_t timestamp = 0;
    DVR_ASSERT(mAudioDevice != NULL && mEncodeTh != NULL);
    while (true) {
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (mEnable) {
                (void)mAudioDevice->getAudioData(kNoAudioHandle, &data, &length, &timestamp);
            } else {
                DVR_ASSERT(mDummyAudioBuffer != NULL);
                data = mDummyAudioBuffer;
                length = kDummyAudioBytes;
            }
            mEncodeTh->collectAudioData(data, static_cast<unsigned int>(length));
        }
        if (exitPending()) {
            return false;
        }
        usleep(kCapturePeriodUs);
    }
}

}  // namespace dvrspace
