#include "ITestCallback.h"

namespace dvrtest {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

class BpTestCallback : public android::BpInterface<ITestCallback> {
public:
    explicit BpTestCallback(const sp<IBinder> &remote) : BpInterface<ITestCallback>(remote) {}

    int32_t onValue(int32_t value) override {
        Parcel data;
        Parcel reply;
        data.writeInterfaceToken(ITestCallback::getInterfaceDescriptor());
        data.writeInt32(value);
        if (remote()->transact(ON_VALUE, data, &reply) != android::OK) {
            return -1;
        }
        return reply.readInt32();
    }

    void onEvent(int32_t value) override {
        Parcel data;
        data.writeInterfaceToken(ITestCallback::getInterfaceDescriptor());
        data.writeInt32(value);
        remote()->transact(ON_EVENT, data, nullptr, IBinder::FLAG_ONEWAY);
    }
};

IMPLEMENT_META_INTERFACE(TestCallback, "dvrtest.ITestCallback")

status_t BnTestCallback::onTransact(uint32_t code, const Parcel &data, Parcel *reply,
                                    uint32_t flags) {
    switch (code) {
        case ON_VALUE:
            CHECK_INTERFACE(ITestCallback, data, reply);
            return reply->writeInt32(onValue(data.readInt32()));
        case ON_EVENT:
            CHECK_INTERFACE(ITestCallback, data, reply);
            onEvent(data.readInt32());
            return android::OK;
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace dvrtest
