// The IDVR operations in interface order: transaction code
// FIRST_CALL_TRANSACTION + n is the n-th entry (from 0). The order is part of
// the wire protocol; new operations go at the end.
#ifndef DVR_INTERFACE_DVR_TRANSACTIONS_H
#define DVR_INTERFACE_DVR_TRANSACTIONS_H

#include <binder/IBinder.h>

#include "IDVR.h"

#define DVR_IDVR_OPERATIONS(X)    \
    X(registerCallback)           \
    X(unregisterCallback)         \
    X(establishCallback)          \
    X(destroyCallback)            \
    X(startRecordAll)             \
    X(stopRecordAll)              \
    X(applySettingsAll)           \
    X(abandonNewSettingsAll)      \
    X(factoryReset)               \
    X(setCameraSources)           \
    X(setAudioRecording)          \
    X(getAudioRecording)          \
    X(getCameraCount)             \
    X(getCamera)                  \
    X(getAudioCount)              \
    X(getAudio)                   \
    X(getSupportSamplingRate)     \
    X(getRecorderCount)           \
    X(getEncoder)                 \
    X(attachCamera)               \
    X(detachCamera)               \
    X(getAttachedCamera)          \
    X(attachAudio)                \
    X(detachAudio)                \
    X(getAttachedAudio)           \
    X(startRecord)                \
    X(stopRecord)                 \
    X(autoNextFile)               \
    X(nextFile)                   \
    X(setStoragePath)             \
    X(setFileNameFormat)          \
    X(applySettings)              \
    X(abandonNewSettings)         \
    X(takeSnapshot)               \
    X(setOutputFormat)            \
    X(setBitRate)                 \
    X(setFrameRate)               \
    X(setResolution)              \
    X(setFileLength)              \
    X(setTimestamp)               \
    X(setSelfDefinedStamp)        \
    X(isSettingChanged)           \
    X(getCurrentState)            \
    X(getEncoderCapability)       \
    X(getOutputFormat)            \
    X(getBitRate)                 \
    X(getFrameRate)               \
    X(getResolution)              \
    X(getFileLength)              \
    X(getTimestampSetting)        \
    X(getSelfDefinedStampSetting) \
    X(getCameraCapability)        \
    X(getAudioCapability)         \
    X(setSamplingRate)

namespace dvrspace {

enum DVRTransaction : uint32_t {
    kDVRTransactionBeforeFirst = android::IBinder::FIRST_CALL_TRANSACTION - 1,
#define DVR_ENUMERATE_TRANSACTION(name) TRANSACTION_##name,
    DVR_IDVR_OPERATIONS(DVR_ENUMERATE_TRANSACTION)
#undef DVR_ENUMERATE_TRANSACTION
        kDVRTransactionEnd
};

constexpr uint32_t kDVROperationCount =
    kDVRTransactionEnd - android::IBinder::FIRST_CALL_TRANSACTION;
static_assert(kDVROperationCount == 54, "IDVR has 54 operations");

// The transaction code and name of one IDVR operation, looked up by its member
// pointer so a proxy method cannot pick another operation's code.
template <auto Method>
struct DVRTransactionOf;

#define DVR_DEFINE_TRANSACTION_OF(name)                      \
    template <>                                              \
    struct DVRTransactionOf<&IDVR::name> {                   \
        static constexpr uint32_t code = TRANSACTION_##name; \
        static constexpr const char *label = #name;          \
    };
DVR_IDVR_OPERATIONS(DVR_DEFINE_TRANSACTION_OF)
#undef DVR_DEFINE_TRANSACTION_OF

}  // namespace dvrspace

#endif  // DVR_INTERFACE_DVR_TRANSACTIONS_H
