// The service object and the system around it: suspend and resume from the
// message channel, and the service monitor's reports of the encoder, camera
// and audio services.
#define LOG_TAG "DVRService"

#include "DVR.h"

#include <unistd.h>

#include <cstring>

#include "DVRAssert.h"
#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"
#include "DVRLog.h"
#include "Recorder.h"
#include "dvr_std.h"
#include "dvr_utils.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "DVR.cpp"

namespace dvrspace {

namespace {

constexpr int kSuspendPolls = 800;
constexpr useconds_t kSuspendPollUs = 10000;

constexpr const char *kRunning = "running";
constexpr const char *kStopped = "stopped";
constexpr const char *kRestarting = "restarting";

}  // namespace

// ------------------------------------------------------------ suspend and resume

DVRSTDResult_e DVR::onSuspend() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    mIsSuspend = true;
    DVRSTDResult_e result = DVR_STD_SUCCESS;
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder != NULL) {
            int cnt_down = kSuspendPolls;
            DVRStm_e state = recorder->getCurrentState();
            while (state == DVR_STM_STOPPING && cnt_down > 0) {
                usleep(kSuspendPollUs);
                --cnt_down;
                state = recorder->getCurrentState();
            }
            if (state == DVR_STM_STOPPING) {
                DVR_LOGE("Timeout (cnt_down=%d)\n", cnt_down);
                result = DVR_STD_FAILED;
                continue;
            }
            if (state == DVR_STM_RECORDING || state == static_cast<DVRStm_e>(-1)) {
                // The client stops its recordings; suspend never does.
                DVR_LOGE("Recorder #%d is under %s, NOT ready to suspend\n", i,
                         stm_toString(state));
                DVR_LOGE("NOT ready to suspend!\n");
                result = DVR_STD_FAILED;
                break;
            }
            const int ret = recorder->onSuspend();
            if (ret != 0) {
                DVR_LOGE("Encoder device[%d] suspend failed: %d\n", i, ret);
                DVR_LOGE("NOT ready to suspend!\n");
                result = DVR_STD_FAILED;
                break;
            }
        }
        if (result == DVR_STD_FAILED) {
            // This index's encoder is suspended by now; the order is kept.
            DVR_LOGE("NOT ready to suspend!\n");
            break;
        }
        DVRCameraDevice *pCam = _getCameraFromList(i);
        DVR_ASSERT(pCam != NULL);
        const int ret = pCam->suspend();
        if (ret != 0) {
            DVR_LOGE("Camera device[%d] suspend failed: %d\n", i, ret);
            return DVR_STD_FAILED;
        }
    }
    // Audio inputs are suspended whatever happened to the channels.
    for (int j = 0; j < mAudioCount; ++j) {
        DVRAudioDevice *pAud = _getAudioFromList(j);
        DVR_ASSERT(pAud != NULL);
        const int ret = pAud->suspend();
        if (ret != 0) {
            DVR_LOGE("Audio device[%d] suspend failed: %d\n", j, ret);
            return DVR_STD_FAILED;
        }
    }
    return result;
}

