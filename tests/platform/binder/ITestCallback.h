// The client-side object of the test interface: the service calls it back.
#ifndef DVR_TEST_ITEST_CALLBACK_H
#define DVR_TEST_ITEST_CALLBACK_H

#include <binder/IInterface.h>
#include <binder/Parcel.h>

namespace dvrtest {

class ITestCallback : public android::IInterface {
public:
    DECLARE_META_INTERFACE(TestCallback)

    enum {
        ON_VALUE = android::IBinder::FIRST_CALL_TRANSACTION,
        ON_EVENT,
    };

    // Synchronous; the implementation decides the answer.
    virtual int32_t onValue(int32_t value) = 0;
    // One-way.
    virtual void onEvent(int32_t value) = 0;
};

class BnTestCallback : public android::BnInterface<ITestCallback> {
protected:
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags) override;
};

}  // namespace dvrtest

#endif  // DVR_TEST_ITEST_CALLBACK_H
