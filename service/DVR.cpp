#define LOG_TAG "DVRService"

#include "DVR.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "DVRAssert.h"
#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"
#include "DVRLog.h"
#include "Recorder.h"
#include "dvr_std.h"
#include "dvr_utils.h"

namespace dvrspace {

using android::NO_ERROR;

namespace {

constexpr int kNotFound = -99;

// The service's build options: fixed here, printed once at start-up.
constexpr int PERF_ANALYSIS = 0;
constexpr int DVR_LOG_LEVEL = 2;
constexpr int DVR_LOG_OUT_METHOD = 1;
constexpr int DUMP_2_FILE_ONCE = 0;
constexpr int ENCODER_USING_PA_CONTI = 1;
constexpr int PA_WITH_FLUSH_INV = 0;
constexpr int DATA_FEED_MODE = 1;

// The callback thread's interval while something records, and when idle.
constexpr int32_t kRecordingIntervalUs = 30000;
constexpr int32_t kIdleIntervalUs = 300000;

constexpr int kSuspendPolls = 800;
constexpr useconds_t kSuspendPollUs = 10000;

constexpr const char *kRunning = "running";
constexpr const char *kStopped = "stopped";
constexpr const char *kRestarting = "restarting";

int lookup(const std::map<int, int> &map, int id) {
    const auto it = map.find(id);
    return it == map.end() ? kNotFound : it->second;
}

// How a kind of id reads in the lookup lines.
struct IdKind {
    const char *device;     // "Camera"
    const char *lowercase;  // "camera"
    const char *argument;   // "cam_id"
};
constexpr IdKind kCameraIds{"Camera", "camera", "cam_id"};
constexpr IdKind kAudioIds{"Audio", "audio", "aud_id"};
constexpr IdKind kEncoderIds{"Encoder", "encoder", "enc_id"};

// The table index of id, -1 after an ERROR line when id is unknown; an index
// outside 0..count-1 means the map is corrupt and aborts. The lines name the
// client's operation.
int lookupIndex(const char *function, const std::map<int, int> &map, int id, int count,
                const IdKind &kind) {
    const int index = lookup(map, id);
    if (index == kNotFound) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "[%s:%d] %s index not found with %s(%d)\n",
                            function, __LINE__, kind.device, kind.argument, id);
        return -1;
    }
    if (index < 0 || index >= count) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "[%s:%d] Unexpect %s index(%d) gotten from %s(%d)!\n", function,
                            __LINE__, kind.lowercase, index, kind.argument, id);
        DVR_ASSERT(0);
    }
    return index;
}

// The index under which a device is listed, -1 when it is not.
template <typename Device>
int listedIndex(const std::map<int, Device *> &list, const Device *device) {
    for (const auto &entry : list) {
        if (entry.second == device) {
            return entry.first;
        }
    }
    return -1;
}

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

// ------------------------------------------------------------ client callbacks

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

// ------------------------------------------------------------ control

DVRResult_e DVR::_logFailure(const char *function, int index, DVRResult_e result) {
    if (result != DVR_SUCCESS) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "[%s:%d] Recorder #%d failed with error code %d\n", function, __LINE__,
                            index, result);
    }
    return result;
}

template <typename Result, typename Call>
Result DVR::_inFrame(const char *function, int enc_id, Result unknownResult, Call call) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(function, enc_id);
    if (index < 0) {
        return unknownResult;
    }
    return call(*mRecorder[index]);
}

template <typename Call>
DVRResult_e DVR::_forward(const char *function, int enc_id, Call call) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(function, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    return _logFailure(function, index, call(*mRecorder[index]));
}

int DVR::_lookupEncoder(const char *function, int enc_id) {
    return lookupIndex(function, mEncIdMap, enc_id, mRecCount, kEncoderIds);
}

DVRResult_e DVR::startRecordInternal(int index) {
    const DVRResult_e result = mRecorder[index]->start();
    if (result == DVR_SUCCESS) {
        if (index < 32) {
            mRecordingMask |= 1u << index;
        }
        mCbkThread->setInterval(kRecordingIntervalUs);
    } else {
        DVR_LOGE("Recorder #%d failed with error code %d\n", index, result);
    }
    return result;
}

DVRResult_e DVR::stopRecordInternal(int index) {
    const DVRResult_e result = mRecorder[index]->stopAndWait();
    if (result == DVR_SUCCESS) {
        if (index < 32) {
            mRecordingMask &= ~(1u << index);
        }
        if (mRecordingMask == 0) {
            mCbkThread->setInterval(kIdleIntervalUs);
        }
    } else {
        DVR_LOGE("Recorder #%d failed with error code %d\n", index, result);
    }
    return result;
}

