#define LOG_TAG "DVRBinder"

#include "Connection.h"

#include "ThreadPool.h"

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>

namespace android {
namespace binder_internal {

namespace {

// Handle under which the published object is reached.
constexpr uint64_t kRootHandle = 0;
// receive() result for a message longer than the limit.
constexpr ssize_t kOversized = -EMSGSIZE;

struct WireObject {
    uint32_t type;
    uint32_t reserved;
    uint64_t handle;
};
static_assert(sizeof(WireObject) == Parcel::kObjectSize, "object record layout");

ThreadPool &pool() {
    return ProcessState::self()->threadPool();
}

}  // namespace

std::shared_ptr<Connection> Connection::create(int fd, const sp<IBinder> &root) {
    std::shared_ptr<Connection> connection(new Connection(fd, root));
    connection->mPoolId = pool().add(connection);
    pool().watch(connection->mPoolId, fd);
    return connection;
}

Connection::Connection(int fd, const sp<IBinder> &root) : mFd(fd) {
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0) {
        mPeerPid = credentials.pid;
        mPeerUid = credentials.uid;
    }
    // Room for two messages at the limit, whatever the system default is.
    const int sendBuffer = 2 * WireHeader::kMaxMessageSize;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof(sendBuffer));
    if (root != nullptr) {
        mNodes.emplace(kRootHandle, Node{root, 1});
        mHandles.emplace(root.get(), kRootHandle);
    }
}

Connection::~Connection() {
    close(mFd);
}

bool Connection::isDead() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mDead;
}

sp<BpBinder> Connection::proxyFor(uint64_t handle) {
    std::lock_guard<std::mutex> lock(mLock);
    return proxyLocked(handle);
}

sp<BpBinder> Connection::proxyLocked(uint64_t handle) {
    ProxyEntry &entry = mProxies[handle];
    ++entry.received;
    sp<BpBinder> proxy = entry.proxy.promote();
    if (proxy == nullptr) {
        // The old proxy, if any, is being destroyed; its references carry
        // over to the new one, which releases them all later.
        proxy = new BpBinder(shared_from_this(), handle);
        entry.proxy = proxy;
        entry.address = proxy.get();
    }
    return proxy;
}

void Connection::proxyDestroyed(const BpBinder *proxy, uint64_t handle) {
    WireHeader header{};
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mProxies.find(handle);
        if (it == mProxies.end() || it->second.address != proxy) {
            return;
        }
        header.id = it->second.received;
        mProxies.erase(it);
        if (mDead) {
            return;
        }
    }
    header.magic = WireHeader::kMagic;
    header.kind = WireHeader::kRelease;
    header.target = handle;
    std::vector<uint8_t> message(sizeof(header));
    std::memcpy(message.data(), &header, sizeof(header));
    send(message);
}

status_t Connection::transact(uint64_t handle, uint32_t code, const Parcel &data, Parcel *reply,
                              uint32_t flags) {
    const bool oneWay = (flags & IBinder::FLAG_ONEWAY) != 0;
    WireHeader header{};
    header.magic = WireHeader::kMagic;
    header.kind = WireHeader::kTransaction;
    header.target = handle;
    header.code = code;
    header.flags = flags & IBinder::FLAG_ONEWAY;
    if (!oneWay) {
        header.nestedIn = IPCThreadState::self()->incomingCallFrom(this);
    }
    PendingCall call;
    std::vector<uint8_t> message;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mDead) {
            return DEAD_OBJECT;
        }
        if (!oneWay) {
            header.id = mNextCallId++;
        }
        status_t status = encodeLocked(header, data, &message);
        if (status != OK) {
            return status;
        }
        if (!oneWay) {
            mPending.emplace(header.id, &call);
        }
    }
    status_t status = send(message);
    if (oneWay || status != OK) {
        if (!oneWay) {
            std::lock_guard<std::mutex> lock(mLock);
            mPending.erase(header.id);
        }
        return status;
    }
    status = waitForReply(&call);
    {
        std::lock_guard<std::mutex> lock(mLock);
        mPending.erase(header.id);
    }
    if (status == OK && reply != nullptr) {
        reply->adopt(std::move(call.data), std::move(call.objects));
    }
    return status;
}

