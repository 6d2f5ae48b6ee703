#define LOG_TAG "DVRService"

#include "DVR.h"

#include "DVRAssert.h"
#include "DVRLog.h"
#include "DVRTypes.h"
#include "IDVRCallback.h"

namespace dvrspace {

DVR::DVR() : mIsSuspend(false) {
    mCbkMgr = std::make_shared<CallbackManager>(CBK_MANAGE_DROP_WITH_CLIENT);
    DVR_ASSERT(mCbkMgr != NULL);
    mSvcMonHandle = svc_mon_create();
    DVR_ASSERT(mSvcMonHandle != NULL);
}

DVR::~DVR() {
    svc_mon_destroy(mSvcMonHandle);
}

void DVR::getFileNameFromUser(int index, char *pRetFileName, int length) {
    DVR_ASSERT(pRetFileName != NULL);
    DVR_ASSERT(mCbkMgr != NULL);
    CallbackHandlerSet handlers;
    const int ret = mCbkMgr->findCallbackHandlers(DVR_CBK_OBJ_FILENAME, handlers);
    DVR_ASSERT(ret == 0);
    if (handlers.empty()) {
        return;
    }
    // Only the first subscriber in set order names files.
    const auto &first = *handlers.begin();
    android::sp<IDVRCallback> cbkHandler =
        android::interface_cast<IDVRCallback>(android::IInterface::asBinder(first.second));
    if (cbkHandler == nullptr) {
        DVR_LOGE("cbkHandler is NULL\n");
        return;
    }
    const int status = cbkHandler->fileNameGenerator(first.first, index, pRetFileName, length);
    if (status != 0) {
        DVR_LOGE("fileNameGenerator failed: %d\n", status);
    }
}

}  // namespace dvrspace
