#define LOG_TAG "DVR_STD"

#include "dvr_std.h"

#include <cstdlib>
#include <cstring>

#include "DVR.h"
#include "DVRAssert.h"
#include "DVRLog.h"

namespace dvrspace {

namespace {

constexpr const char *kDefaultSvcName = "dvr_server";
constexpr const char *kHibernationState = "hibernationstate";

const char *translate_suspend_result(DVRSTDResult_e result) {
    switch (result) {
        case DVR_STD_SUCCESS:
            return "suspendsuccess";
        case DVR_STD_IGNORED:
            return "suspendignored";
        case DVR_STD_FAILED:
            return "suspendfailed";
    }
    DVR_LOGE("Unknown STD result: %d\n", result);
    DVR_ASSERT(0);
    return NULL;
}

const char *translate_resume_result(DVRSTDResult_e result) {
    switch (result) {
        case DVR_STD_SUCCESS:
            return "resumesuccess";
        case DVR_STD_IGNORED:
            return "resumeignored";
        case DVR_STD_FAILED:
            return "resumefailed";
    }
    DVR_LOGE("Unknown STD result: %d\n", result);
    DVR_ASSERT(0);
    return NULL;
}

}  // namespace

DVRSvcReceiver::DVRSvcReceiver(DVR *dvr, system_extension::ServiceMessager *msgr)
    : mDvr(dvr), mMsgr(msgr) {
    DVR_ASSERT(dvr != NULL);
    DVR_ASSERT(msgr != NULL);
    DVR_LOGI("CONSTRUCTOR\n");
    const char *name = getenv("SVC_NAME");
    if (name == NULL) {
        DVR_LOGE("CANNOT get SVC_NAME, use default '%s'", kDefaultSvcName);
        name = kDefaultSvcName;
    }
    mSvcName = name;
    mMsgr->registerReceiver(mSvcName, this);
}

DVRSvcReceiver::~DVRSvcReceiver() = default;

void DVRSvcReceiver::onMessageReceived(const std::string &name, const std::string &message,
                                       const std::string &value) {
    if (name != mSvcName || message != kHibernationState) {
        return;
    }
    const char *reply = NULL;
    if (value == "suspendbegin") {
        reply = translate_suspend_result(mDvr->onSuspend());
    } else if (value == "resumebegin") {
        reply = translate_resume_result(mDvr->onResume());
    } else if (value == "resumesuccess" || value == "resumeignored") {
        // Deletes this receiver: nothing of it may be touched afterwards.
        mDvr->onResumeSuccess();
        return;
    }
    if (reply == NULL) {
        return;
    }
    const int ret = mMsgr->sendMessage(mSvcName, message, reply);
    if (ret != 0) {
        DVR_LOGE("ServiceMessager::sendMessage(%s, %s, %s) failed: %d\n", mSvcName.c_str(),
                 message.c_str(), reply, ret);
    }
}

void service_monitor(const char *svc_name, const svc_state_t *state_data, int count,
                     void *context) {
    DVR_ASSERT(0 == strcmp(svc_name, SVC_MON_INIT_NAME));
    DVR *dvr = static_cast<DVR *>(context);
    DVR_ASSERT(dvr != NULL);
    DVR_ASSERT(state_data != NULL);
    DVR_ASSERT(state_data[0].key != NULL && state_data[0].value != NULL);
    dvr->serviceMonitor(state_data, count);
}

}  // namespace dvrspace
