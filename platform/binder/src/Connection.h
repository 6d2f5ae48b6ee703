// One AF_UNIX SOCK_SEQPACKET connection between two processes and the binder
// objects shared over it: the local objects the peer holds references to
// ("nodes", by handle) and the proxies of the peer's objects. Calls go both
// ways; a calling thread reads the socket itself while it waits, and pool
// threads read it otherwise, so exactly one thread reads at any time.
#ifndef DVR_BINDER_CONNECTION_H
#define DVR_BINDER_CONNECTION_H

#include "PollSource.h"
#include "WireHeader.h"

#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace android {
namespace binder_internal {

class Connection : public PollSource, public std::enable_shared_from_this<Connection> {
public:
    // Takes over the connected socket `fd` and starts serving it on the
    // thread pool. `root` (null on a client's connection) is the object the
    // peer reaches as handle 0.
    static std::shared_ptr<Connection> create(int fd, const sp<IBinder> &root);
    ~Connection() override;

    pid_t peerPid() const { return mPeerPid; }
    uid_t peerUid() const { return mPeerUid; }
    bool isDead() const;

    // The proxy of the peer's object `handle`; one per handle while it lives.
    sp<BpBinder> proxyFor(uint64_t handle);
    // BpBinder::transact for the peer's object `handle`.
    status_t transact(uint64_t handle, uint32_t code, const Parcel &data, Parcel *reply,
                      uint32_t flags);
    // From ~BpBinder: the peer may drop the object once no proxy is left.
    void proxyDestroyed(const BpBinder *proxy, uint64_t handle);

    void onReadable() override;

    // A call that waits longer than this to be sent means the peer stopped
    // reading; the connection is then closed.
    static constexpr int kSendTimeoutMs = 5000;
    // One-way calls waiting for an earlier one to the same object; more means
    // the peer floods, and the connection is closed.
    static constexpr size_t kMaxQueuedOneWayCalls = 1024;
    // How long a pool thread that just served the peer waits for its next
    // message before going back to the pool.
    static constexpr int kLingerMs = 2;

private:
    struct Incoming {
        uint64_t id = 0;
        uint64_t handle = 0;
        uint32_t code = 0;
        uint32_t flags = 0;
        sp<IBinder> target;
        Parcel data;
        // Not OK: the call is refused with this status without running.
        status_t refusal = OK;
    };
    struct PendingCall {
        bool done = false;
        status_t status = OK;
        std::vector<uint8_t> data;
        std::vector<Parcel::Object> objects;
        // Calls the peer makes from inside this call; they run on the
        // waiting thread, as the peer's thread waits for them.
        std::deque<std::shared_ptr<Incoming>> nested;
    };
    struct Node {
        sp<IBinder> binder;
        uint64_t references;
    };
    struct ProxyEntry {
        wp<BpBinder> proxy;
        const BpBinder *address = nullptr;
        uint64_t received = 0;
    };
    // Objects released only after the lock is dropped: their destructors may
    // call back into this connection.
    struct Garbage {
        std::vector<sp<IBinder>> binders;
        std::vector<std::shared_ptr<Incoming>> calls;
    };

    Connection(int fd, const sp<IBinder> &root);

    status_t waitForReply(PendingCall *call);
    ssize_t receive(bool block, const uint8_t **message);
    bool takeSocketToLinger();
    bool waitForNextMessage();
    std::shared_ptr<Incoming> finishRead(ssize_t received, const uint8_t *message);
    std::shared_ptr<Incoming> dispatchLocked(const uint8_t *message, size_t size, Garbage *garbage);
    const char *validate(const uint8_t *message, size_t size, WireHeader *header) const;
    status_t translateLocked(std::vector<uint8_t> *data, const std::vector<uint32_t> &offsets,
                             std::vector<Parcel::Object> *objects);
    sp<BpBinder> proxyLocked(uint64_t handle);
    void discardLocked(std::vector<Parcel::Object> *objects, Garbage *garbage);
    void releaseLocked(uint64_t handle, uint64_t count, Garbage *garbage);
    status_t encodeLocked(WireHeader header, const Parcel &data, std::vector<uint8_t> *message);
    void handOffReadingLocked();
    // Runs an incoming call (and the one-way calls queued behind it) on the
    // calling thread. With `mayLinger`, returns whether the thread took the
    // socket to wait for the peer's next message (see takeSocketToLinger).
    bool execute(std::shared_ptr<Incoming> call, bool mayLinger);
    void sendReply(uint64_t id, status_t status, const Parcel &reply);
    status_t send(const std::vector<uint8_t> &message);
    bool waitUntilWritable();
    void closeWithError(const char *problem);
    void markDeadLocked(Garbage *garbage);

    const int mFd;
    pid_t mPeerPid = -1;
    uid_t mPeerUid = static_cast<uid_t>(-1);
    mutable std::mutex mLock;
    std::condition_variable mCondition;
    uint64_t mPoolId = 0;
    bool mDead = false;
    bool mReading = false;
    bool mArmed = true;
    size_t mWaiters = 0;
    size_t mStalledSenders = 0;
    uint64_t mNextCallId = 1;
    uint64_t mNextHandle = 1;
    std::map<uint64_t, PendingCall *> mPending;
    std::map<uint64_t, Node> mNodes;
    std::map<const IBinder *, uint64_t> mHandles;
    std::map<uint64_t, ProxyEntry> mProxies;
    // Objects with a one-way call running; the queue holds the ones after it.
    std::map<uint64_t, std::deque<std::shared_ptr<Incoming>>> mOneWayQueues;
    size_t mQueuedOneWayCalls = 0;
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_CONNECTION_H
