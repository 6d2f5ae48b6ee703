// The base of every binder object, local (BBinder) or remote (BpBinder).
// Source-compatible with the libbinder subset the dvr service and its clients
// use; the transport underneath is AF_UNIX sockets instead of a kernel driver.
#ifndef DVR_BINDER_IBINDER_H
#define DVR_BINDER_IBINDER_H

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>

#include <cstdint>

// Packs four characters into a transaction code, as libbinder does.
#define B_PACK_CHARS(c1, c2, c3, c4)                                                 \
    ((((uint32_t)(c1)) << 24) | (((uint32_t)(c2)) << 16) | (((uint32_t)(c3)) << 8) | \
     ((uint32_t)(c4)))

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;

class IBinder : public virtual RefBase {
public:
    enum {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = B_PACK_CHARS('_', 'P', 'N', 'G'),
        INTERFACE_TRANSACTION = B_PACK_CHARS('_', 'N', 'T', 'F'),

        // The caller does not wait: no reply, transact() returns once sent.
        FLAG_ONEWAY = 0x00000001,
    };

    // Told once when the process owning a remote object dies or its connection
    // drops. Runs on a thread of the pool (ProcessState::startThreadPool), so
    // it must not be expected while the pool is not running.
    class DeathRecipient : public virtual RefBase {
    public:
        virtual void binderDied(const wp<IBinder> &who) = 0;
    };

    IBinder();

    // This object as `descriptor`'s interface when it lives in this process;
    // null otherwise (the caller then wraps it in a proxy).
    virtual sp<IInterface> queryLocalInterface(const String16 &descriptor);

    virtual const String16 &getInterfaceDescriptor() const = 0;
    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;

    // Runs transaction `code` on the object. Any thread may call. Synchronous
    // unless `flags` holds FLAG_ONEWAY; remote failures return DEAD_OBJECT
    // (peer gone), FAILED_TRANSACTION (too large to send) or the status the
    // object's onTransact returned.
    virtual status_t transact(uint32_t code, const Parcel &data, Parcel *reply,
                              uint32_t flags = 0) = 0;

    // Remote objects only: `recipient` is held weakly, so the caller keeps it
    // alive. DEAD_OBJECT when already dead; INVALID_OPERATION on local objects.
    virtual status_t linkToDeath(const sp<DeathRecipient> &recipient, void *cookie = nullptr,
                                 uint32_t flags = 0) = 0;
    // NAME_NOT_FOUND when no link matches `recipient` and `cookie`.
    virtual status_t unlinkToDeath(const wp<DeathRecipient> &recipient, void *cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient> *outRecipient = nullptr) = 0;

    virtual bool checkSubclass(const void *subclassID) const;

    virtual BBinder *localBinder();
    virtual BpBinder *remoteBinder();

protected:
    virtual ~IBinder();
};

}  // namespace android

#endif  // DVR_BINDER_IBINDER_H
