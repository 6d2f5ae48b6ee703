// Feeds arbitrary requests to BnDVR::onTransact and BnDVRCallback::onTransact.
// Input: one byte choosing the stub and whether a valid interface token goes
// first, one byte for the transaction code (a few past the last one too),
// then the request's bytes.
#include <binder/Parcel.h>

#include <cstddef>
#include <cstdint>

#include "RecordingCallback.h"
#include "RecordingDVR.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
    if (size < 2) {
        return 0;
    }
    const bool toCallback = (input[0] & 1) != 0;
    const bool withToken = (input[0] & 2) != 0;
    const uint32_t code = android::IBinder::FIRST_CALL_TRANSACTION + input[1] % 64;

    android::Parcel data;
    if (withToken) {
        data.writeInterfaceToken(toCallback ? dvrspace::IDVRCallback::descriptor
                                            : dvrspace::IDVR::descriptor);
    }
    if (size > 2) {
        // binder's Parcel mishandles a zero-length write into an empty parcel.
        data.write(input + 2, size - 2);
    }
    data.setDataPosition(0);
    android::Parcel reply;
    if (toCallback) {
        const android::sp<dvrtest::RecordingCallback> callback =
            new dvrtest::RecordingCallback("stamp", "name");
        callback->transact(code, data, &reply);
    } else {
        static const android::sp<dvrtest::RecordingDVR> service =
            new dvrtest::RecordingDVR(dvrtest::RecordingDVR::Plan(), "/dev/null");
        service->transact(code, data, &reply);
    }
    return 0;
}
