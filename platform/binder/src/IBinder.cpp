#include <binder/IBinder.h>
#include <binder/IInterface.h>

namespace android {

IBinder::IBinder() = default;
IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16 &) {
    return nullptr;
}

bool IBinder::checkSubclass(const void *) const {
    return false;
}

BBinder *IBinder::localBinder() {
    return nullptr;
}

BpBinder *IBinder::remoteBinder() {
    return nullptr;
}

}  // namespace android
