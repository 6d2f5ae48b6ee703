// The service manager: publishes local objects under a name and finds the
// objects other processes published. A published service listens on the
// socket "<directory>/<name>", where the directory is $DVR_BINDER_DIR, or by
// default /run/dvr-binder for root, $XDG_RUNTIME_DIR/dvr-binder or
// /tmp/dvr-binder-<uid> for other users.
#ifndef DVR_BINDER_ISERVICEMANAGER_H
#define DVR_BINDER_ISERVICEMANAGER_H

#include <binder/IInterface.h>

#include <cstdint>

namespace android {

class IServiceManager : public virtual RefBase {
public:
    // Waits for the service up to five seconds (as libbinder does); null when
    // it did not appear.
    virtual sp<IBinder> getService(const String16 &name) const = 0;
    // Does not wait; null when the service is not running.
    virtual sp<IBinder> checkService(const String16 &name) const = 0;
    // Waits up to `timeoutMs` milliseconds (negative: without limit).
    virtual sp<IBinder> waitForService(const String16 &name, int64_t timeoutMs) const = 0;
    // Publishes `service`; its calls run on the pool. BAD_VALUE for a name
    // that is empty, holds '/' or is too long for a socket path;
    // ALREADY_EXISTS when a live process serves the name; the errno-based
    // status when the socket cannot be created. `allowIsolated` and
    // `dumpsysFlags` are accepted for source compatibility and ignored.
    virtual status_t addService(const String16 &name, const sp<IBinder> &service,
                                bool allowIsolated = false, int dumpsysFlags = 0) = 0;

protected:
    ~IServiceManager() override = default;
};

sp<IServiceManager> defaultServiceManager();

// libbinder's typed lookup: NAME_NOT_FOUND when the service did not appear.
template <typename INTERFACE>
status_t getService(const String16 &name, sp<INTERFACE> *outService) {
    const sp<IServiceManager> sm = defaultServiceManager();
    if (sm != nullptr) {
        *outService = interface_cast<INTERFACE>(sm->getService(name));
        if ((*outService) != nullptr) {
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

}  // namespace android

#endif  // DVR_BINDER_ISERVICEMANAGER_H
