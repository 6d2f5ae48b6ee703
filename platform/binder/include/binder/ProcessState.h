// ProcessState: the process-wide binder state, above all the pool of threads
// that run incoming calls and death notifications. One per process.
#ifndef DVR_BINDER_PROCESSSTATE_H
#define DVR_BINDER_PROCESSSTATE_H

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstddef>

namespace android {

namespace binder_internal {
class ThreadPool;
}

class ProcessState : public virtual RefBase {
public:
    // The one instance; never destroyed, so pool threads may outlive main().
    static sp<ProcessState> self();

    // Starts the first pool thread; later ones start on demand, whenever every
    // pool thread is busy, up to the maximum. Idempotent. A process that
    // receives calls (a service, or a client with callback objects) must
    // start the pool or join it (IPCThreadState::joinThreadPool).
    void startThreadPool();
    // Threads the pool starts by itself (threads that join come on top).
    // Default 15; at least 1. Any thread may call at any time.
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    size_t getThreadPoolMaxThreadCount() const;
    // Starts one more pool thread now, regardless of the maximum.
    void spawnPooledThread(bool isMain);

    // Transport use.
    binder_internal::ThreadPool &threadPool() const { return *mThreadPool; }

private:
    ProcessState();
    ~ProcessState() override;

    binder_internal::ThreadPool *const mThreadPool;
};

}  // namespace android

#endif  // DVR_BINDER_PROCESSSTATE_H
