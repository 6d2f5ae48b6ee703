#define LOG_TAG "DVRService"

#include "DVRDeathRecipient.h"

#include "DVR.h"
#include "DVRLog.h"

namespace dvrspace {

DVRDeathRecipient::DVRDeathRecipient(const android::sp<DVR> &dvr,
                                     const android::sp<IDVRCallback> &callback, int pid)
    : mDvr(dvr), mCallback(callback), mPid(pid) {
    DVR_LOGI("CONSTRUCTOR\n");
}

DVRDeathRecipient::~DVRDeathRecipient() {
    DVR_LOGI("DESTRUCTOR\n");
    mDvr.clear();
    mCallback.clear();
    mPid = -1;
}

void DVRDeathRecipient::binderDied(const android::wp<android::IBinder> & /*who*/) {
    DVR_LOGW("DVR client(PID=%d) died\n", mPid);
    android::IInterface::asBinder(mCallback)->unlinkToDeath(this, nullptr, 0);
    mDvr->clientDied(mPid);
}

}  // namespace dvrspace
