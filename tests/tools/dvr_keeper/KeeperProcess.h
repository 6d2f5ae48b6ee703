// The built dvr-keeper: as a daemon process of its own (`run`), whose
// standard error goes to a log file, and as a one-shot command.
#ifndef DVR_TEST_KEEPER_PROCESS_H
#define DVR_TEST_KEEPER_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "CommandResult.h"

namespace dvrtest {

class KeeperProcess {
public:
    // logPath receives the daemon's standard error (appended).
    explicit KeeperProcess(std::string logPath) : mLogPath(std::move(logPath)) {}
    // Kills a daemon that still runs (SIGKILL).
    ~KeeperProcess();
    KeeperProcess(const KeeperProcess &) = delete;
    KeeperProcess &operator=(const KeeperProcess &) = delete;

    // Starts `dvr-keeper ARGUMENTS` (run and its options).
    void start(const std::vector<std::string> &arguments);
    bool running() const { return mPid > 0; }
    // Sends signal and waits up to 30 s for the end: the wait status, or -1
    // (it is killed then).
    int stop(int signal);
    // Waits up to 30 s for the daemon to end by itself; as stop.
    int waitForExit();
    std::string log() const;
    // Waits up to timeoutSeconds until the log holds text.
    bool waitForLog(const std::string &text, int timeoutSeconds = 30) const;
    // How many times the log holds text.
    size_t countInLog(const std::string &text) const;

private:
    const std::string mLogPath;
    pid_t mPid = -1;
};

// Runs `dvr-keeper ARGUMENTS` to its end.
CommandResult runKeeper(const std::vector<std::string> &arguments);

}  // namespace dvrtest

#endif  // DVR_TEST_KEEPER_PROCESS_H
