#include <binder/Binder.h>

namespace android {

BpRefBase::BpRefBase(const sp<IBinder> &remote) : mRemote(remote) {}

BpRefBase::~BpRefBase() = default;

}  // namespace android
