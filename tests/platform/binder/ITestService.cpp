#include "ITestService.h"

namespace dvrtest {

using android::IBinder;
using android::IInterface;
using android::interface_cast;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

class BpTestService : public android::BpInterface<ITestService> {
public:
    explicit BpTestService(const sp<IBinder> &remote) : BpInterface<ITestService>(remote) {}

    int32_t add(int32_t a, int32_t b) override {
        Parcel reply;
        Parcel data;
        start(&data);
        data.writeInt32(a);
        data.writeInt32(b);
        return call(ADD, data, &reply) == OK ? reply.readInt32() : -1;
    }

    status_t registerCallback(const sp<ITestCallback> &callback) override {
        Parcel data;
        Parcel reply;
        start(&data);
        data.writeStrongBinder(IInterface::asBinder(callback));
        status_t status = call(REGISTER_CALLBACK, data, &reply);
        return status == OK ? reply.readInt32() : status;
    }

    int32_t callBack(int32_t value) override { return intCall(CALL_BACK, value); }

    status_t sendEvents(int32_t count) override { return intCall(SEND_EVENTS, count); }

    void notify(int32_t value) override {
        Parcel data;
        start(&data);
        data.writeInt32(value);
        remote()->transact(NOTIFY, data, nullptr, IBinder::FLAG_ONEWAY);
    }

    std::vector<int32_t> waitNotified(int32_t count, int32_t timeoutMs) override {
        Parcel data;
        Parcel reply;
        start(&data);
        data.writeInt32(count);
        data.writeInt32(timeoutMs);
        std::vector<int32_t> values;
        if (call(WAIT_NOTIFIED, data, &reply) == OK) {
            const int32_t size = reply.readInt32();
            for (int32_t i = 0; i < size; ++i) {
                values.push_back(reply.readInt32());
            }
        }
        return values;
    }

    sp<ITestCallback> makeCounter() override {
        Parcel data;
        Parcel reply;
        start(&data);
        if (call(MAKE_COUNTER, data, &reply) != OK) {
            return nullptr;
        }
        return interface_cast<ITestCallback>(reply.readStrongBinder());
    }

    sp<IBinder> echoBinder(const sp<IBinder> &binder) override {
        Parcel data;
        Parcel reply;
        start(&data);
        data.writeStrongBinder(binder);
        return call(ECHO_BINDER, data, &reply) == OK ? reply.readStrongBinder() : nullptr;
    }

    int32_t callerPid() override { return intCall(CALLER_PID, 0); }

    int32_t callerUid() override { return intCall(CALLER_UID, 0); }

    status_t block() override {
        Parcel data;
        Parcel reply;
        start(&data);
        return call(BLOCK, data, &reply);
    }

    int32_t waitClientDeaths(int32_t count, int32_t timeoutMs) override {
        Parcel data;
        Parcel reply;
        start(&data);
        data.writeInt32(count);
        data.writeInt32(timeoutMs);
        return call(WAIT_CLIENT_DEATHS, data, &reply) == OK ? reply.readInt32() : -1;
    }

    int32_t liveCounters() override { return intCall(LIVE_COUNTERS, 0); }

private:
    void start(Parcel *data) const { data->writeInterfaceToken(ITestService::descriptor); }

    status_t call(uint32_t code, const Parcel &data, Parcel *reply) {
        return remote()->transact(code, data, reply);
    }

    int32_t intCall(uint32_t code, int32_t argument) {
        Parcel data;
        Parcel reply;
        start(&data);
        data.writeInt32(argument);
        return call(code, data, &reply) == OK ? reply.readInt32() : -1;
    }
};

IMPLEMENT_META_INTERFACE(TestService, "dvrtest.ITestService")

status_t BnTestService::onTransact(uint32_t code, const Parcel &data, Parcel *reply,
                                   uint32_t flags) {
    if (code < ADD || code > ECHO_VALUES) {
        return BBinder::onTransact(code, data, reply, flags);
    }
    CHECK_INTERFACE(ITestService, data, reply);
    switch (code) {
        case ADD: {
            const int32_t a = data.readInt32();
            return reply->writeInt32(add(a, data.readInt32()));
        }
        case REGISTER_CALLBACK: {
            sp<IBinder> binder;
            status_t status = data.readStrongBinder(&binder);
            if (status != OK) {
                return status;
            }
            return reply->writeInt32(registerCallback(interface_cast<ITestCallback>(binder)));
        }
        case CALL_BACK:
            return reply->writeInt32(callBack(data.readInt32()));
        case SEND_EVENTS:
            return reply->writeInt32(sendEvents(data.readInt32()));
        case NOTIFY:
            notify(data.readInt32());
            return OK;
        case WAIT_NOTIFIED: {
            const int32_t count = data.readInt32();
            const std::vector<int32_t> values = waitNotified(count, data.readInt32());
            reply->writeInt32(static_cast<int32_t>(values.size()));
            for (int32_t value : values) {
                reply->writeInt32(value);
            }
            return OK;
        }
        case MAKE_COUNTER:
            return reply->writeStrongBinder(IInterface::asBinder(makeCounter()));
        case ECHO_BINDER:
            return reply->writeStrongBinder(echoBinder(data.readStrongBinder()));
        case CALLER_PID:
            return reply->writeInt32(callerPid());
        case CALLER_UID:
            return reply->writeInt32(callerUid());
        case BLOCK:
            return block();
        case WAIT_CLIENT_DEATHS: {
            const int32_t count = data.readInt32();
            return reply->writeInt32(waitClientDeaths(count, data.readInt32()));
        }
        case LIVE_COUNTERS:
            return reply->writeInt32(liveCounters());
        default:
            return echoValues(data, reply);
    }
}

// String16, null String16, C string, null C string, bytes, null bytes,
// int64, uint64, float, double, bool.
status_t BnTestService::echoValues(const Parcel &data, Parcel *reply) {
    std::unique_ptr<android::String16> text;
    std::unique_ptr<android::String16> nullText;
    if (data.readString16(&text) != OK || data.readString16(&nullText) != OK) {
        return android::BAD_VALUE;
    }
    reply->writeString16(text);
    reply->writeString16(nullText);
    reply->writeCString(data.readCString());
    reply->writeCString(data.readCString());
    std::unique_ptr<std::vector<uint8_t>> bytes;
    std::unique_ptr<std::vector<uint8_t>> nullBytes;
    if (data.readByteVector(&bytes) != OK || data.readByteVector(&nullBytes) != OK) {
        return android::BAD_VALUE;
    }
    for (const auto *array : {bytes.get(), nullBytes.get()}) {
        if (array != nullptr) {
            reply->writeByteVector(*array);
        } else {
            reply->writeByteArray(0, nullptr);
        }
    }
    int64_t i64 = 0;
    uint64_t u64 = 0;
    float f = 0;
    double d = 0;
    bool b = false;
    if (data.readInt64(&i64) != OK || data.readUint64(&u64) != OK || data.readFloat(&f) != OK ||
        data.readDouble(&d) != OK || data.readBool(&b) != OK) {
        return android::BAD_VALUE;
    }
    reply->writeInt64(i64);
    reply->writeUint64(u64);
    reply->writeFloat(f);
    reply->writeDouble(d);
    return reply->writeBool(b);
}

}  // namespace dvrtest
