// The pool of threads that serve incoming calls: they wait on every socket of
// the process with one epoll set and on a queue of posted work. A thread
// starts whenever the last idle one becomes busy, up to the maximum.
#ifndef DVR_BINDER_THREAD_POOL_H
#define DVR_BINDER_THREAD_POOL_H

#include "PollSource.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace android {
namespace binder_internal {

class ThreadPool {
public:
    static constexpr size_t kDefaultMaxThreads = 15;

    ThreadPool();
    ~ThreadPool();

    // Starts the first thread; later calls do nothing.
    void start();
    void setMaxThreads(size_t maxThreads);
    size_t maxThreads() const;
    // Starts one thread now, regardless of the maximum.
    void spawn();
    // Serves on the calling thread; never returns.
    void join();
    // True once start() or join() ran, i.e. posted work will run.
    bool running() const;

    // Keeps `source` alive until remove(); returns its id. The source learns
    // its id before watch() lets events reach it.
    uint64_t add(const std::shared_ptr<PollSource> &source);
    // Starts waiting on `fd` for source `id`.
    void watch(uint64_t id, int fd);
    // Waits on the source again after onReadable.
    void rearm(uint64_t id, int fd);
    // Stops waiting on the source until rearm().
    void disarm(uint64_t id, int fd);
    void remove(uint64_t id, int fd);
    // True while some pool thread waits for work.
    bool hasIdleThread() const;
    // At process exit, before static objects go: lets the running calls
    // finish (waiting at most kExitWaitMs) and starts no new ones, so no
    // pool thread touches objects that exit() destroys.
    void stopForExit();
    static constexpr int kExitWaitMs = 1000;

    // Runs `work` on a pool thread, in posting order when a single thread
    // is free. Any thread may call.
    void post(std::function<void()> work);

private:
    ThreadPool(const ThreadPool &) = delete;
    ThreadPool &operator=(const ThreadPool &) = delete;

    void serve();
    void runOneEvent();

    const int mEpollFd;
    const int mWorkEventFd;
    mutable std::mutex mLock;
    std::condition_variable mBusyChanged;
    std::map<uint64_t, std::shared_ptr<PollSource>> mSources;
    std::deque<std::function<void()>> mWork;
    uint64_t mNextSourceId = 1;
    size_t mMaxThreads = kDefaultMaxThreads;
    size_t mSpawned = 0;
    size_t mIdle = 0;
    size_t mBusy = 0;
    bool mRunning = false;
    bool mStopping = false;
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_THREAD_POOL_H