DVRSTDResult_e DVR::onResume() {
    if (mRecorder == NULL) {
        DVR_LOGE("Invalid NULL mRecorder\n");
        return DVR_STD_FAILED;
    }
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = mRecorder[i];
        if (recorder == NULL) {
            DVR_LOGE("Invalid mRecorder[%d] to be NULL\n", i);
            return DVR_STD_FAILED;
        }
        int ret = recorder->onResume();
        if (ret != 0) {
            DVR_LOGE("Encoder device[%d] resume failed: %d\n", i, ret);
            return DVR_STD_FAILED;
        }
        recorder->readSettingsFromConfig();
        DVRCameraDevice *pCam = _getCameraFromList(i);
        if (pCam == NULL) {
            DVR_LOGE("Camera device[%d] NOT FOUND!\n", i);
            return DVR_STD_FAILED;
        }
        ret = pCam->resume();
        if (ret == DVR_STD_IGNORED) {
            // The devices after this one stay suspended.
            DVR_LOGW("Camera device[%d] cause recoverable error: %d\n", i, ret);
            return DVR_STD_IGNORED;
        }
        if (ret == DVR_STD_FAILED) {
            DVR_LOGE("Camera device[%d] resume failed: %d\n", i, ret);
            return DVR_STD_FAILED;
        }
    }
    for (int j = 0; j < mAudioCount; ++j) {
        DVRAudioDevice *pAud = _getAudioFromList(j);
        DVR_ASSERT(pAud != NULL);
        const int ret = pAud->resume();
        if (ret == DVR_STD_IGNORED) {
            DVR_LOGW("Audio device[%d] cause recoverable error: %d\n", j, ret);
            return DVR_STD_IGNORED;
        }
        if (ret == DVR_STD_FAILED) {
            DVR_LOGE("Audio device[%d] resume failed: %d\n", j, ret);
            return DVR_STD_FAILED;
        }
    }
    return DVR_STD_SUCCESS;
}

void DVR::onResumeSuccess() {
    delete mSvcReceiver;
    mSvcReceiver = NULL;
    if (mSvcMsgr != NULL) {
        system_extension::ServiceMessager::destroy(mSvcMsgr);
        mSvcMsgr = NULL;
    }
    mIsSuspend = false;
    DVR_LOGI("STD finalized\n");
}

// ------------------------------------------------------------ service monitoring

void DVR::serviceMonitor(const svc_state_t *states, int count) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    if (mTearingDown) {
        return;
    }
    const char *encoderService = DVREncoderFactory::getFactory()->getServiceName();
    const char *cameraService = DVRCameraDeviceFactory::getFactory()->getServiceName();
    const char *audioService = DVRAudioDeviceFactory::getFactory()->getServiceName();
    for (int i = 0; i < count; ++i) {
        const char *who = states[i].key;
        const char *status = states[i].value;
        DVR_ASSERT(who != NULL && status != NULL);
        const bool isEncoder = strcmp(who, encoderService) == 0;
        const bool isCamera = !isEncoder && strcmp(who, cameraService) == 0;
        const bool isAudio = !isEncoder && !isCamera && strcmp(who, audioService) == 0;
        if (!isEncoder && !isCamera && !isAudio) {
            continue;
        }
        DVR_LOGI("%s: %s\n", who, status);
        if (strcmp(status, kRunning) == 0) {
            if (isCamera) {
                mCameraCount = initializeCameraDevice();
            } else if (isAudio && mAudioList.empty()) {
                // Audio inputs that are still listed stay: rediscovery
                // requires empty tables.
                mAudioCount = initializeAudioDevice();
            }
            _rebuildRecorders();
        } else if (strcmp(status, kStopped) == 0 || strcmp(status, kRestarting) == 0) {
            abnormal();
            if (isCamera) {
                finalizeCameraDevice();
            } else if (isAudio) {
                finalizeAudioDevice();
            }
            if (strcmp(status, kStopped) == 0) {
                startServiceAndWait(who);
            }
        }
    }
}

void DVR::_rebuildRecorders() {
    if (mCameraCount <= 0) {
        mRecCount = 1;
    } else {
        DVR_ASSERT(mRecCount == mCameraCount);
    }
    initializeRecorder(mRecCount);
}

void DVR::abnormal() {
    DVR_LOGW("IN\n");
    for (int i = 0; i < mRecCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder != NULL) {
            recorder->abnormal();
        } else {
            DVR_LOGW("Recorder #%d does NOT exist!\n", i);
        }
    }
    const DVRResult_e ret = stopRecordAllInternal();
    if (ret == DVR_INVALID_OPERATION) {
        // Channels that were not recording refuse the stop: expected here.
        DVR_LOGW("stopRecordAllInternal failed: %d\n", ret);
    } else if (ret != DVR_SUCCESS) {
        DVR_LOGE("stopRecordAllInternal failed: %d\n", ret);
        DVR_ASSERT(0);
    }
    finalizeRecorder();
}

}  // namespace dvrspace
