// The binder object dvr_server publishes in place of the service itself. It
// passes every call on to the service until withdraw(), and answers
// DEAD_OBJECT afterwards. The binder library keeps a published object for the
// life of the process, so publishing the service directly would keep its
// destructor from ever running; behind this front the server's own reference
// can be the last one.
#ifndef DVR_BINDER_FRONT_H
#define DVR_BINDER_FRONT_H

#include <binder/Binder.h>

#include <condition_variable>
#include <mutex>

namespace dvrspace {

class DVRBinderFront : public android::BBinder {
public:
    explicit DVRBinderFront(const android::sp<android::IBinder> &service);

    // The service's descriptor, so that a client can ask what it talks to.
    const android::String16 &getInterfaceDescriptor() const override;
    // Stops passing calls on and waits for the calls in progress to return,
    // so that the caller's reference to the service is the last one this
    // front held. Any thread but a binder thread serving this front.
    void withdraw();

protected:
    // Binder pool threads, concurrently.
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags) override;

private:
    std::mutex mLock;
    std::condition_variable mIdle;
    android::sp<android::IBinder> mService;
    const android::String16 mDescriptor;
    int mCallsInProgress = 0;
};

}  // namespace dvrspace

#endif  // DVR_BINDER_FRONT_H
