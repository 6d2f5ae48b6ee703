#include <binder/Binder.h>
#include <binder/Parcel.h>

namespace android {

BBinder::BBinder() = default;
BBinder::~BBinder() = default;

const String16 &BBinder::getInterfaceDescriptor() const {
    // Never destroyed: pool threads may ask while the process exits.
    static const String16 *const kNoDescriptor = new String16();
    return *kNoDescriptor;
}

bool BBinder::isBinderAlive() const {
    return true;
}

status_t BBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BBinder::transact(uint32_t code, const Parcel &data, Parcel *reply, uint32_t flags) {
    data.setDataPosition(0);
    const status_t status = code == PING_TRANSACTION ? OK : onTransact(code, data, reply, flags);
    if (reply != nullptr) {
        reply->setDataPosition(0);
    }
    return status;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient> &, void *, uint32_t) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient> &, void *, uint32_t,
                                wp<DeathRecipient> *) {
    return INVALID_OPERATION;
}

BBinder *BBinder::localBinder() {
    return this;
}

status_t BBinder::onTransact(uint32_t code, const Parcel &, Parcel *reply, uint32_t) {
    if (code == INTERFACE_TRANSACTION && reply != nullptr) {
        return reply->writeString16(getInterfaceDescriptor());
    }
    return UNKNOWN_TRANSACTION;
}

}  // namespace android
