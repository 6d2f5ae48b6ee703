#include "DVRClient.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <cstdlib>

namespace dvrspace {

DVRClient::DVRClient(std::string serviceName)
    : mServiceName(std::move(serviceName)), mPid(getpid()) {}

DVRClient::~DVRClient() {
    detach();
}

bool DVRClient::connect(int timeoutMs) {
    // Before the first call: a callback may arrive while that call waits.
    android::ProcessState::self()->startThreadPool();
    const android::sp<android::IBinder> binder = android::defaultServiceManager()->waitForService(
        android::String16(mServiceName.c_str()), timeoutMs);
    mService = android::interface_cast<IDVR>(binder);
    if (mService == nullptr) {
        const char *directory = getenv("DVR_BINDER_DIR");
        mError = "the service '" + mServiceName + "' did not appear within " +
                 std::to_string(timeoutMs) + " ms in " +
                 (directory != nullptr && directory[0] != '\0'
                      ? std::string("DVR_BINDER_DIR=") + directory
                      : std::string("the default binder directory (DVR_BINDER_DIR is not set)"));
        return false;
    }
    mError.clear();
    return true;
}

bool DVRClient::serviceAlive() const {
    return mService != nullptr && android::IInterface::asBinder(mService)->isBinderAlive();
}

int DVRClient::listen(const android::sp<IDVRCallback> &callback,
                      std::initializer_list<DVRCbkObjType_e> types) {
    if (mService == nullptr || callback == nullptr) {
        mError = mService == nullptr ? "not connected" : "no callback object";
        return DVR_INVALID_ARGUMENT;
    }
    const int established = mService->establishCallback(mPid, callback);
    if (established != DVR_SUCCESS) {
        mError =
            "establishCallback(" + std::to_string(mPid) + ") gave " + std::to_string(established);
        return established;
    }
    mCallback = callback;
    for (const DVRCbkObjType_e type : types) {
        const int registered = mService->registerCallback(mPid, type, type);
        if (registered != DVR_SUCCESS) {
            mError = "registerCallback for type " + std::to_string(type) + " gave " +
                     std::to_string(registered);
            return registered;
        }
        mSubscribed.push_back(type);
    }
    mError.clear();
    return DVR_SUCCESS;
}

void DVRClient::detach() {
    if (mCallback == nullptr || !serviceAlive()) {
        return;
    }
    for (const DVRCbkObjType_e type : mSubscribed) {
        mService->unregisterCallback(mPid, type, type);
    }
    mSubscribed.clear();
    mService->destroyCallback(mPid);
    mCallback.clear();
}

}  // namespace dvrspace
