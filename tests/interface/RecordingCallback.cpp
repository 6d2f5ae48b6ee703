#include "RecordingCallback.h"

#include <chrono>
#include <cstring>

#include "Describe.h"

namespace dvrtest {

RecordingCallback::RecordingCallback(std::string stamp, std::string fileName)
    : mStamp(std::move(stamp)), mFileName(std::move(fileName)) {}

std::vector<std::string> RecordingCallback::waitForCalls(size_t count) {
    std::unique_lock<std::mutex> lock(mLock);
    mAdded.wait_for(lock, std::chrono::seconds(20), [&] { return mCalls.size() >= count; });
    return mCalls;
}

void RecordingCallback::add(const std::string &call) {
    std::lock_guard<std::mutex> guard(mLock);
    mCalls.push_back(call);
    mAdded.notify_all();
}

int RecordingCallback::onRecordStart(int cbkId, int index, const char *fileName) {
    add("onRecordStart(" + describe(cbkId) + ", " + describe(index) + ", " + describe(fileName) +
        ")");
    return 11;
}

int RecordingCallback::onRecordFinish(int cbkId, int index, const char *fileName) {
    add("onRecordFinish(" + describe(cbkId) + ", " + describe(index) + ", " + describe(fileName) +
        ")");
    return 12;
}

int RecordingCallback::onRecordError(int cbkId, int index, int errorCode) {
    add("onRecordError(" + describe(cbkId) + ", " + describe(index) + ", " + describe(errorCode) +
        ")");
    return 13;
}

int RecordingCallback::onRecordErrorSevere(int cbkId, int index, int errorCode) {
    add("onRecordErrorSevere(" + describe(cbkId) + ", " + describe(index) + ", " +
        describe(errorCode) + ")");
    return 14;
}

int RecordingCallback::onRecordAbnormal(int cbkId, int index, int value) {
    add("onRecordAbnormal(" + describe(cbkId) + ", " + describe(index) + ", " + describe(value) +
        ")");
    return 15;
}

int RecordingCallback::getStampString(int cbkId, int index, char *buffer) {
    add("getStampString(" + describe(cbkId) + ", " + describe(index) + ", " + describe(buffer) +
        ")");
    if (buffer == nullptr) {
        return -2;
    }
    const size_t copied = std::min(mStamp.size(), size_t{kStampStringCapacity - 1});
    std::memcpy(buffer, mStamp.data(), copied);
    buffer[copied] = '\0';
    return 0;
}

int RecordingCallback::fileNameGenerator(int cbkId, int index, char *buffer, int length) {
    add("fileNameGenerator(" + describe(cbkId) + ", " + describe(index) + ", " + describe(buffer) +
        ", " + describe(length) + ")");
    if (buffer == nullptr || length <= 0) {
        return -2;
    }
    // Deliberately no terminator when the name fills the buffer: the stub
    // must still hand back a terminated text.
    const size_t copied = std::min(mFileName.size(), static_cast<size_t>(length));
    std::memcpy(buffer, mFileName.data(), copied);
    if (copied < static_cast<size_t>(length)) {
        buffer[copied] = '\0';
    }
    return 0;
}

}  // namespace dvrtest
