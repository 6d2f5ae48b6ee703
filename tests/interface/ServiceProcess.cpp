#include "ServiceProcess.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace dvrtest {

namespace {

// Set once this process used binder: a later fork would copy a thread pool
// whose threads do not exist in the child.
bool gBinderStarted = false;

}  // namespace

ServiceProcess::ServiceProcess(const RecordingDVR::Plan &plan)
    : mTranscriptPath(mDir.file("transcript")) {
    if (gBinderStarted) {
        ADD_FAILURE() << "one service process per test process: run each case on its own, as "
                         "ctest does, or with --gtest_filter";
        return;
    }
    setenv("DVR_BINDER_DIR", mDir.path().c_str(), 1);
    mPid = fork();
    if (mPid != 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const android::sp<RecordingDVR> service = new RecordingDVR(plan, mTranscriptPath);
    if (android::defaultServiceManager()->addService(android::String16(kServiceName), service) !=
        android::OK) {
        _exit(2);
    }
    android::IPCThreadState::self()->joinThreadPool();
    _exit(0);
}

ServiceProcess::~ServiceProcess() {
    stop();
}

void ServiceProcess::stop() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        mPid = -1;
    }
}

android::sp<dvrspace::IDVR> ServiceProcess::connect() {
    if (mPid <= 0) {
        return nullptr;
    }
    gBinderStarted = true;
    android::ProcessState::self()->startThreadPool();
    const android::sp<android::IBinder> binder =
        android::defaultServiceManager()->waitForService(android::String16(kServiceName), 20000);
    return android::interface_cast<dvrspace::IDVR>(binder);
}

std::vector<std::string> ServiceProcess::newTranscriptLines() {
    std::ifstream transcript(mTranscriptPath);
    std::stringstream content;
    content << transcript.rdbuf();
    const std::string text = content.str();
    std::vector<std::string> lines;
    // Only whole lines count; a line being written is read next time.
    size_t end = 0;
    while ((end = text.find('\n', mTranscriptRead)) != std::string::npos) {
        lines.push_back(text.substr(mTranscriptRead, end - mTranscriptRead));
        mTranscriptRead = end + 1;
    }
    return lines;
}

std::vector<std::string> ServiceProcess::waitForTranscriptLines(size_t count) {
    std::vector<std::string> lines;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (lines.size() < count && std::chrono::steady_clock::now() < deadline) {
        for (std::string &line : newTranscriptLines()) {
            lines.push_back(std::move(line));
        }
        if (lines.size() < count) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return lines;
}

}  // namespace dvrtest
