// The test interface's client-side callback: records one-way events and
// answers onValue, optionally by calling the service from inside the call.
#ifndef DVR_TEST_TEST_CALLBACK_H
#define DVR_TEST_TEST_CALLBACK_H

#include "ITestService.h"

#include <condition_variable>
#include <mutex>

namespace dvrtest {

class TestCallback : public BnTestCallback {
public:
    // With a service, onValue(v) answers service->add(v, 1000); else 2 * v.
    explicit TestCallback(const android::sp<ITestService> &service = nullptr);

    // onValue(kNeverAnswer) does not return while the process lives.
    static constexpr int32_t kNeverAnswer = -7;

    int32_t onValue(int32_t value) override;
    void onEvent(int32_t value) override;

    // The events once there are `count` of them or `timeoutMs` passed.
    std::vector<int32_t> waitEvents(size_t count, int timeoutMs);
    // pid seen by the last onValue.
    pid_t lastCallingPid();

private:
    const android::sp<ITestService> mService;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<int32_t> mEvents;
    pid_t mLastCallingPid = -1;
};

}  // namespace dvrtest

#endif  // DVR_TEST_TEST_CALLBACK_H