status_t Connection::waitForReply(PendingCall *call) {
    std::unique_lock<std::mutex> lock(mLock);
    ++mWaiters;
    for (;;) {
        if (!call->nested.empty()) {
            std::shared_ptr<Incoming> nested = std::move(call->nested.front());
            call->nested.pop_front();
            lock.unlock();
            execute(std::move(nested), false);
            lock.lock();
        } else if (call->done) {
            break;
        } else if (mDead) {
            call->status = DEAD_OBJECT;
            break;
        } else if (!mReading) {
            mReading = true;
            lock.unlock();
            const uint8_t *message = nullptr;
            const ssize_t received = receive(true, &message);
            std::shared_ptr<Incoming> work = finishRead(received, message);
            if (work != nullptr && work->refusal != OK) {
                execute(work, false);
            } else if (work != nullptr) {
                // Not ours to run: this thread is busy waiting.
                std::shared_ptr<Connection> self = shared_from_this();
                pool().post([self, work] { self->execute(work, false); });
            }
            work.reset();
            lock.lock();
        } else {
            mCondition.wait(lock);
        }
    }
    --mWaiters;
    handOffReadingLocked();
    return call->status;
}

void Connection::onReadable() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mArmed = false;
        // A waiting caller reads instead and arms the socket again when done.
        if (mDead || mReading) {
            return;
        }
        mReading = true;
    }
    bool holding = true;
    while (holding) {
        const uint8_t *message = nullptr;
        const ssize_t received = receive(false, &message);
        std::shared_ptr<Incoming> work = finishRead(received, message);
        holding = work != nullptr && execute(std::move(work), true) && waitForNextMessage();
    }
}

// A pool thread that served the peer keeps its socket for a moment: the
// peer's next message then wakes this thread directly, warm and on the
// peer's CPU, instead of the pool thread that waited longest in epoll. That
// keeps a call's round trip close to a plain socket's. Only while another
// pool thread is idle, so other connections never wait for this one. Taken
// before the reply goes out, so the next call cannot slip past to the pool.
bool Connection::takeSocketToLinger() {
    if (!pool().hasIdleThread()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mDead || mReading || mWaiters > 0) {
        return false;
    }
    mReading = true;
    if (mArmed) {
        mArmed = false;
        pool().disarm(mPoolId, mFd);
    }
    return true;
}

