#include <binder/ProcessState.h>

#include "ThreadPool.h"

#include <cstdlib>

namespace android {

sp<ProcessState> ProcessState::self() {
    // Never released: pool threads run until the process exits.
    static sp<ProcessState> *const instance = new sp<ProcessState>(new ProcessState());
    return *instance;
}

namespace {

void stopThreadPoolAtExit() {
    ProcessState::self()->threadPool().stopForExit();
}

}  // namespace

ProcessState::ProcessState() : mThreadPool(new binder_internal::ThreadPool()) {
    // Registered after the statics constructed so far, so it runs before
    // their destructors.
    std::atexit(stopThreadPoolAtExit);
}

ProcessState::~ProcessState() {
    delete mThreadPool;
}

void ProcessState::startThreadPool() {
    mThreadPool->start();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    if (maxThreads == 0) {
        return BAD_VALUE;
    }
    mThreadPool->setMaxThreads(maxThreads);
    return OK;
}

size_t ProcessState::getThreadPoolMaxThreadCount() const {
    return mThreadPool->maxThreads();
}

void ProcessState::spawnPooledThread(bool) {
    mThreadPool->spawn();
}

}  // namespace android
