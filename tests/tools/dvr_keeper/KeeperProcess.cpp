#include "KeeperProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

extern char **environ;

namespace dvrtest {

namespace {

constexpr auto kExitTimeout = std::chrono::seconds(30);

std::string shellQuoted(const std::string &word) {
    std::string quoted = "'";
    for (const char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace

KeeperProcess::~KeeperProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

void KeeperProcess::start(const std::vector<std::string> &arguments) {
    ASSERT_LT(mPid, 0) << "the keeper runs already";
    const std::string program = DVR_KEEPER_TOOL;
    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, mLogPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int status = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ASSERT_EQ(0, status) << "cannot start " << program;
    mPid = pid;
}

int KeeperProcess::stop(int signal) {
    if (mPid <= 0) {
        return -1;
    }
    kill(mPid, signal);
    return waitForExit();
}

int KeeperProcess::waitForExit() {
    if (mPid <= 0) {
        return -1;
    }
    const auto deadline = std::chrono::steady_clock::now() + kExitTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) == mPid) {
            mPid = -1;
            return status;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ADD_FAILURE() << "dvr-keeper " << mPid << " did not end within 30 s; killing it";
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = -1;
    return -1;
}

std::string KeeperProcess::log() const {
    std::ifstream in(mLogPath, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool KeeperProcess::waitForLog(const std::string &text, int timeoutSeconds) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (log().find(text) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

size_t KeeperProcess::countInLog(const std::string &text) const {
    const std::string all = log();
    size_t count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

CommandResult runKeeper(const std::vector<std::string> &arguments) {
    std::string command = shellQuoted(DVR_KEEPER_TOOL);
    for (const std::string &argument : arguments) {
        command += " " + shellQuoted(argument);
    }
    return runCommand(command);
}

}  // namespace dvrtest
