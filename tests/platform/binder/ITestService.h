// A small interface that exercises the binder transport in the tests: plain
// and one-way calls, objects both ways, callbacks during a call, identity
// and death.
#ifndef DVR_TEST_ITEST_SERVICE_H
#define DVR_TEST_ITEST_SERVICE_H

#include "ITestCallback.h"

#include <vector>

namespace dvrtest {

class ITestService : public android::IInterface {
public:
    DECLARE_META_INTERFACE(TestService)

    enum {
        ADD = android::IBinder::FIRST_CALL_TRANSACTION,
        REGISTER_CALLBACK,
        CALL_BACK,
        SEND_EVENTS,
        NOTIFY,
        WAIT_NOTIFIED,
        MAKE_COUNTER,
        ECHO_BINDER,
        CALLER_PID,
        CALLER_UID,
        BLOCK,
        WAIT_CLIENT_DEATHS,
        LIVE_COUNTERS,
        // Reads a fixed sequence of values and writes each back; see
        // BnTestService::echoValues.
        ECHO_VALUES,
    };

    virtual int32_t add(int32_t a, int32_t b) = 0;
    // Keeps the callback and links to its death.
    virtual android::status_t registerCallback(const android::sp<ITestCallback> &callback) = 0;
    // Calls the kept callback's onValue(value) while the caller waits.
    virtual int32_t callBack(int32_t value) = 0;
    // Sends onEvent(0 .. count-1) to the kept callback, one-way, in order.
    virtual android::status_t sendEvents(int32_t count) = 0;
    // One-way; the service records `value`.
    virtual void notify(int32_t value) = 0;
    // The recorded values once there are `count` of them or `timeoutMs` passed.
    virtual std::vector<int32_t> waitNotified(int32_t count, int32_t timeoutMs) = 0;
    // A new object of the service: onValue adds to a running sum.
    virtual android::sp<ITestCallback> makeCounter() = 0;
    virtual android::sp<android::IBinder> echoBinder(
        const android::sp<android::IBinder> &binder) = 0;
    virtual int32_t callerPid() = 0;
    virtual int32_t callerUid() = 0;
    // Never returns while the service lives.
    virtual android::status_t block() = 0;
    // Deaths of kept callbacks once `count` happened or `timeoutMs` passed.
    virtual int32_t waitClientDeaths(int32_t count, int32_t timeoutMs) = 0;
    // Counter objects alive in the service.
    virtual int32_t liveCounters() = 0;
};

class BnTestService : public android::BnInterface<ITestService> {
protected:
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags) override;

private:
    static android::status_t echoValues(const android::Parcel &data, android::Parcel *reply);
};

}  // namespace dvrtest

#endif  // DVR_TEST_ITEST_SERVICE_H