// With the socket taken: true once a message is there to read; otherwise
// gives the socket back to the pool.
bool Connection::waitForNextMessage() {
    pollfd readable{mFd, POLLIN, 0};
    int ready;
    do {
        ready = poll(&readable, 1, kLingerMs);
    } while (ready < 0 && errno == EINTR);
    if (ready > 0) {
        return true;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mReading = false;
    handOffReadingLocked();
    return false;
}

ssize_t Connection::receive(bool block, const uint8_t **message) {
    thread_local std::vector<uint8_t> buffer(WireHeader::kMaxMessageSize);
    iovec io{buffer.data(), buffer.size()};
    msghdr header{};
    header.msg_iov = &io;
    header.msg_iovlen = 1;
    ssize_t received;
    do {
        received = recvmsg(mFd, &header, block ? 0 : MSG_DONTWAIT);
    } while (received < 0 && errno == EINTR);
    if (received < 0) {
        return -errno;
    }
    if ((header.msg_flags & MSG_TRUNC) != 0) {
        return kOversized;
    }
    *message = buffer.data();
    return received;
}

// Handles what one read returned and passes the socket on to the next
// reader. Returns a call for the reading thread to run (or refuse).
std::shared_ptr<Connection::Incoming> Connection::finishRead(ssize_t received,
                                                             const uint8_t *message) {
    Garbage garbage;
    std::shared_ptr<Incoming> work;
    std::lock_guard<std::mutex> lock(mLock);
    mReading = false;
    if (received == -EAGAIN) {
        // Another reader took the message first.
    } else if (received == kOversized) {
        ALOGE("Closing connection to pid %d: message larger than %zu bytes", mPeerPid,
              WireHeader::kMaxMessageSize);
        markDeadLocked(&garbage);
    } else if (received <= 0) {
        if (received < 0 && received != -ECONNRESET) {
            ALOGE("Closing connection to pid %d: %s", mPeerPid,
                  strerror(static_cast<int>(-received)));
        }
        markDeadLocked(&garbage);
    } else {
        work = dispatchLocked(message, static_cast<size_t>(received), &garbage);
    }
    handOffReadingLocked();
    return work;
}

void Connection::handOffReadingLocked() {
    if (mDead || mReading) {
        return;
    }
    if (mWaiters > 0) {
        mCondition.notify_all();
    } else if (!mArmed && mStalledSenders == 0) {
        mArmed = true;
        pool().rearm(mPoolId, mFd);
    }
}

const char *Connection::validate(const uint8_t *message, size_t size, WireHeader *header) const {
    if (size < sizeof(WireHeader)) {
        return "truncated header";
    }
    std::memcpy(header, message, sizeof(WireHeader));
    if (header->magic != WireHeader::kMagic) {
        return "bad magic";
    }
    if (header->kind != WireHeader::kTransaction && header->kind != WireHeader::kReply &&
        header->kind != WireHeader::kRelease) {
        return "unknown message kind";
    }
    if (header->dataSize % 4 != 0) {
        return "misaligned data size";
    }
    const uint64_t expected = sizeof(WireHeader) + uint64_t(header->dataSize) +
                              uint64_t(header->objectCount) * sizeof(uint32_t);
    if (expected != size) {
        return "size does not match header";
    }
    if (header->kind == WireHeader::kRelease && size != sizeof(WireHeader)) {
        return "release with payload";
    }
    const uint8_t *data = message + sizeof(WireHeader);
    const uint8_t *offsets = data + header->dataSize;
    uint64_t freeFrom = 0;
    for (uint32_t i = 0; i < header->objectCount; ++i) {
        uint32_t offset;
        std::memcpy(&offset, offsets + i * sizeof(uint32_t), sizeof(offset));
        if (offset % 4 != 0 || offset < freeFrom ||
            uint64_t(offset) + Parcel::kObjectSize > header->dataSize) {
            return "bad object offset";
        }
        WireObject object;
        std::memcpy(&object, data + offset, sizeof(object));
        if (object.type != WireHeader::kSenderObject &&
            object.type != WireHeader::kReceiverObject) {
            return "bad object type";
        }
        freeFrom = uint64_t(offset) + Parcel::kObjectSize;
    }
    return nullptr;
}

std::shared_ptr<Connection::Incoming> Connection::dispatchLocked(const uint8_t *message,
                                                                 size_t size, Garbage *garbage) {
    WireHeader header;
    if (const char *problem = validate(message, size, &header)) {
        ALOGE("Closing connection to pid %d: %s", mPeerPid, problem);
        markDeadLocked(garbage);
        return nullptr;
    }
    if (header.kind == WireHeader::kRelease) {
        releaseLocked(header.target, header.id, garbage);
        return nullptr;
    }
    const uint8_t *payload = message + sizeof(WireHeader);
    std::vector<uint8_t> data(payload, payload + header.dataSize);
    std::vector<uint32_t> offsets(header.objectCount);
    if (!offsets.empty()) {
        std::memcpy(offsets.data(), payload + header.dataSize, offsets.size() * sizeof(uint32_t));
    }
    std::vector<Parcel::Object> objects;

    if (header.kind == WireHeader::kReply) {
        auto pending = mPending.find(header.id);
        if (pending == mPending.end() || pending->second->done) {
            ALOGE("Closing connection to pid %d: reply to no pending call", mPeerPid);
            markDeadLocked(garbage);
            return nullptr;
        }
        PendingCall *call = pending->second;
        if (translateLocked(&data, offsets, &objects) != OK) {
            ALOGW("Refused reply from pid %d: unknown object handle", mPeerPid);
            discardLocked(&objects, garbage);
            call->status = BAD_VALUE;
        } else {
            call->status = static_cast<status_t>(header.code);
            call->data = std::move(data);
            call->objects = std::move(objects);
        }
        call->done = true;
        mCondition.notify_all();
        return nullptr;
    }

    auto call = std::make_shared<Incoming>();
    call->id = header.id;
    call->handle = header.target;
    call->code = header.code;
    call->flags = header.flags & IBinder::FLAG_ONEWAY;
    const bool oneWay = call->flags != 0;
    auto node = mNodes.find(header.target);
    if (node == mNodes.end()) {
        ALOGW("Refused call %u from pid %d: unknown object handle %" PRIu64, header.code, mPeerPid,
              header.target);
        call->refusal = BAD_VALUE;
    } else if (translateLocked(&data, offsets, &objects) != OK) {
        ALOGW("Refused call %u from pid %d: unknown object handle in arguments", header.code,
              mPeerPid);
        call->refusal = BAD_VALUE;
    }
    if (call->refusal != OK) {
        discardLocked(&objects, garbage);
        return oneWay ? nullptr : call;
    }
    call->target = node->second.binder;
    call->data.adopt(std::move(data), std::move(objects));

    if (!oneWay && header.nestedIn != 0) {
        auto waiting = mPending.find(header.nestedIn);
        if (waiting != mPending.end() && !waiting->second->done) {
            waiting->second->nested.push_back(std::move(call));
            mCondition.notify_all();
            return nullptr;
        }
    }
    if (oneWay) {
        // One-way calls to one object run one at a time, in order.
        auto running = mOneWayQueues.find(call->handle);
        if (running != mOneWayQueues.end()) {
            if (mQueuedOneWayCalls >= kMaxQueuedOneWayCalls) {
                ALOGE("Closing connection to pid %d: more than %zu queued one-way calls", mPeerPid,
                      kMaxQueuedOneWayCalls);
                garbage->calls.push_back(std::move(call));
                markDeadLocked(garbage);
                return nullptr;
            }
            running->second.push_back(std::move(call));
            ++mQueuedOneWayCalls;
            return nullptr;
        }
        mOneWayQueues[call->handle];
    }
    return call;
}

status_t Connection::translateLocked(std::vector<uint8_t> *data,
                                     const std::vector<uint32_t> &offsets,
                                     std::vector<Parcel::Object> *objects) {
    for (uint32_t offset : offsets) {
        WireObject object;
        std::memcpy(&object, data->data() + offset, sizeof(object));
        sp<IBinder> binder;
        if (object.type == WireHeader::kSenderObject) {
            binder = proxyLocked(object.handle);
        } else {
            auto node = mNodes.find(object.handle);
            if (node == mNodes.end()) {
                return BAD_VALUE;
            }
            binder = node->second.binder;
        }
        object.type = Parcel::kObject;
        object.handle = 0;
        std::memcpy(data->data() + offset, &object, sizeof(object));
        objects->push_back(Parcel::Object{offset, binder});
    }
    return OK;
}

void Connection::discardLocked(std::vector<Parcel::Object> *objects, Garbage *garbage) {
    for (Parcel::Object &object : *objects) {
        garbage->binders.push_back(std::move(object.binder));
    }
    objects->clear();
}

void Connection::releaseLocked(uint64_t handle, uint64_t count, Garbage *garbage) {
    auto node = mNodes.find(handle);
    if (handle == kRootHandle || node == mNodes.end()) {
        return;
    }
    node->second.references -= std::min(count, node->second.references);
    if (node->second.references == 0) {
        garbage->binders.push_back(std::move(node->second.binder));
        mHandles.erase(garbage->binders.back().get());
        mNodes.erase(node);
    }
}

status_t Connection::encodeLocked(WireHeader header, const Parcel &data,
                                  std::vector<uint8_t> *message) {
    const std::vector<Parcel::Object> &objects = data.objects();
    for (const Parcel::Object &object : objects) {
        BpBinder *proxy = object.binder->remoteBinder();
        if (object.binder->localBinder() == nullptr &&
            (proxy == nullptr || proxy->connection().get() != this)) {
            ALOGE("Cannot send the proxy of an object of another process to pid %d", mPeerPid);
            return INVALID_OPERATION;
        }
    }
    const size_t dataSize = (data.dataSize() + 3) & ~size_t(3);
    const size_t size = sizeof(WireHeader) + dataSize + objects.size() * sizeof(uint32_t);
    if (size > WireHeader::kMaxMessageSize) {
        ALOGE("Message of %zu bytes to pid %d exceeds the limit of %zu bytes", size, mPeerPid,
              WireHeader::kMaxMessageSize);
        return FAILED_TRANSACTION;
    }
    header.dataSize = static_cast<uint32_t>(dataSize);
    header.objectCount = static_cast<uint32_t>(objects.size());
    message->assign(size, 0);
    uint8_t *out = message->data();
    std::memcpy(out, &header, sizeof(header));
    if (data.dataSize() != 0) {
        std::memcpy(out + sizeof(header), data.data(), data.dataSize());
    }
    uint8_t *offsets = out + sizeof(header) + dataSize;
    for (const Parcel::Object &object : objects) {
        WireObject wire{};
        if (object.binder->localBinder() != nullptr) {
            auto known = mHandles.find(object.binder.get());
            if (known == mHandles.end()) {
                known = mHandles.emplace(object.binder.get(), mNextHandle++).first;
                mNodes.emplace(known->second, Node{object.binder, 0});
            }
            ++mNodes[known->second].references;
            wire.type = WireHeader::kSenderObject;
            wire.handle = known->second;
        } else {
            wire.type = WireHeader::kReceiverObject;
            wire.handle = object.binder->remoteBinder()->handle();
        }
        std::memcpy(out + sizeof(header) + object.offset, &wire, sizeof(wire));
        const uint32_t offset = static_cast<uint32_t>(object.offset);
        std::memcpy(offsets, &offset, sizeof(offset));
        offsets += sizeof(offset);
    }
    return OK;
}

bool Connection::execute(std::shared_ptr<Incoming> call, bool mayLinger) {
    if (call->refusal != OK) {
        const bool holding = mayLinger && takeSocketToLinger();
        sendReply(call->id, call->refusal, Parcel());
        return holding;
    }
    while (call != nullptr) {
        const bool oneWay = call->flags != 0;
        IPCThreadState *thread = IPCThreadState::self();
        thread->pushIncomingCall({this, call->id, mPeerPid, mPeerUid});
        Parcel reply;
        const status_t status =
            call->target->transact(call->code, call->data, oneWay ? nullptr : &reply, call->flags);
        thread->popIncomingCall();
        if (!oneWay) {
            const bool holding = mayLinger && takeSocketToLinger();
            sendReply(call->id, status, reply);
            return holding;
        }
        const uint64_t handle = call->handle;
        // Dropped outside the lock: the call holds binders and arguments.
        std::shared_ptr<Incoming> next;
        {
            std::lock_guard<std::mutex> lock(mLock);
            auto queue = mOneWayQueues.find(handle);
            if (queue != mOneWayQueues.end() && !queue->second.empty()) {
                next = std::move(queue->second.front());
                queue->second.pop_front();
                --mQueuedOneWayCalls;
            } else if (queue != mOneWayQueues.end()) {
                mOneWayQueues.erase(queue);
            }
        }
        call = std::move(next);
    }
    return mayLinger && takeSocketToLinger();
}

void Connection::sendReply(uint64_t id, status_t status, const Parcel &reply) {
    WireHeader header{};
    header.magic = WireHeader::kMagic;
    header.kind = WireHeader::kReply;
    header.id = id;
    header.code = static_cast<uint32_t>(status);
    std::vector<uint8_t> message;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mDead) {
            return;
        }
        if (status == OK) {
            const status_t encoded = encodeLocked(header, reply, &message);
            if (encoded != OK) {
                header.code = static_cast<uint32_t>(encoded);
                message.clear();
            }
        }
    }
    // A failed call carries its status only, as with libbinder.
    if (message.empty()) {
        message.resize(sizeof(header));
        std::memcpy(message.data(), &header, sizeof(header));
    }
    send(message);
}

