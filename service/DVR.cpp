// The service object's construction, device discovery and teardown, its
// device tables and the plain reads of them. The control operations,
// the client callbacks and the system events live in the other DVR*.cpp
// files.
#define LOG_TAG "DVRService"

#include "DVR.h"

#include <cstdlib>

#include "DVRAssert.h"
#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVRInternal.h"
#include "DVRLog.h"
#include "Recorder.h"
#include "dvr_std.h"

namespace dvrspace {

using android::NO_ERROR;
using dvr_internal::kNotFound;
using dvr_internal::lookup;

namespace {

// The service's build options: fixed here, printed once at start-up.
constexpr int PERF_ANALYSIS = 0;
constexpr int DVR_LOG_LEVEL = 2;
constexpr int DVR_LOG_OUT_METHOD = 1;
constexpr int DUMP_2_FILE_ONCE = 0;
constexpr int ENCODER_USING_PA_CONTI = 1;
constexpr int PA_WITH_FLUSH_INV = 0;
constexpr int DATA_FEED_MODE = 1;

}  // namespace

// ------------------------------------------------------------ construction

DVR::DVR()
    : mRecorder(NULL),
      mCameraCount(0),
      mAudioCount(0),
      mRecCount(0),
      mSvcMonHandle(NULL),
      mSvcMonNotifyHdl(NULL),
      mSvcMsgr(NULL),
      mSvcReceiver(NULL),
      mIsSuspend(false),
      mRecordingMask(0),
      mTearingDown(false) {
    _dumpOptions();

    mSvcMonHandle = svc_mon_create();
    DVR_ASSERT(mSvcMonHandle != NULL);
    const int smRet = svc_mon_notify_start(mSvcMonHandle);
    DVR_ASSERT(smRet == SVC_MON_NOERROR);
    // The monitor may report from here on; its handler waits for the lock,
    // which the rest of the construction holds.
    std::lock_guard<std::mutex> serviceGuard(mLock);
    mSvcMonNotifyHdl = svc_mon_notify_add(mSvcMonHandle, SVC_MON_INIT_NAME, service_monitor, this);
    DVR_ASSERT(mSvcMonNotifyHdl != NULL);

    mSvcMsgr = system_extension::ServiceMessager::create();
    DVR_ASSERT(mSvcMsgr != NULL);
    mSvcReceiver = new DVRSvcReceiver(this, mSvcMsgr);
    DVR_LOGI("STD initialized\n");

    mCameraCount = initializeCameraDevice();
    mAudioCount = initializeAudioDevice();
    // A service without a camera still has one recorder.
    mRecCount = mCameraCount >= 1 ? mCameraCount : 1;
    initializeRecorder(mRecCount);

    mCbkMgr = std::make_shared<CallbackManager>(CBK_MANAGE_DROP_WITH_CLIENT);
    DVR_ASSERT(mCbkMgr != NULL);

    mSupportSamplingRate = calculateSupportSamplingRate();
    if (mSupportSamplingRate.empty()) {
        DVR_LOGE("Empty supported sampling rate\n");
        DVR_ASSERT(0);
    }
}

DVR::~DVR() {
    {
        std::lock_guard<std::mutex> serviceGuard(mLock);
        mTearingDown = true;
    }
    // No system message may reach a service being taken apart; the messager
    // goes first so that the receiver is idle when it is deleted.
    if (mSvcMsgr != NULL) {
        system_extension::ServiceMessager::destroy(mSvcMsgr);
        mSvcMsgr = NULL;
    }
    delete mSvcReceiver;
    mSvcReceiver = NULL;
    // The finalizers leave the device tables and the id maps empty.
    finalizeRecorder();
    mRecCount = 0;
    finalizeCameraDevice();
    finalizeAudioDevice();
    mDeathRecipients.clear();
    // Both handles are set for the object's whole life.
    svc_mon_notify_rm(mSvcMonHandle, mSvcMonNotifyHdl);
    svc_mon_notify_stop(mSvcMonHandle);
    svc_mon_destroy(mSvcMonHandle);
}

void DVR::_dumpOptions() {
    // Every line names the dump, as the device's logs always have.
    const char *const function = "dump_dvr_options";
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] DVR Service Options\n", function,
                        __LINE__);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] ===========================\n",
                        function, __LINE__);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] PERF_ANALYSIS         : %d\n", function,
                        __LINE__, PERF_ANALYSIS);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] DVR_LOG_LEVEL         : %d\n", function,
                        __LINE__, DVR_LOG_LEVEL);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] DVR_LOG_OUT_METHOD    : %d\n", function,
                        __LINE__, DVR_LOG_OUT_METHOD);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] DUMP_2_FILE_ONCE      : %d\n", function,
                        __LINE__, DUMP_2_FILE_ONCE);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] ENCODER_USING_PA_CONTI: %d\n", function,
                        __LINE__, ENCODER_USING_PA_CONTI);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] PA_WITH_FLUSH_INV     : %d\n", function,
                        __LINE__, PA_WITH_FLUSH_INV);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] DATA_FEED_MODE        : %d\n", function,
                        __LINE__, DATA_FEED_MODE);
    __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "[%s:%d] ===========================\n",
                        function, __LINE__);
}

