// The test interface's service: runs in a peer process or in the test itself.
#ifndef DVR_TEST_TEST_SERVICE_H
#define DVR_TEST_TEST_SERVICE_H

#include "ITestService.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace dvrtest {

class TestService : public BnTestService {
public:
    TestService();

    int32_t add(int32_t a, int32_t b) override;
    android::status_t registerCallback(const android::sp<ITestCallback> &callback) override;
    int32_t callBack(int32_t value) override;
    android::status_t sendEvents(int32_t count) override;
    void notify(int32_t value) override;
    std::vector<int32_t> waitNotified(int32_t count, int32_t timeoutMs) override;
    android::sp<ITestCallback> makeCounter() override;
    android::sp<android::IBinder> echoBinder(const android::sp<android::IBinder> &binder) override;
    int32_t callerPid() override;
    int32_t callerUid() override;
    android::status_t block() override;
    int32_t waitClientDeaths(int32_t count, int32_t timeoutMs) override;
    int32_t liveCounters() override;

private:
    // Counts the deaths of registered callbacks.
    class DeathCounter : public android::IBinder::DeathRecipient {
    public:
        explicit DeathCounter(TestService *service) : mService(service) {}
        void binderDied(const android::wp<android::IBinder> &who) override;

    private:
        TestService *const mService;
    };

    // A service-side object handed to clients; counts the live ones.
    class Counter : public BnTestCallback {
    public:
        explicit Counter(std::atomic<int32_t> *live);
        ~Counter() override;
        int32_t onValue(int32_t value) override;
        void onEvent(int32_t value) override;

    private:
        std::atomic<int32_t> *const mLive;
        std::atomic<int32_t> mSum{0};
    };

    android::sp<ITestCallback> callback();

    std::mutex mLock;
    std::condition_variable mChanged;
    android::sp<ITestCallback> mCallback;
    android::sp<DeathCounter> mDeathCounter;
    std::vector<int32_t> mNotified;
    int32_t mClientDeaths = 0;
    std::atomic<int32_t> mLiveCounters{0};
};

}  // namespace dvrtest

#endif  // DVR_TEST_TEST_SERVICE_H