status_t Connection::send(const std::vector<uint8_t> &message) {
    for (;;) {
        const ssize_t sent =
            ::send(mFd, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent == static_cast<ssize_t>(message.size())) {
            return OK;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0 && errno == EAGAIN) {
            if (!waitUntilWritable()) {
                closeWithError("peer stopped reading");
                return DEAD_OBJECT;
            }
            continue;
        }
        closeWithError(nullptr);
        return DEAD_OBJECT;
    }
}

// While the peer does not take its messages, the pool takes no new calls
// from it either, so one such peer ties up one thread, not the whole pool.
bool Connection::waitUntilWritable() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        ++mStalledSenders;
    }
    pollfd writable{mFd, POLLOUT, 0};
    int ready;
    do {
        ready = poll(&writable, 1, kSendTimeoutMs);
    } while (ready < 0 && errno == EINTR);
    std::lock_guard<std::mutex> lock(mLock);
    --mStalledSenders;
    handOffReadingLocked();
    return ready > 0;
}

void Connection::closeWithError(const char *problem) {
    Garbage garbage;
    std::lock_guard<std::mutex> lock(mLock);
    if (problem != nullptr && !mDead) {
        ALOGE("Closing connection to pid %d: %s", mPeerPid, problem);
    }
    markDeadLocked(&garbage);
}

// Everything waiting on the peer fails with DEAD_OBJECT and every proxy of
// its objects tells its death recipients, on a pool thread.
void Connection::markDeadLocked(Garbage *garbage) {
    if (mDead) {
        return;
    }
    mDead = true;
    shutdown(mFd, SHUT_RDWR);
    pool().remove(mPoolId, mFd);
    mCondition.notify_all();
    for (auto &node : mNodes) {
        garbage->binders.push_back(std::move(node.second.binder));
    }
    mNodes.clear();
    mHandles.clear();
    for (auto &queue : mOneWayQueues) {
        for (auto &call : queue.second) {
            garbage->calls.push_back(std::move(call));
        }
    }
    mOneWayQueues.clear();
    mQueuedOneWayCalls = 0;
    std::vector<sp<BpBinder>> proxies;
    for (auto &entry : mProxies) {
        sp<BpBinder> proxy = entry.second.proxy.promote();
        if (proxy != nullptr) {
            proxies.push_back(proxy);
        }
    }
    if (!proxies.empty()) {
        pool().post([proxies] {
            for (const sp<BpBinder> &proxy : proxies) {
                proxy->sendObituary();
            }
        });
    }
}

}  // namespace binder_internal
}  // namespace android
