// BBinder: the local side of a binder object (a service or a client
// callback), and BpRefBase: the holder of the remote side inside a proxy.
// Kept together in one header, as libbinder does, so that client code includes
// <binder/Binder.h> unchanged.
#ifndef DVR_BINDER_BINDER_H
#define DVR_BINDER_BINDER_H

#include <binder/IBinder.h>

namespace android {

class BBinder : public IBinder {
public:
    BBinder();

    const String16 &getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;

    // Dispatches to onTransact (PING_TRANSACTION is answered here). Called by
    // the transport on a pool thread, or directly for in-process callers.
    status_t transact(uint32_t code, const Parcel &data, Parcel *reply, uint32_t flags = 0) final;

    status_t linkToDeath(const sp<DeathRecipient> &recipient, void *cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient> &recipient, void *cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient> *outRecipient = nullptr) override;

    BBinder *localBinder() override;

protected:
    ~BBinder() override;

    // Handles one transaction: read arguments from `data`, write results into
    // `reply` (null for one-way calls). Runs on any pool thread, concurrently
    // with other calls. The default answers INTERFACE_TRANSACTION and returns
    // UNKNOWN_TRANSACTION for everything else.
    virtual status_t onTransact(uint32_t code, const Parcel &data, Parcel *reply,
                                uint32_t flags = 0);
};

class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder> &remote);
    ~BpRefBase() override;

    IBinder *remote() const { return mRemote.get(); }

private:
    BpRefBase(const BpRefBase &) = delete;
    BpRefBase &operator=(const BpRefBase &) = delete;

    const sp<IBinder> mRemote;
};

}  // namespace android

#endif  // DVR_BINDER_BINDER_H
