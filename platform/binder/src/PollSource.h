// Something the thread pool waits on: a connection or a service's listening
// socket.
#ifndef DVR_BINDER_POLL_SOURCE_H
#define DVR_BINDER_POLL_SOURCE_H

#include <cstdint>

namespace android {
namespace binder_internal {

class PollSource {
public:
    virtual ~PollSource() = default;

    // Called on a pool thread once the socket is readable. The source is not
    // waited on again until it calls ThreadPool::rearm.
    virtual void onReadable() = 0;
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_POLL_SOURCE_H
