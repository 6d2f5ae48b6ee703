// The listening socket of one published service: every accepted client gets
// a connection of its own whose handle 0 is the service object.
#ifndef DVR_BINDER_SERVICE_LISTENER_H
#define DVR_BINDER_SERVICE_LISTENER_H

#include "PollSource.h"

#include <binder/IBinder.h>

#include <memory>
#include <string>

namespace android {
namespace binder_internal {

class ServiceListener : public PollSource, public std::enable_shared_from_this<ServiceListener> {
public:
    // Creates the socket at `path` with mode 0660, replacing a stale one left
    // by a process that died, and serves it on the thread pool from then on.
    // ALREADY_EXISTS when a live process listens there.
    static status_t publish(const std::string &path, const sp<IBinder> &service);
    ~ServiceListener() override;

    void onReadable() override;

private:
    ServiceListener(int fd, const sp<IBinder> &service);

    const int mFd;
    const sp<IBinder> mService;
    uint64_t mPoolId = 0;
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_SERVICE_LISTENER_H
