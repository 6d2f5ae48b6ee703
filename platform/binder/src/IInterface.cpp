#include <binder/IInterface.h>

namespace android {

IInterface::IInterface() = default;
IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface *iface) {
    if (iface == nullptr) {
        return nullptr;
    }
    return const_cast<IInterface *>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface> &iface) {
    return asBinder(iface.get());
}

}  // namespace android
