// The service object's client side: subscriptions, attaching and detaching
// clients, client death, the fan-out of notifications to the callback thread
// and the synchronous queries for stamp texts and file names.
#define LOG_TAG "DVRService"

#include "DVR.h"

#include "DVRAssert.h"
#include "DVRLog.h"
#include "Recorder.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "DVR.cpp"

namespace dvrspace {

DVRResult_e DVR::registerCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVR_ASSERT(mCbkMgr != NULL);
    const int ret = mCbkMgr->addCallbackObject(pid, cbkId, type);
    if (ret != 0) {
        DVR_LOGE("Error when adding callback object: %d\n", ret);
        return DVR_FAILURE;
    }
    return DVR_SUCCESS;
}

DVRResult_e DVR::unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVR_ASSERT(mCbkMgr != NULL);
    const int ret = mCbkMgr->removeCallbackObject(pid, cbkId, type);
    if (ret != 0) {
        DVR_LOGE("Error when removing callback object: %d\n", ret);
        return DVR_FAILURE;
    }
    return DVR_SUCCESS;
}

DVRResult_e DVR::establishCallback(int pid, const android::sp<IDVRCallback> &callback) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVR_ASSERT(mCbkMgr != NULL);
    const int ret = mCbkMgr->addClient(pid, callback);
    if (ret != 0) {
        DVR_LOGE("Error when adding a client: %d\n", ret);
        return DVR_FAILURE;
    }
    android::sp<DVRDeathRecipient> recipient = new DVRDeathRecipient(this, callback, pid);
    // A local callback object cannot die apart from us; its failed link is harmless.
    android::IInterface::asBinder(callback)->linkToDeath(recipient, nullptr, 0);
    // An earlier recipient of this PID is released, not unlinked.
    mDeathRecipients[pid] = recipient;
    return DVR_SUCCESS;
}

DVRResult_e DVR::destroyCallback(int pid) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    return destroyCallbackInternal(pid) == 0 ? DVR_SUCCESS : DVR_FAILURE;
}

int DVR::destroyCallbackInternal(int pid) {
    DVR_ASSERT(mCbkMgr != NULL);
    const android::sp<IDVRCallback> callback = android::interface_cast<IDVRCallback>(
        android::IInterface::asBinder(mCbkMgr->getClient(pid)));
    if (callback == nullptr) {
        DVR_LOGE("Error when adding a client\n");
        return -1;
    }
    // operator[] on purpose: the entry stays (see mDeathRecipients).
    const android::sp<DVRDeathRecipient> &recipient = mDeathRecipients[pid];
    if (recipient != nullptr) {
        android::IInterface::asBinder(callback)->unlinkToDeath(recipient, nullptr, 0, nullptr);
    } else {
        DVR_LOGE("Death recipient not found! (PID=%d)\n", pid);
    }
    const int ret = mCbkMgr->removeClient(pid);
    if (ret != 0) {
        DVR_LOGE("Error when removing a client: %d\n", ret);
        return -1;
    }
    return 0;
}

void DVR::clientDied(int pid) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    for (int i = 0; i < mRecCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        // Without recorders (the encoder service went away) there is nothing to rename.
        if (recorder == NULL) {
            continue;
        }
        // The client can no longer name files.
        DVRResult_e eRet = recorder->autoNextFile(false);
        DVR_ASSERT(eRet == DVR_SUCCESS);
        eRet = recorder->setFileNameFormat(NULL, NULL);
        DVR_ASSERT(eRet == DVR_SUCCESS);
    }
    DVR_LOGW("Client died but keep recording\n");
    const int eRet = destroyCallbackInternal(pid);
    DVR_ASSERT(eRet == DVR_SUCCESS);
}

void DVR::doCallback(int index, DVRCbkObjType_e type, DVR_CbkCmd_e cmd, const char *text,
                     int value) {
    DVR_ASSERT(mCbkMgr != NULL);
    CallbackHandlerSet handlers;
    const int ret = mCbkMgr->findCallbackHandlers(type, handlers);
    DVR_ASSERT(ret == 0);
    // One record for the whole fan-out: the queue keeps its own copies.
    CbkInfo_t info;
    for (const auto &handler : handlers) {
        info.cbk =
            android::interface_cast<IDVRCallback>(android::IInterface::asBinder(handler.second));
        info.cbkId = handler.first;
        info.index = index;
        info.cmd = cmd;
        if (text != NULL) {
            info.text = text;
        }
        info.value = value;
        mCbkThread->triggerCallback(&info);
    }
}

bool DVR::_firstSubscriber(DVRCbkObjType_e type, int *cbkId,
                           android::sp<IDVRCallback> *cbkHandler) {
    DVR_ASSERT(mCbkMgr != NULL);
    CallbackHandlerSet handlers;
    const int ret = mCbkMgr->findCallbackHandlers(type, handlers);
    DVR_ASSERT(ret == 0);
    if (handlers.empty()) {
        return false;
    }
    // Only the first subscriber in set order answers.
    const auto &first = *handlers.begin();
    *cbkId = first.first;
    *cbkHandler =
        android::interface_cast<IDVRCallback>(android::IInterface::asBinder(first.second));
    return true;
}

void DVR::getStampFromUser(int index, char *pStamp) {
    int cbkId = 0;
    android::sp<IDVRCallback> cbkHandler;
    if (!_firstSubscriber(DVR_CBK_OBJ_STAMP, &cbkId, &cbkHandler)) {
        return;
    }
    if (cbkHandler == nullptr) {
        DVR_LOGE("cbkHandler is NULL\n");
        return;
    }
    const int status = cbkHandler->getStampString(cbkId, index, pStamp);
    if (status != 0) {
        DVR_LOGE("getStampString failed: %d\n", status);
    }
}

void DVR::getFileNameFromUser(int index, char *pRetFileName, int length) {
    DVR_ASSERT(pRetFileName != NULL);
    int cbkId = 0;
    android::sp<IDVRCallback> cbkHandler;
    if (!_firstSubscriber(DVR_CBK_OBJ_FILENAME, &cbkId, &cbkHandler)) {
        return;
    }
    if (cbkHandler == nullptr) {
        DVR_LOGE("cbkHandler is NULL\n");
        return;
    }
    const int status = cbkHandler->fileNameGenerator(cbkId, index, pRetFileName, length);
    if (status != 0) {
        DVR_LOGE("fileNameGenerator failed: %d\n", status);
    }
}

}  // namespace dvrspace
