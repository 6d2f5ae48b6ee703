#include "BnDVRCallback.h"

#include <algorithm>
#include <vector>

#include "DVRCallbackTransactions.h"
#include "RemoteMethod.h"

namespace dvrspace {

namespace {

using namespace marshal;

// Reads a query, hands the client a buffer of the announced size holding the
// service's text (null when the service passed none) and replies with the
// client's status and text. askClient in the proxy is the other half.
template <typename Ask>
status_t answerQuery(const Parcel &data, Parcel *reply, bool lengthSent, Ask ask) {
    if (!data.enforceInterface(IDVRCallback::descriptor)) {
        return android::PERMISSION_DENIED;
    }
    int cbkId = 0;
    int index = 0;
    bool present = false;
    std::string text;
    int length = IDVRCallback::kStampStringCapacity;
    status_t status = readFields(data, &cbkId, &index);
    if (status == OK) {
        status = NullableText::read(data, &present, &text);
    }
    if (status == OK && lengthSent) {
        status = Value<int>::read(data, &length);
    }
    if (status != OK) {
        return status;
    }
    if (data.dataAvail() != 0 || length < 0 || length > IDVRCallback::kMaxFileNameCapacity) {
        return BAD_VALUE;
    }
    std::vector<char> buffer(static_cast<size_t>(std::max(length, 1)), '\0');
    if (text.size() >= buffer.size()) {
        return BAD_VALUE;
    }
    std::copy(text.begin(), text.end(), buffer.begin());
    const int result = ask(cbkId, index, present ? buffer.data() : nullptr, length);
    buffer.back() = '\0';  // the client may have filled every byte
    if (reply == nullptr) {
        return OK;
    }
    status = Value<int>::write(*reply, result);
    if (status == OK) {
        status = NullableText::write(*reply, present ? buffer.data() : nullptr);
    }
    return status;
}

}  // namespace

android::status_t BnDVRCallback::onTransact(uint32_t code, const android::Parcel &data,
                                            android::Parcel *reply, uint32_t flags) {
    switch (code) {
#define DVR_SERVE_TRANSACTION(name)                                                           \
    case TRANSACTION_##name:                                                                  \
        return RemoteMethod<decltype(&IDVRCallback::name)>::serve(*this, &IDVRCallback::name, \
                                                                  data, reply);
        DVR_IDVRCALLBACK_NOTIFICATIONS(DVR_SERVE_TRANSACTION)
#undef DVR_SERVE_TRANSACTION
        case TRANSACTION_getStampString:
            return answerQuery(data, reply, false, [this](int cbkId, int index, char *buffer, int) {
                return getStampString(cbkId, index, buffer);
            });
        case TRANSACTION_fileNameGenerator:
            return answerQuery(data, reply, true,
                               [this](int cbkId, int index, char *buffer, int length) {
                                   return fileNameGenerator(cbkId, index, buffer, length);
                               });
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace dvrspace