DVRResult_e DVR::stopRecordAllInternal() {
    DVRResult_e result = DVR_SUCCESS;
    for (int i = 0; i < mRecCount; ++i) {
        if (_recorderAt(i) == NULL) {
            DVR_LOGW("Recorder #%d does NOT exist!\n", i);
            continue;
        }
        const DVRResult_e ret = stopRecordInternal(i);
        if (ret != DVR_SUCCESS) {
            DVR_LOGE("Stop recorder #%d failed with error code %d\n", i, ret);
            result = ret;
        }
    }
    return result;
}

DVRResult_e DVR::startRecordAll() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRResult_e result = DVR_SUCCESS;
    for (int i = 0; i < mRecCount; ++i) {
        if (_recorderAt(i) == NULL) {
            DVR_LOGW("Recorder #%d not exist!\n", i);
            continue;
        }
        const DVRResult_e ret = startRecordInternal(i);
        if (ret != DVR_SUCCESS) {
            // Prints the result so far, not the new code: kept as the device does.
            DVR_LOGE("Start recorder #%d failed with error code %d\n", i, result);
            result = ret;
        }
    }
    return result;
}

DVRResult_e DVR::stopRecordAll() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    return stopRecordAllInternal();
}

DVRResult_e DVR::applySettingsAll() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRResult_e result = DVR_SUCCESS;
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder == NULL || recorder->getCurrentState() != DVR_STM_RECORDING) {
            continue;
        }
        // A restart is what makes staged settings take effect.
        DVRResult_e ret = stopRecordInternal(i);
        if (ret != DVR_SUCCESS) {
            DVR_LOGE("Stop recorder #%d failed: 0x%x\n", i, ret);
            result = ret;
        }
        ret = startRecordInternal(i);
        if (ret != DVR_SUCCESS) {
            DVR_LOGE("Start recorder #%d failed: 0x%x\n", i, ret);
            result = ret;
        }
    }
    return result;
}

DVRResult_e DVR::abandonNewSettingsAll() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder == NULL) {
            DVR_LOGW("Recorder #%d does NOT exist!\n", i);
            continue;
        }
        recorder->abandonNewSettings();
    }
    return DVR_SUCCESS;
}

DVRResult_e DVR::factoryReset() {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder == NULL) {
            DVR_LOGW("Recorder #%d does NOT exist!\n", i);
            continue;
        }
        recorder->resetSettings();
    }
    return DVR_SUCCESS;
}

DVRResult_e DVR::setCameraSources(int count, const std::vector<int> &sources) {
    for (int i = 0; i < mRecCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder == NULL) {
            continue;
        }
        const DVRStm_e state = recorder->getCurrentState();
        if (state != DVR_STM_IDLE && state != DVR_STM_READY) {
            DVR_LOGE("Recorder[%d] state=%d, cannot reconfig camera", i, state);
            return DVR_INVALID_OPERATION;
        }
    }
    DVRCameraDeviceFactory::getFactory()->setCameraSources(count, sources);
    finalizeRecorder();
    finalizeCameraDevice();
    mCameraCount = initializeCameraDevice();
    mRecCount = mCameraCount >= 1 ? mCameraCount : 1;
    initializeRecorder(mRecCount);
    return DVR_SUCCESS;
}

DVRResult_e DVR::setAudioRecording(int enc_id, bool enable) {
    if (enc_id == -1) {
        std::lock_guard<std::mutex> serviceGuard(mLock);
        for (int i = 0; i < mRecCount; ++i) {
            Recorder *recorder = _recorderAt(i);
            if (recorder == NULL) {
                continue;
            }
            const DVRResult_e eRet = recorder->setAudioRecording(enable);
            DVR_ASSERT(eRet == DVR_SUCCESS);
        }
        return DVR_SUCCESS;
    }
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    const DVRResult_e eRet = recorder->setAudioRecording(enable);
    DVR_ASSERT(eRet == DVR_SUCCESS);
    return DVR_SUCCESS;
}

bool DVR::getAudioRecording(int) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    for (int i = 0; i < mCameraCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder != NULL) {
            return recorder->getAudioRecording();
        }
    }
    DVR_LOGE("No recorder available! Return value is meaningless!\n");
    return false;
}

