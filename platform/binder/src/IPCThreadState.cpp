#include <binder/IPCThreadState.h>

#include "ThreadPool.h"

#include <unistd.h>

namespace android {

namespace {
thread_local bool tCreated = false;
}

IPCThreadState *IPCThreadState::self() {
    thread_local IPCThreadState state;
    tCreated = true;
    return &state;
}

IPCThreadState *IPCThreadState::selfOrNull() {
    return tCreated ? self() : nullptr;
}

IPCThreadState::IPCThreadState() = default;
IPCThreadState::~IPCThreadState() = default;

sp<ProcessState> IPCThreadState::process() {
    return ProcessState::self();
}

pid_t IPCThreadState::getCallingPid() const {
    return mIncomingCalls.empty() ? getpid() : mIncomingCalls.back().pid;
}

uid_t IPCThreadState::getCallingUid() const {
    return mIncomingCalls.empty() ? getuid() : mIncomingCalls.back().uid;
}

void IPCThreadState::joinThreadPool(bool) {
    ProcessState::self()->threadPool().join();
}

void IPCThreadState::flushCommands() {}

void IPCThreadState::pushIncomingCall(const IncomingCall &call) {
    mIncomingCalls.push_back(call);
}

void IPCThreadState::popIncomingCall() {
    mIncomingCalls.pop_back();
}

uint64_t IPCThreadState::incomingCallFrom(const binder_internal::Connection *connection) const {
    for (auto it = mIncomingCalls.rbegin(); it != mIncomingCalls.rend(); ++it) {
        if (it->connection == connection) {
            return it->id;
        }
    }
    return 0;
}

}  // namespace android
