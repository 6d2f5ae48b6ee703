#include "ClientCallback.h"

#include <unistd.h>

#include <cstdio>

namespace dvrtest {

ClientCallback::ClientCallback(std::string stamp, int reportFd)
    : mStamp(std::move(stamp)), mReportFd(reportFd) {}

void ClientCallback::nameFiles(const std::string &directory, const std::string &extension) {
    std::lock_guard<std::mutex> guard(mLock);
    mNameDirectory = directory;
    mNameExtension = extension;
}

std::vector<ClientCallback::Call> ClientCallback::calls() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCalls;
}

std::vector<ClientCallback::Call> ClientCallback::calls(const std::string &kind, int index) {
    std::vector<Call> matching;
    for (Call &call : calls()) {
        if (call.kind == kind && call.index == index) {
            matching.push_back(std::move(call));
        }
    }
    return matching;
}

bool ClientCallback::waitUntil(const std::function<bool(const std::vector<Call> &)> &done,
                               std::chrono::seconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    return mAdded.wait_for(lock, timeout, [&] { return done(mCalls); });
}

void ClientCallback::add(Call call) {
    if (mReportFd >= 0) {
        const std::string line =
            call.kind + " " + std::to_string(call.index) + " " + call.text + "\n";
        (void)!write(mReportFd, line.data(), line.size());
    }
    std::lock_guard<std::mutex> guard(mLock);
    mCalls.push_back(std::move(call));
    mAdded.notify_all();
}

int ClientCallback::onRecordStart(int cbkId, int index, const char *fileName) {
    add({"start", cbkId, index, fileName != nullptr ? fileName : ""});
    return 0;
}

int ClientCallback::onRecordFinish(int cbkId, int index, const char *fileName) {
    add({"finish", cbkId, index, fileName != nullptr ? fileName : ""});
    return 0;
}

int ClientCallback::onRecordError(int cbkId, int index, int errorCode) {
    add({"error", cbkId, index, std::to_string(errorCode)});
    return 0;
}

int ClientCallback::onRecordErrorSevere(int cbkId, int index, int errorCode) {
    add({"severe", cbkId, index, std::to_string(errorCode)});
    return 0;
}

int ClientCallback::onRecordAbnormal(int cbkId, int index, int value) {
    add({"abnormal", cbkId, index, std::to_string(value)});
    return 0;
}

int ClientCallback::getStampString(int cbkId, int index, char *buffer) {
    add({"stamp", cbkId, index, ""});
    if (buffer != nullptr) {
        snprintf(buffer, kStampStringCapacity, "%s", mStamp.c_str());
    }
    return 0;
}

int ClientCallback::fileNameGenerator(int cbkId, int index, char *buffer, int length) {
    std::string name;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mNameDirectory.empty()) {
            size_t given = 1;
            for (const Call &call : mCalls) {
                given += call.kind == "name" && call.index == index ? 1 : 0;
            }
            name = mNameDirectory + "/client_" + std::to_string(index) + "_" +
                   std::to_string(given) + mNameExtension;
        }
    }
    add({"name", cbkId, index, name});
    if (buffer != nullptr && length > 0) {
        snprintf(buffer, static_cast<size_t>(length), "%s", name.c_str());
    }
    return 0;
}

}  // namespace dvrtest