DVRResult_e DVR::getCamera(int index, int *camId, QVDVRDeviceType_e *type) {
    if (index < 0 || index >= mCameraCount) {
        DVR_LOGE("Invalid index %d\n", index);
        return DVR_INVALID_ARGUMENT;
    }
    if (camId == NULL || type == NULL) {
        DVR_LOGE("Invalid input parameter (pCamID=%p peType=%p)\n", camId, type);
        return DVR_INVALID_ARGUMENT;
    }
    DVRCameraDevice *camera = _getCameraFromList(index);
    if (camera == NULL) {
        DVR_LOGE("Fatal! Camera %d NOT found!\n", index);
        return DVR_FAILURE;
    }
    *camId = camera->getID();
    *type = camera->getDeviceType();
    return DVR_SUCCESS;
}

DVRResult_e DVR::getAudio(int index, int *audId) {
    if (index < 0 || index >= mAudioCount) {
        DVR_LOGE("Invalid index %d\n", index);
        return DVR_INVALID_ARGUMENT;
    }
    if (audId == NULL) {
        DVR_LOGE("Invalid input parameter (pAudID=%p)\n", audId);
        return DVR_INVALID_ARGUMENT;
    }
    DVRAudioDevice *audio = _getAudioFromList(index);
    if (audio == NULL) {
        DVR_LOGE("Fatal! Audio %d NOT found!\n", index);
        return DVR_FAILURE;
    }
    *audId = audio->getID();
    return DVR_SUCCESS;
}

DVRResult_e DVR::getEncoder(int index, int *encId) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    if (index < 0 || index >= mRecCount) {
        DVR_LOGE("Invalid index %d\n", index);
        return DVR_INVALID_ARGUMENT;
    }
    if (encId == NULL) {
        DVR_LOGE("Invalid input parameter (pEncID=%p)\n", encId);
        return DVR_INVALID_ARGUMENT;
    }
    Recorder *recorder = _recorderAt(index);
    // Between a service failure and its rebuild there are no recorders.
    if (recorder == NULL) {
        DVR_LOGE("Recorder #%d does NOT exist!\n", index);
        return DVR_FAILURE;
    }
    *encId = recorder->getEncoderId();
    return DVR_SUCCESS;
}

DVRResult_e DVR::attachCamera(int enc_id, int cam_id) {
    const int camIndex = lookupIndex(__func__, mCamIdMap, cam_id, mCameraCount, kCameraIds);
    if (camIndex < 0) {
        return DVR_FAILURE;
    }
    const int encIndex = _lookupEncoder(__func__, enc_id);
    if (encIndex < 0) {
        return DVR_FAILURE;
    }
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRCameraDevice *camera = _getCameraFromList(camIndex);
    if (camera == NULL) {
        DVR_LOGE("Fatal! Camera %d NOT found!\n", cam_id);
        return DVR_INVALID_ARGUMENT;
    }
    mRecorder[encIndex]->attachCamera(camera);
    return DVR_SUCCESS;
}

DVRResult_e DVR::attachAudio(int enc_id, int aud_id) {
    const int audIndex = lookupIndex(__func__, mAudIdMap, aud_id, mAudioCount, kAudioIds);
    if (audIndex < 0) {
        return DVR_FAILURE;
    }
    const int encIndex = _lookupEncoder(__func__, enc_id);
    if (encIndex < 0) {
        return DVR_FAILURE;
    }
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRAudioDevice *audio = _getAudioFromList(audIndex);
    if (audio == NULL) {
        DVR_LOGE("Fatal! Audio %d NOT found!\n", aud_id);
        return DVR_INVALID_ARGUMENT;
    }
    mRecorder[encIndex]->attachAudio(audio);
    return DVR_SUCCESS;
}

DVRResult_e DVR::detachCamera(int enc_id) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    recorder->detachCamera();
    return DVR_SUCCESS;
}

DVRResult_e DVR::detachAudio(int enc_id) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    recorder->detachAudio();
    return DVR_SUCCESS;
}

DVRResult_e DVR::getAttachedCamera(int enc_id, int *pRetIndex) {
    DVR_ASSERT(pRetIndex != NULL);
    const int enc_index = findEncoderIndex(enc_id);
    DVR_ASSERT(enc_index >= 0 && enc_index < mRecCount);
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRCameraDevice *camera = mRecorder[enc_index]->getCameraDevice();
    if (camera == NULL) {
        DVR_LOGE("Cannot get camera from Recorder[%d]\n", enc_index);
        return DVR_FAILURE;
    }
    const int index = listedIndex(mCameraList, camera);
    if (index >= 0) {
        *pRetIndex = index;
        return DVR_SUCCESS;
    }
    DVR_LOGE("Attached camera(%p) not found in list\n", camera);
    return DVR_FAILURE;
}

