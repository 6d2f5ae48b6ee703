#define LOG_TAG "DVRBinder"

#include "SocketServiceManager.h"

#include "Connection.h"
#include "ServiceDirectory.h"
#include "ServiceListener.h"

#include <log/log.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace android {

namespace binder_internal {

namespace {

// Polling interval while waiting for a service to appear.
constexpr int64_t kWaitStepMs = 20;

}  // namespace

sp<IBinder> SocketServiceManager::getService(const String16 &name) const {
    return waitForService(name, kGetServiceTimeoutMs);
}

sp<IBinder> SocketServiceManager::checkService(const String16 &name) const {
    std::string path;
    if (ServiceDirectory::socketPath(name, &path) != OK) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mLock);
    auto local = mLocalServices.find(path);
    if (local != mLocalServices.end()) {
        return local->second;
    }
    std::shared_ptr<Connection> connection = mConnections[path].lock();
    if (connection != nullptr && !connection->isDead()) {
        return connection->proxyFor(0);
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return nullptr;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return nullptr;
    }
    connection = Connection::create(fd, nullptr);
    mConnections[path] = connection;
    return connection->proxyFor(0);
}

sp<IBinder> SocketServiceManager::waitForService(const String16 &name, int64_t timeoutMs) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        sp<IBinder> service = checkService(name);
        if (service != nullptr) {
            return service;
        }
        const auto now = std::chrono::steady_clock::now();
        if (timeoutMs >= 0 && now >= deadline) {
            ALOGW("Service %s did not appear within %lld ms", String8(name).string(),
                  static_cast<long long>(timeoutMs));
            return nullptr;
        }
        auto step = std::chrono::milliseconds(kWaitStepMs);
        if (timeoutMs >= 0) {
            step = std::min(step, std::chrono::duration_cast<std::chrono::milliseconds>(
                                      deadline - now + std::chrono::milliseconds(1)));
        }
        std::this_thread::sleep_for(step);
    }
}

status_t SocketServiceManager::addService(const String16 &name, const sp<IBinder> &service, bool,
                                          int) {
    std::string path;
    if (service == nullptr || ServiceDirectory::socketPath(name, &path) != OK) {
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mLocalServices.count(path) != 0) {
        return ALREADY_EXISTS;
    }
    status_t status = ServiceDirectory::prepare(ServiceDirectory::path());
    if (status == OK) {
        status = ServiceListener::publish(path, service);
    }
    if (status == OK) {
        mLocalServices.emplace(path, service);
    }
    return status;
}

}  // namespace binder_internal

sp<IServiceManager> defaultServiceManager() {
    // Never released, like the process state it relies on.
    static sp<IServiceManager> *const instance =
        new sp<IServiceManager>(new binder_internal::SocketServiceManager());
    return *instance;
}

}  // namespace android
