#include <binder/BpBinder.h>
#include <binder/Parcel.h>

#include "Connection.h"

namespace android {

BpBinder::BpBinder(const std::shared_ptr<binder_internal::Connection> &connection, uint64_t handle)
    : mConnection(connection), mHandle(handle) {}

BpBinder::~BpBinder() {
    mConnection->proxyDestroyed(this, mHandle);
}

const String16 &BpBinder::getInterfaceDescriptor() const {
    AutoMutex lock(mLock);
    if (!mDescriptorCached) {
        Parcel data;
        Parcel reply;
        // A dead or broken peer leaves the descriptor empty, to be asked again.
        if (mConnection->transact(mHandle, INTERFACE_TRANSACTION, data, &reply, 0) == OK &&
            reply.readString16(&mDescriptorCache) == OK) {
            mDescriptorCached = true;
        }
    }
    return mDescriptorCache;
}

bool BpBinder::isBinderAlive() const {
    return !mConnection->isDead();
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::transact(uint32_t code, const Parcel &data, Parcel *reply, uint32_t flags) {
    return mConnection->transact(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient> &recipient, void *cookie, uint32_t flags) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    AutoMutex lock(mLock);
    if (mObituariesSent || mConnection->isDead()) {
        return DEAD_OBJECT;
    }
    mObituaries.push_back(Obituary{recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient> &recipient, void *cookie, uint32_t flags,
                                 wp<DeathRecipient> *outRecipient) {
    AutoMutex lock(mLock);
    if (mObituariesSent) {
        return DEAD_OBJECT;
    }
    for (auto it = mObituaries.begin(); it != mObituaries.end(); ++it) {
        // Matched as libbinder does: by recipient, or by cookie when no
        // recipient is given.
        if ((it->recipient == recipient || (recipient == nullptr && it->cookie == cookie)) &&
            it->flags == flags) {
            if (outRecipient != nullptr) {
                *outRecipient = it->recipient;
            }
            mObituaries.erase(it);
            return OK;
        }
    }
    return NAME_NOT_FOUND;
}

BpBinder *BpBinder::remoteBinder() {
    return this;
}

void BpBinder::sendObituary() {
    std::vector<Obituary> obituaries;
    {
        AutoMutex lock(mLock);
        if (mObituariesSent) {
            return;
        }
        mObituariesSent = true;
        obituaries.swap(mObituaries);
    }
    const wp<IBinder> who(this);
    for (const Obituary &obituary : obituaries) {
        sp<DeathRecipient> recipient = obituary.recipient.promote();
        if (recipient != nullptr) {
            recipient->binderDied(who);
        }
    }
}

}  // namespace android
