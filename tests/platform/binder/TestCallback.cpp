#include "TestCallback.h"

#include <binder/IPCThreadState.h>

#include <chrono>

namespace dvrtest {

TestCallback::TestCallback(const android::sp<ITestService> &service) : mService(service) {}

int32_t TestCallback::onValue(int32_t value) {
    {
        std::unique_lock<std::mutex> lock(mLock);
        mLastCallingPid = android::IPCThreadState::self()->getCallingPid();
        if (value == kNeverAnswer) {
            mChanged.wait(lock, [] { return false; });
        }
    }
    return mService != nullptr ? mService->add(value, 1000) : 2 * value;
}

void TestCallback::onEvent(int32_t value) {
    std::lock_guard<std::mutex> lock(mLock);
    mEvents.push_back(value);
    mChanged.notify_all();
}

std::vector<int32_t> TestCallback::waitEvents(size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                      [&] { return mEvents.size() >= count; });
    return mEvents;
}

pid_t TestCallback::lastCallingPid() {
    std::lock_guard<std::mutex> lock(mLock);
    return mLastCallingPid;
}

}  // namespace dvrtest
