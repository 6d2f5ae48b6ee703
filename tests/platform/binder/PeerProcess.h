// A binder_test_peer process started by a test, killed when the instance goes
// away. Its stdout is read through a pipe.
#ifndef DVR_TEST_PEER_PROCESS_H
#define DVR_TEST_PEER_PROCESS_H

#include <sys/types.h>

#include <string>

namespace dvrtest {

class PeerProcess {
public:
    PeerProcess(const std::string &mode, const std::string &name);
    ~PeerProcess();
    PeerProcess(const PeerProcess &) = delete;
    PeerProcess &operator=(const PeerProcess &) = delete;

    pid_t pid() const { return mPid; }
    // True once the peer printed "ready" within `timeoutMs`.
    bool waitReady(int timeoutMs = 20000);
    // SIGKILL and reap.
    void kill();
    // Exit status once the peer ended by itself, -1 otherwise.
    int wait();

private:
    pid_t mPid = -1;
    int mOutput = -1;
};

}  // namespace dvrtest

#endif  // DVR_TEST_PEER_PROCESS_H
