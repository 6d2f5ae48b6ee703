// IPCThreadState: per-thread binder state: who is calling the transaction the
// thread is running, and the entry into the thread pool.
#ifndef DVR_BINDER_IPCTHREADSTATE_H
#define DVR_BINDER_IPCTHREADSTATE_H

#include <binder/ProcessState.h>

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace android {

namespace binder_internal {
class Connection;
}

class IPCThreadState {
public:
    // The calling thread's state, created on first use.
    static IPCThreadState *self();
    // Null while the calling thread has never used binder.
    static IPCThreadState *selfOrNull();

    sp<ProcessState> process();

    // Inside onTransact (or binderDied): the peer's pid and uid, taken from the
    // socket's SO_PEERCRED. Outside a transaction: this process's own.
    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    // Turns the calling thread into a pool thread; does not return.
    void joinThreadPool(bool isMain = true);
    // Kept for source compatibility: every message is sent when written.
    void flushCommands();

    // Transport use: marks the incoming call the thread is running, so nested
    // calls back to the same peer reach the thread waiting in that peer.
    struct IncomingCall {
        const binder_internal::Connection *connection;
        uint64_t id;
        pid_t pid;
        uid_t uid;
    };
    void pushIncomingCall(const IncomingCall &call);
    void popIncomingCall();
    // Id of the innermost incoming call from `connection`'s peer; 0 if none.
    uint64_t incomingCallFrom(const binder_internal::Connection *connection) const;

private:
    IPCThreadState();
    ~IPCThreadState();

    std::vector<IncomingCall> mIncomingCalls;
};

}  // namespace android

#endif  // DVR_BINDER_IPCTHREADSTATE_H
