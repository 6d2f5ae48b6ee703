// The service side of IDVR: unmarshals each call, runs the implementation's
// operation on the binder thread that received it and marshals the result and
// the out-parameters back. The service derives from it and implements IDVR.
#ifndef DVR_BN_DVR_H
#define DVR_BN_DVR_H

#include "IDVR.h"

namespace dvrspace {

class BnDVR : public android::BnInterface<IDVR> {
public:
    // Called by the binder library on a pool thread. A wrong interface token
    // gives PERMISSION_DENIED, a malformed or over-long request BAD_VALUE,
    // an unknown code UNKNOWN_TRANSACTION; in those cases no operation runs.
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags = 0) override;
};

}  // namespace dvrspace

#endif  // DVR_BN_DVR_H
