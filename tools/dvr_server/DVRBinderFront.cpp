#include "DVRBinderFront.h"

#include <utils/Errors.h>

namespace dvrspace {

DVRBinderFront::DVRBinderFront(const android::sp<android::IBinder> &service)
    : mService(service), mDescriptor(service->getInterfaceDescriptor()) {}

const android::String16 &DVRBinderFront::getInterfaceDescriptor() const {
    return mDescriptor;
}

void DVRBinderFront::withdraw() {
    std::unique_lock<std::mutex> lock(mLock);
    mService.clear();
    mIdle.wait(lock, [this] { return mCallsInProgress == 0; });
}

android::status_t DVRBinderFront::onTransact(uint32_t code, const android::Parcel &data,
                                             android::Parcel *reply, uint32_t flags) {
    android::sp<android::IBinder> service;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mService == nullptr) {
            return android::DEAD_OBJECT;
        }
        service = mService;
        ++mCallsInProgress;
    }
    const android::status_t status = service->transact(code, data, reply, flags);
    // The call's reference goes before the count does, so withdraw() never
    // returns while this thread still holds the service.
    service.clear();
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (--mCallsInProgress == 0) {
            mIdle.notify_all();
        }
    }
    return status;
}

}  // namespace dvrspace
