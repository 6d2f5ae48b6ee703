#include "TestService.h"

#include <binder/IPCThreadState.h>

#include <chrono>

namespace dvrtest {

using android::IBinder;
using android::IInterface;
using android::IPCThreadState;
using android::OK;
using android::sp;
using android::status_t;

TestService::TestService() : mDeathCounter(new DeathCounter(this)) {}

int32_t TestService::add(int32_t a, int32_t b) {
    return a + b;
}

status_t TestService::registerCallback(const sp<ITestCallback> &callback) {
    if (callback == nullptr) {
        return android::BAD_VALUE;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mCallback = callback;
    return IInterface::asBinder(callback)->linkToDeath(mDeathCounter);
}

sp<ITestCallback> TestService::callback() {
    std::lock_guard<std::mutex> lock(mLock);
    return mCallback;
}

int32_t TestService::callBack(int32_t value) {
    sp<ITestCallback> target = callback();
    return target == nullptr ? -1 : target->onValue(value);
}

status_t TestService::sendEvents(int32_t count) {
    sp<ITestCallback> target = callback();
    if (target == nullptr) {
        return android::NO_INIT;
    }
    for (int32_t i = 0; i < count; ++i) {
        target->onEvent(i);
    }
    return OK;
}

void TestService::notify(int32_t value) {
    std::lock_guard<std::mutex> lock(mLock);
    mNotified.push_back(value);
    mChanged.notify_all();
}

std::vector<int32_t> TestService::waitNotified(int32_t count, int32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                      [&] { return mNotified.size() >= static_cast<size_t>(count); });
    return mNotified;
}

sp<ITestCallback> TestService::makeCounter() {
    return new Counter(&mLiveCounters);
}

sp<IBinder> TestService::echoBinder(const sp<IBinder> &binder) {
    return binder;
}

int32_t TestService::callerPid() {
    return IPCThreadState::self()->getCallingPid();
}

int32_t TestService::callerUid() {
    return static_cast<int32_t>(IPCThreadState::self()->getCallingUid());
}

status_t TestService::block() {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [] { return false; });
    return OK;
}

int32_t TestService::waitClientDeaths(int32_t count, int32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                      [&] { return mClientDeaths >= count; });
    return mClientDeaths;
}

int32_t TestService::liveCounters() {
    return mLiveCounters.load();
}

void TestService::DeathCounter::binderDied(const android::wp<IBinder> &) {
    std::lock_guard<std::mutex> lock(mService->mLock);
    ++mService->mClientDeaths;
    mService->mChanged.notify_all();
}

TestService::Counter::Counter(std::atomic<int32_t> *live) : mLive(live) {
    ++*mLive;
}

TestService::Counter::~Counter() {
    --*mLive;
}

int32_t TestService::Counter::onValue(int32_t value) {
    return mSum += value;
}

void TestService::Counter::onEvent(int32_t value) {
    mSum += value;
}

}  // namespace dvrtest
