#include "PeerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

extern char **environ;

namespace dvrtest {

PeerProcess::PeerProcess(const std::string &mode, const std::string &name) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    const std::string program = BINDER_TEST_PEER;
    char *const argv[] = {const_cast<char *>(program.c_str()), const_cast<char *>(mode.c_str()),
                          const_cast<char *>(name.c_str()), nullptr};
    if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, argv, environ) != 0) {
        mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    mOutput = pipeFds[0];
}

PeerProcess::~PeerProcess() {
    kill();
    if (mOutput >= 0) {
        close(mOutput);
    }
}

bool PeerProcess::waitReady(int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string seen;
    while (seen.find("ready\n") == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd readable{mOutput, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        char buffer[64];
        const ssize_t got = read(mOutput, buffer, sizeof(buffer));
        if (got <= 0) {
            return false;
        }
        seen.append(buffer, static_cast<size_t>(got));
    }
    return true;
}

void PeerProcess::kill() {
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

int PeerProcess::wait() {
    int status = 0;
    if (mPid <= 0 || waitpid(mPid, &status, 0) != mPid) {
        return -1;
    }
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace dvrtest
