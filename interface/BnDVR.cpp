#include "BnDVR.h"

#include "DVRTransactions.h"
#include "RemoteMethod.h"

namespace dvrspace {

android::status_t BnDVR::onTransact(uint32_t code, const android::Parcel &data,
                                    android::Parcel *reply, uint32_t flags) {
    switch (code) {
#define DVR_SERVE_TRANSACTION(name) \
    case TRANSACTION_##name:        \
        return marshal::RemoteMethod<decltype(&IDVR::name)>::serve(*this, &IDVR::name, data, reply);
        DVR_IDVR_OPERATIONS(DVR_SERVE_TRANSACTION)
#undef DVR_SERVE_TRANSACTION
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

}  // namespace dvrspace