DVRResult_e DVR::getAttachedAudio(int enc_id, int *pRetIndex) {
    DVR_ASSERT(pRetIndex != NULL);
    const int enc_index = findEncoderIndex(enc_id);
    DVR_ASSERT(enc_index >= 0 && enc_index < mRecCount);
    std::lock_guard<std::mutex> serviceGuard(mLock);
    DVRAudioDevice *audio = mRecorder[enc_index]->getAudioDevice();
    if (audio == NULL) {
        DVR_LOGE("Cannot get audio from Recorder[%d]\n", enc_index);
        return DVR_FAILURE;
    }
    const int index = listedIndex(mAudioList, audio);
    if (index >= 0) {
        *pRetIndex = index;
        return DVR_SUCCESS;
    }
    DVR_LOGE("Attached audio(%p) not found in list\n", audio);
    return DVR_FAILURE;
}

DVRResult_e DVR::startRecord(int enc_id) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    return _logFailure(__func__, index, startRecordInternal(index));
}

DVRResult_e DVR::stopRecord(int enc_id) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    return _logFailure(__func__, index, stopRecordInternal(index));
}

DVRResult_e DVR::autoNextFile(int enc_id, bool enable) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.autoNextFile(enable); });
}

DVRResult_e DVR::nextFile(int enc_id, const char *fileName) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.nextFile(fileName); });
}

DVRResult_e DVR::setStoragePath(int enc_id, const char *path) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.setStoragePath(path); });
}

DVRResult_e DVR::setFileNameFormat(int enc_id, const char *format, const char *timeFormat) {
    return _forward(__func__, enc_id, [&](Recorder &recorder) {
        return recorder.setFileNameFormat(format, timeFormat);
    });
}

DVRResult_e DVR::applySettings(int enc_id) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    // Staged settings take effect at a start: a recording channel restarts,
    // any other keeps them until its own next start.
    if (recorder->getCurrentState() != DVR_STM_RECORDING) {
        return DVR_SUCCESS;
    }
    const DVRResult_e ret = stopRecordInternal(index);
    if (ret != DVR_SUCCESS) {
        return ret;
    }
    return startRecordInternal(index);
}

DVRResult_e DVR::abandonNewSettings(int enc_id) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.abandonNewSettings(); });
}

DVRResult_e DVR::takeSnapshot(int enc_id, SnapshotPA_t &snapshot) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    if (recorder == NULL) {
        DVR_LOGE("Recorder[%d] is null\n", index);
        return DVR_FAILURE;
    }
    return _logFailure(__func__, index, recorder->takeSnapshot(snapshot));
}

DVRResult_e DVR::setOutputFormat(int enc_id, DVRFileFormat_e format) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.setOutputFormat(format); });
}

DVRResult_e DVR::setBitRate(int enc_id, int bitRate) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.setBitRate(bitRate); });
}

DVRResult_e DVR::setFrameRate(int enc_id, int frameRate) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.setFrameRate(frameRate); });
}

DVRResult_e DVR::setResolution(int enc_id, DVRResolution_e resolution) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    static const struct {
        int width;
        int height;
    } kSizes[] = {{-1, -1}, {1920, 1080}, {1280, 720}, {720, 480}};
    const unsigned int value = static_cast<unsigned int>(resolution);
    if (value >= sizeof(kSizes) / sizeof(kSizes[0])) {
        DVR_LOGE("Unknown resolution: 0x%x\n", value);
        return DVR_INVALID_ARGUMENT;
    }
    return _logFailure(__func__, index,
                       recorder->setResolution(kSizes[value].width, kSizes[value].height));
}

DVRResult_e DVR::setFileLength(int enc_id, int seconds) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.setFileLength(seconds); });
}

DVRResult_e DVR::setTimestamp(int enc_id, QVStampSettings_t *stamp) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    // The recorder takes the settings by reference: a client's null stops here.
    if (stamp == NULL) {
        DVR_LOGE("Invalid input parameter (pStampSetting=%p)\n", stamp);
        return DVR_INVALID_ARGUMENT;
    }
    return _logFailure(__func__, index, recorder->setTimestamp(*stamp));
}

DVRResult_e DVR::setSelfDefinedStamp(int enc_id, QVStampSettings_t *pStampSetting) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(__func__, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    Recorder *recorder = mRecorder[index];
    DVR_ASSERT(pStampSetting != NULL);
    return _logFailure(__func__, index, recorder->setSelfDefinedStamp(pStampSetting));
}

bool DVR::isSettingChanged(int enc_id) {
    return _inFrame(__func__, enc_id, false,
                    [](Recorder &recorder) { return recorder.isSettingChanged(); });
}

