// The IDVRCallback methods in interface order: transaction code
// FIRST_CALL_TRANSACTION + n is the n-th entry (from 0). The order is part of
// the wire protocol; new methods go at the end.
#ifndef DVR_INTERFACE_DVR_CALLBACK_TRANSACTIONS_H
#define DVR_INTERFACE_DVR_CALLBACK_TRANSACTIONS_H

#include <binder/IBinder.h>

#include "IDVRCallback.h"

// The notifications: marshalled wholly from their signatures.
#define DVR_IDVRCALLBACK_NOTIFICATIONS(X) \
    X(onRecordStart)                      \
    X(onRecordFinish)                     \
    X(onRecordError)                      \
    X(onRecordErrorSevere)                \
    X(onRecordAbnormal)

namespace dvrspace {

enum DVRCallbackTransaction : uint32_t {
    kDVRCallbackTransactionBeforeFirst = android::IBinder::FIRST_CALL_TRANSACTION - 1,
#define DVR_ENUMERATE_TRANSACTION(name) TRANSACTION_##name,
    DVR_IDVRCALLBACK_NOTIFICATIONS(DVR_ENUMERATE_TRANSACTION)
#undef DVR_ENUMERATE_TRANSACTION
    // The queries: their buffers need sizes that the signatures do not say.
    TRANSACTION_getStampString,
    TRANSACTION_fileNameGenerator,
    kDVRCallbackTransactionEnd
};

static_assert(kDVRCallbackTransactionEnd - android::IBinder::FIRST_CALL_TRANSACTION == 7,
              "IDVRCallback has seven methods");

}  // namespace dvrspace

#endif  // DVR_INTERFACE_DVR_CALLBACK_TRANSACTIONS_H
