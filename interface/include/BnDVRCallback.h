// The client side of IDVRCallback: unmarshals each call from the service, runs
// the client's method on the binder thread that received it and marshals the
// status and any text the client wrote. The client derives from it.
#ifndef DVR_BN_DVR_CALLBACK_H
#define DVR_BN_DVR_CALLBACK_H

#include "IDVRCallback.h"

namespace dvrspace {

class BnDVRCallback : public android::BnInterface<IDVRCallback> {
public:
    // Called by the binder library on a pool thread. A wrong interface token
    // gives PERMISSION_DENIED, a malformed request or an out-of-range buffer
    // length BAD_VALUE, an unknown code UNKNOWN_TRANSACTION; in those cases the
    // client's method does not run.
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dvrspace

#endif  // DVR_BN_DVR_CALLBACK_H
