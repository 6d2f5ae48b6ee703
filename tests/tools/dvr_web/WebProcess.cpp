#include "WebProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "TempDir.h"

extern char **environ;

namespace dvrtest {

namespace {

constexpr auto kWait = std::chrono::seconds(30);

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

pid_t spawnWeb(const std::vector<std::string> &arguments, const std::string &out,
               const std::string &err) {
    const std::string program = DVR_WEB_TOOL;
    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    const int status = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0 ? pid : -1;
}

int waitFor(pid_t pid) {
    const auto deadline = std::chrono::steady_clock::now() + kWait;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        const pid_t ended = waitpid(pid, &status, WNOHANG);
        if (ended == pid) {
            return status;
        }
        if (ended < 0) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

}  // namespace

WebProcess::~WebProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

bool WebProcess::start(const std::vector<std::string> &arguments) {
    mPid = spawnWeb(arguments, mDirectory + "/web.out", mDirectory + "/web.log");
    if (mPid <= 0) {
        return false;
    }
    const std::string marker = "listening on http://";
    const auto deadline = std::chrono::steady_clock::now() + kWait;
    while (std::chrono::steady_clock::now() < deadline && running()) {
        const std::string out = output();
        const size_t start = out.find(marker);
        const size_t end = out.find("/\n", start == std::string::npos ? 0 : start);
        if (start != std::string::npos && end != std::string::npos) {
            const std::string address =
                out.substr(start + marker.size(), end - start - marker.size());
            mPort = std::stoi(address.substr(address.rfind(':') + 1));
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::string WebProcess::url() const {
    return "http://127.0.0.1:" + std::to_string(mPort);
}

bool WebProcess::running() {
    if (mPid <= 0) {
        return false;
    }
    int status = 0;
    if (waitpid(mPid, &status, WNOHANG) == mPid) {
        mPid = -1;
        return false;
    }
    return true;
}

int WebProcess::stop(int signal) {
    if (mPid <= 0) {
        return -1;
    }
    kill(mPid, signal);
    const int status = waitFor(mPid);
    mPid = -1;
    return status;
}

std::string WebProcess::output() const {
    return readFile(mDirectory + "/web.out");
}

std::string WebProcess::log() const {
    return readFile(mDirectory + "/web.log");
}

size_t WebProcess::countInLog(const std::string &text) const {
    std::istringstream lines(log());
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

int runWeb(const std::vector<std::string> &arguments, std::string *out, std::string *err) {
    TempDir dir;
    const pid_t pid = spawnWeb(arguments, dir.file("out"), dir.file("err"));
    if (pid <= 0) {
        return -1;
    }
    const int status = waitFor(pid);
    *out = readFile(dir.file("out"));
    *err = readFile(dir.file("err"));
    return status;
}

}  // namespace dvrtest