DVRStm_e DVR::getCurrentState(int enc_id) {
    return _inFrame(__func__, enc_id, static_cast<DVRStm_e>(-1),
                    [](Recorder &recorder) { return recorder.getCurrentState(); });
}

DVRResult_e DVR::getEncoderCapability(int, EncoderDeviceCaps_t *caps) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    return Recorder::getDeviceCaps(caps);
}

DVRFileFormat_e DVR::getOutputFormat(int enc_id) {
    return _inFrame(__func__, enc_id, static_cast<DVRFileFormat_e>(-1),
                    [](Recorder &recorder) { return recorder.getOutputFormat(); });
}

int DVR::getBitRate(int enc_id) {
    return _inFrame(__func__, enc_id, -1, [](Recorder &recorder) { return recorder.getBitRate(); });
}

int DVR::getFrameRate(int enc_id) {
    return _inFrame(__func__, enc_id, -1,
                    [](Recorder &recorder) { return recorder.getFrameRate(); });
}

DVRResolution_e DVR::getResolution(int enc_id) {
    return _inFrame(__func__, enc_id, static_cast<DVRResolution_e>(-1),
                    [](Recorder &recorder) { return recorder.getResolution(); });
}

int DVR::getFileLength(int enc_id) {
    return _inFrame(__func__, enc_id, -1,
                    [](Recorder &recorder) { return recorder.getFileLength(); });
}

DVRResult_e DVR::getTimestampSetting(int enc_id, QVStampSettings_t *stamp) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.getTimestampSetting(stamp); });
}

DVRResult_e DVR::getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) {
    return _forward(__func__, enc_id,
                    [&](Recorder &recorder) { return recorder.getSelfDefinedStampSetting(stamp); });
}

DVRResult_e DVR::getCameraCapability(int cam_id, CameraDeviceCaps_t *pCaps) {
    if (pCaps == NULL) {
        DVR_LOGE("Fatal! Invalid pCaps to be NULL\n");
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int camIndex = lookupIndex(__func__, mCamIdMap, cam_id, mCameraCount, kCameraIds);
    if (camIndex < 0) {
        return DVR_FAILURE;
    }
    DVRCameraDevice *pCam = _getCameraFromList(camIndex);
    DVR_ASSERT(pCam != NULL);
    const DVRCameraCaps_t *caps = pCam->getCaps();
    pCaps->width = caps->width;
    pCaps->height = caps->height;
    pCaps->stride = caps->stride;
    pCaps->format = static_cast<DVRVideoFormat_e>(caps->format);
    return DVR_SUCCESS;
}

DVRResult_e DVR::getAudioCapability(int aud_id, AudioDeviceCaps_t *pCaps) {
    if (pCaps == NULL) {
        DVR_LOGE("Fatal! Invalid pCaps to be NULL\n");
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int audIndex = lookupIndex(__func__, mAudIdMap, aud_id, mAudioCount, kAudioIds);
    if (audIndex < 0) {
        return DVR_FAILURE;
    }
    DVRAudioDevice *pAud = _getAudioFromList(audIndex);
    DVR_ASSERT(pAud != NULL);
    copyAudioCaps(pCaps, *pAud->getCaps());
    return DVR_SUCCESS;
}

DVRResult_e DVR::setSamplingRate(int aud_id, unsigned int rate) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int audIndex = lookupIndex(__func__, mAudIdMap, aud_id, mAudioCount, kAudioIds);
    if (audIndex < 0) {
        return DVR_FAILURE;
    }
    DVRAudioDevice *pAud = _getAudioFromList(audIndex);
    DVR_ASSERT(pAud != NULL);
    DVR_ASSERT(mSupportSamplingRate.size() > 0);
    if (mSupportSamplingRate.count(rate) == 0) {
        DVR_LOGE(
            "Failed to set sampling rate %d ! Not supported by both Encoder and Audio service!!\n",
            rate);
        return DVR_INVALID_ARGUMENT;
    }
    const int ret = pAud->setSamplingRate(rate);
    if (ret != 0) {
        return ret == -22 ? DVR_INVALID_ARGUMENT : DVR_FAILURE;
    }
    for (int i = 0; i < mRecCount; ++i) {
        Recorder *recorder = _recorderAt(i);
        if (recorder == NULL || recorder->getAudioDevice() != pAud) {
            continue;
        }
        const DVRResult_e result = recorder->setSamplingRate(rate);
        if (result != DVR_SUCCESS) {
            DVR_LOGE("Recorder[%d]::setSamplingRate failed: %d\n", i, result);
            return result;
        }
    }
    return DVR_SUCCESS;
}

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
