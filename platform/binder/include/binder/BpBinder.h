// BpBinder: the proxy of an object that lives in another process, reached
// over the connection it arrived on. Created by the transport only; client
// code gets one from the service manager or from Parcel::readStrongBinder.
#ifndef DVR_BINDER_BPBINDER_H
#define DVR_BINDER_BPBINDER_H

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <memory>
#include <vector>

namespace android {

namespace binder_internal {
class Connection;
}

class BpBinder : public IBinder {
public:
    // `handle` names the object in the peer's table of `connection`.
    BpBinder(const std::shared_ptr<binder_internal::Connection> &connection, uint64_t handle);

    uint64_t handle() const { return mHandle; }

    // Fetched from the peer once and cached.
    const String16 &getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t transact(uint32_t code, const Parcel &data, Parcel *reply,
                      uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient> &recipient, void *cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient> &recipient, void *cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient> *outRecipient = nullptr) override;
    BpBinder *remoteBinder() override;

    // Transport use: the connection this proxy belongs to.
    const std::shared_ptr<binder_internal::Connection> &connection() const { return mConnection; }
    // Transport use, on a pool thread after the peer died: tells every linked
    // recipient once and forgets the links.
    void sendObituary();

protected:
    ~BpBinder() override;

private:
    struct Obituary {
        wp<DeathRecipient> recipient;
        void *cookie;
        uint32_t flags;
    };

    const std::shared_ptr<binder_internal::Connection> mConnection;
    const uint64_t mHandle;
    mutable Mutex mLock;
    mutable String16 mDescriptorCache;
    mutable bool mDescriptorCached = false;
    std::vector<Obituary> mObituaries;
    bool mObituariesSent = false;
};

}  // namespace android

#endif  // DVR_BINDER_BPBINDER_H
