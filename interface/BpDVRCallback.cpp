#include "BpDVRCallback.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "DVRCallbackTransactions.h"
#include "RemoteMethod.h"

namespace dvrspace {

namespace {

template <auto Method, typename... Given>
int notify(android::IBinder *remote, uint32_t code, const char *label, Given &&...args) {
    return marshal::RemoteMethod<decltype(Method)>::call(remote, code, label,
                                                         std::forward<Given>(args)...);
}

// Sends the caller's buffer contents (null stays null), lets the client fill
// its own copy and writes the answer back, cut to fit capacity. length is
// sent only for the queries that take one.
int askClient(android::IBinder *remote, uint32_t code, int cbkId, int index, char *buffer,
              int capacity, const int *length) {
    using namespace marshal;
    Parcel data;
    Parcel reply;
    const size_t usable = static_cast<size_t>(std::max(capacity, 1) - 1);
    const std::string sent = buffer != nullptr ? std::string(buffer, strnlen(buffer, usable)) : "";
    status_t status = data.writeInterfaceToken(IDVRCallback::descriptor);
    if (status == OK) {
        status = writeFields(data, cbkId, index);
    }
    if (status == OK) {
        status = NullableText::write(data, buffer != nullptr ? sent.c_str() : nullptr);
    }
    if (status == OK && length != nullptr) {
        status = Value<int>::write(data, *length);
    }
    if (status == OK) {
        status = remote->transact(code, data, &reply);
    }
    int result = 0;
    bool answered = false;
    std::string answer;
    if (status == OK) {
        status = Value<int>::read(reply, &result);
    }
    if (status == OK) {
        status = NullableText::read(reply, &answered, &answer);
    }
    if (status != OK) {
        return status;
    }
    if (buffer != nullptr && answered && capacity > 0) {
        const size_t copied = std::min(answer.size(), usable);
        std::memcpy(buffer, answer.data(), copied);
        buffer[copied] = '\0';
    }
    return result;
}

}  // namespace

BpDVRCallback::BpDVRCallback(const android::sp<android::IBinder> &impl)
    : BpInterface<IDVRCallback>(impl) {}

int BpDVRCallback::onRecordStart(int cbkId, int index, const char *fileName) {
    return notify<&IDVRCallback::onRecordStart>(remote(), TRANSACTION_onRecordStart,
                                                "onRecordStart", cbkId, index, fileName);
}

int BpDVRCallback::onRecordFinish(int cbkId, int index, const char *fileName) {
    return notify<&IDVRCallback::onRecordFinish>(remote(), TRANSACTION_onRecordFinish,
                                                 "onRecordFinish", cbkId, index, fileName);
}

int BpDVRCallback::onRecordError(int cbkId, int index, int errorCode) {
    return notify<&IDVRCallback::onRecordError>(remote(), TRANSACTION_onRecordError,
                                                "onRecordError", cbkId, index, errorCode);
}

int BpDVRCallback::onRecordErrorSevere(int cbkId, int index, int errorCode) {
    return notify<&IDVRCallback::onRecordErrorSevere>(
        remote(), TRANSACTION_onRecordErrorSevere, "onRecordErrorSevere", cbkId, index, errorCode);
}

int BpDVRCallback::onRecordAbnormal(int cbkId, int index, int value) {
    return notify<&IDVRCallback::onRecordAbnormal>(remote(), TRANSACTION_onRecordAbnormal,
                                                   "onRecordAbnormal", cbkId, index, value);
}

int BpDVRCallback::getStampString(int cbkId, int index, char *buffer) {
    return askClient(remote(), TRANSACTION_getStampString, cbkId, index, buffer,
                     kStampStringCapacity, nullptr);
}

int BpDVRCallback::fileNameGenerator(int cbkId, int index, char *buffer, int length) {
    return askClient(remote(), TRANSACTION_fileNameGenerator, cbkId, index, buffer, length,
                     &length);
}

}  // namespace dvrspace