// ------------------------------------------------------------ discovery

DVRCameraDevice *DVR::probeCameraDevice(int index) {
    DVRCameraDevice *listed = _getCameraFromList(index);
    if (listed != NULL) {
        return listed;
    }
    try {
        return DVRCameraDeviceFactory::getFactory()->createDevice(index);
    } catch (const DeviceNotReadyException &e) {
        DVR_LOGW("%s\n", e.what());
    } catch (const DeviceNumExceedException &e) {
        DVR_LOGW("%s\n", e.what());
    } catch (const DVRException &e) {
        throw DVRException(e.what());
    }
    return NULL;
}

DVRAudioDevice *DVR::probeAudioDevice(int index) {
    DVRAudioDevice *listed = _getAudioFromList(index);
    if (listed != NULL) {
        return listed;
    }
    return DVRAudioDeviceFactory::getFactory()->createDevice(index);
}

int DVR::initializeCameraDevice() {
    try {
        for (int i = 0;; ++i) {
            DVRCameraDevice *camera = probeCameraDevice(i);
            if (camera == NULL) {
                DVR_LOGI("Total %d camera devices supported\n", i);
                return i;
            }
            const int camId = camera->getID();
            const int existing = findCameraIndex(camId);
            // A rediscovery finds the listed devices again under their own index.
            if (existing != kNotFound && existing != i) {
                DVR_LOGE("Mapping exists! (camId:%d --> index:%d)\n", camId, existing);
                DVR_ASSERT(0);
            }
            mCamIdMap[camId] = i;
            mCameraList[i] = camera;
        }
    } catch (const DVRException &e) {
        DVR_LOGE("%s [exit]\n", e.what());
        exit(-1);
    }
}

int DVR::initializeAudioDevice() {
    DVR_ASSERT(mAudIdMap.empty());
    DVR_ASSERT(mAudioList.empty());
    int count = 0;
    for (;; ++count) {
        DVRAudioDevice *audio = probeAudioDevice(count);
        if (audio == NULL) {
            break;
        }
        // A repeated id overwrites the earlier index: audio ids are not checked.
        mAudIdMap[audio->getID()] = count;
        mAudioList[count] = audio;
    }
    DVR_LOGI("Total %d audio input devices supported\n", count);
    return count;
}

void DVR::initializeRecorder(int count) {
    if (count <= 0) {
        DVR_LOGE("Invalid recorder count: %d\n", count);
        return;
    }
    // A thread being replaced delivers what it holds and ends: released
    // while running, it would hold itself alive forever.
    if (mCbkThread != NULL) {
        const android::status_t st = mCbkThread->exitAndWait();
        DVR_ASSERT(st == 0);
    }
    // Runs before any recorder exists: the registry is made only afterwards,
    // so nothing can be delivered from a recorder's constructor.
    mCbkThread = new DVRCallbackThread();
    const android::status_t st = mCbkThread->run("DVR Callback Thread", 0, 0);
    DVR_ASSERT(st == NO_ERROR);

    if (mRecorder != NULL) {
        DVR_LOGW("Recorder(s) already initialized\n");
        for (int i = 0; i < count; ++i) {
            DVR_ASSERT(mRecorder[i] != NULL);
        }
        return;
    }
    mRecorder = static_cast<Recorder **>(malloc(sizeof(Recorder *) * count));
    DVR_ASSERT(mRecorder != NULL);
    for (int i = 0; i < count; ++i) {
        mRecorder[i] = new Recorder(i, *this);
        mEncIdMap[mRecorder[i]->getEncoderId()] = i;
    }
    DVR_LOGI("Recorder(s) initialized\n");
}

