#include "ServerProcess.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char **environ;

namespace dvrtest {

namespace {

constexpr auto kExitTimeout = std::chrono::seconds(60);

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The shipped factory defaults with the storage default in the server's
// working directory.
std::string runtimeConfig(const std::string &defaultPath) {
    std::string config = readFile(std::string(DVR_SOURCE_DIR) + "/config/runtime.cfg");
    const std::string key = "\nDVR_DEFAULT_PATH=";
    const size_t start = config.find(key);
    EXPECT_NE(std::string::npos, start) << "config/runtime.cfg has no DVR_DEFAULT_PATH";
    if (start != std::string::npos) {
        const size_t end = config.find('\n', start + key.size());
        config.replace(start + key.size(),
                       (end == std::string::npos ? config.size() : end) - start - key.size(),
                       defaultPath);
    }
    return config;
}

// Small real-time cameras keep a recording cheap and its file lengths exact.
const char *const kSimConfig = R"({
  "pacing": "realtime",
  "cameras": [
    {"id": 10, "type": 4, "frameRate": 10, "width": 320, "height": 240, "stride": 320},
    {"id": 11, "type": 4, "frameRate": 10, "width": 320, "height": 240, "stride": 320}
  ],
  "audioInputs": [{"id": 20}],
  "encoder": {"ids": [100, 101]},
  "arena": {"bytes": 16777216}
})";

// Spawns the server (through launcher, a command that runs the rest of its
// command line) in directory with its standard error in logPath; -1 on
// failure.
pid_t spawnServer(const std::vector<std::string> &launcher,
                  const std::vector<std::string> &arguments, const std::string &directory,
                  const std::string &logPath, char **environment) {
    std::vector<std::string> command = launcher;
    command.push_back(DVR_SERVER_TOOL);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : command) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const std::string program = command.front();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, logPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    pid_t pid = -1;
    const int status =
        posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environment);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0 ? pid : -1;
}

int waitWithTimeout(pid_t pid) {
    const auto deadline = std::chrono::steady_clock::now() + kExitTimeout;
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
    ADD_FAILURE() << "dvr_server " << pid << " did not end within 60 s; killing it";
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

}  // namespace

ServerProcess::ServerProcess() {
    // The client side of the test finds the service in the same directory.
    setenv("DVR_BINDER_DIR", mDir.file("binder").c_str(), 1);
    mDir.write("runtime.cfg", runtimeConfig("default"));
    mDir.write("sim.json", kSimConfig);
}

ServerProcess::~ServerProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

void ServerProcess::start(const std::vector<std::string> &extra) {
    ASSERT_LT(mPid, 0) << "the server runs already";
    std::vector<std::string> arguments = {"--runtime-cfg", mDir.file("runtime.cfg"),
                                          "--sim-config",  mDir.file("sim.json"),
                                          "--state-dir",   mDir.file("svc"),
                                          "--data",        mDir.file("vendor_data"),
                                          "--binder-dir",  mDir.file("binder"),
                                          "--msg-dir",     mDir.file("msg"),
                                          "--name",        kName};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    // The server's private run directory goes into the test's directory.
    std::vector<std::string> variables = {"TMPDIR=" + mDir.path()};
    for (char **variable = environ; *variable != nullptr; ++variable) {
        if (strncmp(*variable, "TMPDIR=", 7) != 0) {
            variables.push_back(*variable);
        }
    }
    std::vector<char *> environment;
    for (std::string &variable : variables) {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);
    mPid =
        spawnServer(mLauncher, arguments, mDir.path(), mDir.file("server.log"), environment.data());
    ASSERT_GT(mPid, 0) << "cannot start " << DVR_SERVER_TOOL;
}

android::sp<dvrspace::IDVR> ServerProcess::connect() {
    android::ProcessState::self()->startThreadPool();
    const android::sp<android::IBinder> binder =
        android::defaultServiceManager()->waitForService(android::String16(kName), 30000);
    return android::interface_cast<dvrspace::IDVR>(binder);
}

int ServerProcess::stop(int signal) {
    if (mPid <= 0) {
        return -1;
    }
    kill(mPid, signal);
    return waitForExit();
}

int ServerProcess::waitForExit() {
    if (mPid <= 0) {
        return -1;
    }
    const int status = waitWithTimeout(mPid);
    mPid = -1;
    return status;
}

std::string ServerProcess::onDisk(const std::string &serverPath) const {
    return !serverPath.empty() && serverPath[0] == '/' ? serverPath : mDir.file(serverPath);
}

std::string ServerProcess::log() const {
    return readFile(mDir.file("server.log"));
}

bool ServerProcess::waitForLog(const std::string &text) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        if (log().find(text) != std::string::npos) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

int runServerCommand(const std::vector<std::string> &arguments, std::string *err) {
    TempDir dir;
    const pid_t pid = spawnServer({}, arguments, dir.path(), dir.file("err"), environ);
    if (pid <= 0) {
        ADD_FAILURE() << "cannot start " << DVR_SERVER_TOOL;
        return -1;
    }
    const int status = waitWithTimeout(pid);
    *err = readFile(dir.file("err"));
    return status;
}

}  // namespace dvrtest
