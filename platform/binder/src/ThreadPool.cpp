#define LOG_TAG "DVRBinder"

#include "ThreadPool.h"

#include <log/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace android {
namespace binder_internal {

namespace {

// Source id of the work queue's eventfd; sockets count from 1.
constexpr uint64_t kWorkQueueId = 0;

int createEpoll() {
    int fd = epoll_create1(EPOLL_CLOEXEC);
    LOG_ALWAYS_FATAL_IF(fd < 0, "epoll_create1: %s", strerror(errno));
    return fd;
}

int createEventFd() {
    int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    LOG_ALWAYS_FATAL_IF(fd < 0, "eventfd: %s", strerror(errno));
    return fd;
}

}  // namespace

ThreadPool::ThreadPool() : mEpollFd(createEpoll()), mWorkEventFd(createEventFd()) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWorkQueueId;
    LOG_ALWAYS_FATAL_IF(epoll_ctl(mEpollFd, EPOLL_CTL_ADD, mWorkEventFd, &event) != 0,
                        "epoll_ctl: %s", strerror(errno));
}

ThreadPool::~ThreadPool() {
    close(mWorkEventFd);
    close(mEpollFd);
}

void ThreadPool::start() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mRunning) {
            return;
        }
        mRunning = true;
    }
    spawn();
}

void ThreadPool::setMaxThreads(size_t maxThreads) {
    std::lock_guard<std::mutex> lock(mLock);
    mMaxThreads = maxThreads;
}

size_t ThreadPool::maxThreads() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mMaxThreads;
}

bool ThreadPool::running() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mRunning;
}

void ThreadPool::spawn() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mRunning = true;
        ++mSpawned;
    }
    std::thread([this] { serve(); }).detach();
}

void ThreadPool::join() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mRunning = true;
    }
    serve();
}

void ThreadPool::serve() {
    for (;;) {
        runOneEvent();
    }
}

void ThreadPool::runOneEvent() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        ++mIdle;
    }
    epoll_event event{};
    int ready;
    do {
        ready = epoll_wait(mEpollFd, &event, 1, -1);
    } while (ready < 0 && errno == EINTR);
    LOG_ALWAYS_FATAL_IF(ready < 0, "epoll_wait: %s", strerror(errno));

    std::function<void()> work;
    std::shared_ptr<PollSource> source;
    bool spawnOne = false;
    {
        std::unique_lock<std::mutex> lock(mLock);
        --mIdle;
        if (mStopping) {
            // The process is exiting: stay out of its way until it is gone.
            mBusyChanged.wait(lock, [] { return false; });
        }
        ++mBusy;
        // Keep one thread waiting whenever allowed, so a call that calls
        // back into this process always finds a thread to run on.
        if (mIdle == 0 && mSpawned < mMaxThreads) {
            ++mSpawned;
            spawnOne = true;
        }
        if (event.data.u64 == kWorkQueueId) {
            uint64_t one;
            if (read(mWorkEventFd, &one, sizeof(one)) == sizeof(one) && !mWork.empty()) {
                work = std::move(mWork.front());
                mWork.pop_front();
            }
        } else {
            auto it = mSources.find(event.data.u64);
            if (it != mSources.end()) {
                source = it->second;
            }
        }
    }
    if (spawnOne) {
        std::thread([this] { serve(); }).detach();
    }
    if (work) {
        work();
    } else if (source) {
        source->onReadable();
    }
    // Released before the count drops, so exit never races their destructors.
    work = nullptr;
    source.reset();
    std::lock_guard<std::mutex> lock(mLock);
    --mBusy;
    mBusyChanged.notify_all();
}

void ThreadPool::stopForExit() {
    std::unique_lock<std::mutex> lock(mLock);
    mStopping = true;
    mBusyChanged.wait_for(lock, std::chrono::milliseconds(kExitWaitMs),
                          [this] { return mBusy == 0; });
}

uint64_t ThreadPool::add(const std::shared_ptr<PollSource> &source) {
    std::lock_guard<std::mutex> lock(mLock);
    const uint64_t id = mNextSourceId++;
    mSources.emplace(id, source);
    return id;
}

void ThreadPool::watch(uint64_t id, int fd) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = id;
    LOG_ALWAYS_FATAL_IF(epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &event) != 0, "epoll_ctl: %s",
                        strerror(errno));
}

void ThreadPool::rearm(uint64_t id, int fd) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = id;
    // Fails only after remove(), which is harmless.
    epoll_ctl(mEpollFd, EPOLL_CTL_MOD, fd, &event);
}

void ThreadPool::disarm(uint64_t id, int fd) {
    epoll_event event{};
    event.events = EPOLLONESHOT;
    event.data.u64 = id;
    epoll_ctl(mEpollFd, EPOLL_CTL_MOD, fd, &event);
}

bool ThreadPool::hasIdleThread() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mIdle > 0;
}

void ThreadPool::remove(uint64_t id, int fd) {
    std::shared_ptr<PollSource> source;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mSources.find(id);
        if (it == mSources.end()) {
            return;
        }
        epoll_ctl(mEpollFd, EPOLL_CTL_DEL, fd, nullptr);
        source = std::move(it->second);
        mSources.erase(it);
    }
    // `source` may be the last reference: let it go outside the lock.
}

void ThreadPool::post(std::function<void()> work) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mWork.push_back(std::move(work));
    }
    const uint64_t one = 1;
    LOG_ALWAYS_FATAL_IF(write(mWorkEventFd, &one, sizeof(one)) != sizeof(one), "eventfd write: %s",
                        strerror(errno));
}

}  // namespace binder_internal
}  // namespace android
