// Tells the service when a client process dies: linked by
// DVR::establishCallback to the death of the client's callback binder, it runs
// DVR::clientDied for that client's PID on a binder thread.
#ifndef DVR_DEATH_RECIPIENT_H
#define DVR_DEATH_RECIPIENT_H

#include <binder/IBinder.h>

#include "IDVRCallback.h"

namespace dvrspace {

class DVR;

class DVRDeathRecipient : public android::IBinder::DeathRecipient {
public:
    DVRDeathRecipient(const android::sp<DVR> &dvr, const android::sp<IDVRCallback> &callback,
                      int pid);
    // Unlinks itself and hands the client's PID to DVR::clientDied. Binder
    // thread, never with the service lock held.
    void binderDied(const android::wp<android::IBinder> &who) override;

protected:
    ~DVRDeathRecipient() override;

private:
    android::sp<DVR> mDvr;
    android::sp<IDVRCallback> mCallback;
    int mPid;
};

}  // namespace dvrspace

#endif  // DVR_DEATH_RECIPIENT_H
