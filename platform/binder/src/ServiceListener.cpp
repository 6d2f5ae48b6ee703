#define LOG_TAG "DVRBinder"

#include "ServiceListener.h"

#include "Connection.h"
#include "ThreadPool.h"

#include <binder/ProcessState.h>
#include <log/log.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace android {
namespace binder_internal {

namespace {

constexpr mode_t kSocketMode = 0660;
// Pause after running out of descriptors, so a flood of clients does not
// turn the listener into a busy loop.
constexpr useconds_t kOutOfDescriptorsPauseUs = 10000;

sockaddr_un addressOf(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

bool someoneListens(const sockaddr_un &address) {
    const int probe = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return false;
    }
    const bool live =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(probe);
    return live;
}

}  // namespace

status_t ServiceListener::publish(const std::string &path, const sp<IBinder> &service) {
    const sockaddr_un address = addressOf(path);
    if (someoneListens(address)) {
        return ALREADY_EXISTS;
    }
    unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -errno;
    }
    // Nobody can connect before listen(), so setting the mode after bind()
    // leaves no window with a wider one.
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        chmod(path.c_str(), kSocketMode) != 0 || listen(fd, SOMAXCONN) != 0) {
        const int error = errno;
        ALOGE("Cannot publish %s: %s", path.c_str(), strerror(error));
        close(fd);
        return -error;
    }
    std::shared_ptr<ServiceListener> listener(new ServiceListener(fd, service));
    listener->mPoolId = ProcessState::self()->threadPool().add(listener);
    ProcessState::self()->threadPool().watch(listener->mPoolId, fd);
    return OK;
}

ServiceListener::ServiceListener(int fd, const sp<IBinder> &service) : mFd(fd), mService(service) {}

ServiceListener::~ServiceListener() {
    close(mFd);
}

void ServiceListener::onReadable() {
    const int client = accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0) {
        Connection::create(client, mService);
    } else if (errno == EMFILE || errno == ENFILE) {
        ALOGE("Cannot accept a client: %s", strerror(errno));
        usleep(kOutOfDescriptorsPauseUs);
    }
    ProcessState::self()->threadPool().rearm(mPoolId, mFd);
}

}  // namespace binder_internal
}  // namespace android
