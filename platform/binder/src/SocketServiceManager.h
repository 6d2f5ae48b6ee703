// The service manager behind defaultServiceManager(): no process of its own,
// a service is found by its socket in the service directory. Services of
// this process are handed out directly, as local objects.
#ifndef DVR_BINDER_SOCKET_SERVICE_MANAGER_H
#define DVR_BINDER_SOCKET_SERVICE_MANAGER_H

#include <binder/IServiceManager.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace android {
namespace binder_internal {

class Connection;

class SocketServiceManager : public IServiceManager {
public:
    static constexpr int64_t kGetServiceTimeoutMs = 5000;

    sp<IBinder> getService(const String16 &name) const override;
    sp<IBinder> checkService(const String16 &name) const override;
    sp<IBinder> waitForService(const String16 &name, int64_t timeoutMs) const override;
    status_t addService(const String16 &name, const sp<IBinder> &service, bool allowIsolated,
                        int dumpsysFlags) override;

private:
    mutable std::mutex mLock;
    // By socket path, so changing the service directory starts afresh.
    std::map<std::string, sp<IBinder>> mLocalServices;
    mutable std::map<std::string, std::weak_ptr<Connection>> mConnections;
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_SOCKET_SERVICE_MANAGER_H
