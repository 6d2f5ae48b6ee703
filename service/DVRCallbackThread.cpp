#define LOG_TAG "DVRCbkThread"

#include "DVRCallbackThread.h"

#include <unistd.h>

#include "DVRAssert.h"
#include "DVRLog.h"

namespace dvrspace {

namespace {

constexpr int32_t kIdleIntervalUs = 300000;

}  // namespace

DVRCallbackThread::DVRCallbackThread()
    : android::Thread(true), mIntervalUs(kIdleIntervalUs), mStopping(false) {
    mMsgQueue.flush();
}

DVRCallbackThread::~DVRCallbackThread() {
    mMsgQueue.flush();
}

void DVRCallbackThread::triggerCallback(CbkInfo_t *info) {
    mMsgQueue.send(info);
}

android::status_t DVRCallbackThread::exitAndWait() {
    // requestExit() is not called first: android::Thread ends its loop right
    // after the record being delivered once exit is pending, and whatever is
    // still queued would be lost. The thread is told to end only through the
    // stopped queue, which it drains before it returns false.
    while (!mMsgQueue.empty()) {
        usleep(kDrainPollUs);
    }
    mStopping = true;
    mMsgQueue.force_stop();
    return requestExitAndWait();
}

bool DVRCallbackThread::threadLoop() {
    CbkInfo_t info;
    while (mMsgQueue.receive_and_wait(&info) != 0) {
        if (mStopping || exitPending() || !isRunning()) {
            return false;
        }
    }
    const android::sp<IDVRCallback> &cbk = info.cbk;
    switch (info.cmd) {
        case DVR_CBK_RECORD_START:
            cbk->onRecordStart(info.cbkId, info.index, info.text.c_str());
            break;
        case DVR_CBK_RECORD_FINISH:
            cbk->onRecordFinish(info.cbkId, info.index, info.text.c_str());
            break;
        case DVR_CBK_ERROR:
            cbk->onRecordError(info.cbkId, info.index, info.value);
            break;
        case DVR_CBK_ERROR_SEVERE:
            cbk->onRecordErrorSevere(info.cbkId, info.index, info.value);
            break;
        case DVR_CBK_ABNORMAL:
            cbk->onRecordAbnormal(info.cbkId, info.index, info.value);
            break;
        default:
            // 5 has no handler on purpose: it is as invalid as any unknown value.
            DVR_LOGE("Invalid callback command type: %d\n", info.cmd);
            DVR_ASSERT(0);
    }
    return true;
}

}  // namespace dvrspace