std::set<unsigned int> DVR::calculateSupportSamplingRate() {
    DVRAudioDevice *pAud = _getAudioFromList(0);
    DVR_ASSERT(pAud != NULL);
    DVR_ASSERT(mRecorder[0] != NULL);
    const std::set<unsigned int> encoderRates = mRecorder[0]->encoderSamplingRate();
    const std::set<unsigned int> audioRates = pAud->getSupportedSamplingRates();
    std::set<unsigned int> both;
    auto a = encoderRates.begin();
    auto b = audioRates.begin();
    while (a != encoderRates.end() && b != audioRates.end()) {
        if (*a < *b) {
            ++a;
        } else if (*b < *a) {
            ++b;
        } else {
            both.insert(*a);
            ++a;
            ++b;
        }
    }
    return both;
}

void DVR::finalizeRecorder() {
    if (mRecorder == NULL) {
        DVR_LOGW("Recorder(s) already finalized\n");
    } else {
        for (int i = 0; i < mRecCount; ++i) {
            Recorder *recorder = mRecorder[i];
            if (recorder == NULL) {
                continue;
            }
            recorder->detachCamera();
            recorder->detachAudio();
            mEncIdMap.erase(recorder->getEncoderId());
            delete recorder;
            mRecorder[i] = NULL;
        }
        free(mRecorder);
        mRecorder = NULL;
        DVR_LOGI("Recorder(s) finalized\n");
    }
    if (mCbkThread != NULL) {
        const android::status_t st = mCbkThread->exitAndWait();
        DVR_ASSERT(st == 0);
        mCbkThread.clear();
    }
}

void DVR::finalizeCameraDevice() {
    for (int i = 0; i < mCameraCount; ++i) {
        DVRCameraDevice *camera = _getCameraFromList(i);
        if (camera != NULL) {
            mCamIdMap.erase(camera->getID());
            mCameraList.erase(i);
            delete camera;
        }
    }
    mCameraCount = 0;
    DVR_LOGI("All Camera device(s) finalized\n");
}

void DVR::finalizeAudioDevice() {
    for (int i = 0; i < mAudioCount; ++i) {
        DVRAudioDevice *audio = _getAudioFromList(i);
        if (audio != NULL) {
            mAudIdMap.erase(audio->getID());
            mAudioList.erase(i);
            delete audio;
        }
    }
    DVR_ASSERT(mAudIdMap.empty());
    DVR_ASSERT(mAudioList.empty());
    mAudioCount = 0;
    DVR_LOGI("All Audio device(s) finalized\n");
}

int DVR::findCameraIndex(int camId) {
    return lookup(mCamIdMap, camId);
}

int DVR::findAudioIndex(int audId) {
    return lookup(mAudIdMap, audId);
}

int DVR::findEncoderIndex(int encId) {
    return lookup(mEncIdMap, encId);
}

DVRCameraDevice *DVR::_getCameraFromList(int index) {
    const auto it = mCameraList.find(index);
    return it == mCameraList.end() ? NULL : it->second;
}

DVRAudioDevice *DVR::_getAudioFromList(int index) {
    const auto it = mAudioList.find(index);
    return it == mAudioList.end() ? NULL : it->second;
}

Recorder *DVR::_recorderAt(int index) const {
    return mRecorder == NULL ? NULL : mRecorder[index];
}

void DVR::copyAudioCaps(AudioDeviceCaps_t *out, const DVRAudioCaps_t &in) {
    out->caps[0] = in.channels;
    out->caps[1] = in.bitsPerSample;
}

int DVR::getCameraCount() {
    return mCameraCount;
}

int DVR::getAudioCount() {
    return mAudioCount;
}

int DVR::getRecorderCount() {
    return mRecCount;
}

std::set<unsigned int> DVR::getSupportSamplingRate() {
    return mSupportSamplingRate;
}

}  // namespace dvrspace
