#define LOG_TAG "DVRRecorder"

#include "DVRVideoThread.h"

#include <unistd.h>

#include "DVRAssert.h"

namespace dvrspace {

namespace {

constexpr useconds_t kCapturePeriodUs = 200000;

}  // namespace

DVRVideoThread::DVRVideoThread(DVRCameraDevice *pCameraDevice,
                               android::sp<TriggerEncodeThread> &encodeTh)
    : mEncodeTh(encodeTh), mCameraDevice(pCameraDevice) {}

DVRVideoThread::~DVRVideoThread() {
    mCameraDevice = nullptr;
    mEncodeTh.clear();
}

bool DVRVideoThread::threadLoop() {
    // Kept across passes: a failed fetch posts the previous frame again.
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    uint64_t timestamp = 0;
    DVR_ASSERT(mCameraDevice != NULL && mEncodeTh != NULL);
    while (true) {
        (void)mCameraDevice->getVideoFrame(frameVA, framePA, &timestamp);
        mEncodeTh->collectVideoData(frameVA, framePA);
        if (exitPending()) {
            return false;
        }
        usleep(kCapturePeriodUs);
    }
}

}  // namespace dvrspace
