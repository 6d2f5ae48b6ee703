// The service object's control operations (the IDVR rows that address a
// channel, a camera or an audio input) and the frame most of them share.
#define LOG_TAG "DVRService"

#include "DVR.h"

#include <functional>
#include <type_traits>
#include <utility>

#include "DVRAssert.h"
#include "DVRCameraDeviceFactory.h"
#include "DVRInternal.h"
#include "DVRLog.h"
#include "Recorder.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "DVR.cpp"

namespace dvrspace {

using dvr_internal::kNotFound;
using dvr_internal::lookup;

namespace {

// The callback thread's interval while something records, and when idle.
constexpr int32_t kRecordingIntervalUs = 30000;
constexpr int32_t kIdleIntervalUs = 300000;

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

// What the getters give for an unknown id.
constexpr DVRStm_e kUnknownState = static_cast<DVRStm_e>(-1);
constexpr DVRFileFormat_e kUnknownFormat = static_cast<DVRFileFormat_e>(-1);
constexpr DVRResolution_e kUnknownResolution = static_cast<DVRResolution_e>(-1);

// Audio on or off: a recorder always accepts it.
DVRResult_e switchAudio(Recorder &recorder, bool enable) {
    const DVRResult_e eRet = recorder.setAudioRecording(enable);
    DVR_ASSERT(eRet == DVR_SUCCESS);
    return DVR_SUCCESS;
}

// Detaching always succeeds for the client, whatever was attached.
DVRResult_e detachedCamera(Recorder &recorder) {
    recorder.detachCamera();
    return DVR_SUCCESS;
}

DVRResult_e detachedAudio(Recorder &recorder) {
    recorder.detachAudio();
    return DVR_SUCCESS;
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

DVRResult_e DVR::_logFailure(const char *function, int index, DVRResult_e result) {
    if (result != DVR_SUCCESS) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "[%s:%d] Recorder #%d failed with error code %d\n", function, __LINE__,
                            index, result);
    }
    return result;
}

template <typename Operation, typename... Args>
auto DVR::_onChannel(int index, Operation operation, Args &&...args) {
    if constexpr (std::is_invocable_v<Operation, DVR *, int, Args...>) {
        return std::invoke(operation, this, index, std::forward<Args>(args)...);
    } else {
        return std::invoke(operation, *mRecorder[index], std::forward<Args>(args)...);
    }
}

template <typename Result, typename Operation, typename... Args>
Result DVR::_inFrame(const char *function, int enc_id, Result unknownResult, Operation operation,
                     Args &&...args) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(function, enc_id);
    if (index < 0) {
        return unknownResult;
    }
    return _onChannel(index, operation, std::forward<Args>(args)...);
}

template <typename Operation, typename... Args>
DVRResult_e DVR::_forward(const char *function, int enc_id, Operation operation, Args &&...args) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    const int index = _lookupEncoder(function, enc_id);
    if (index < 0) {
        return DVR_FAILURE;
    }
    return _logFailure(function, index, _onChannel(index, operation, std::forward<Args>(args)...));
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

DVRResult_e DVR::_restartIfRecording(int index) {
    // Staged settings take effect at a start: a recording channel restarts,
    // any other keeps them until its own next start.
    if (mRecorder[index]->getCurrentState() != DVR_STM_RECORDING) {
        return DVR_SUCCESS;
    }
    const DVRResult_e ret = stopRecordInternal(index);
    if (ret != DVR_SUCCESS) {
        return ret;
    }
    return startRecordInternal(index);
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
            switchAudio(*recorder, enable);
        }
        return DVR_SUCCESS;
    }
    return _inFrame(__func__, enc_id, DVR_FAILURE, switchAudio, enable);
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
    return _inFrame(__func__, enc_id, DVR_FAILURE, detachedCamera);
}

DVRResult_e DVR::detachAudio(int enc_id) {
    return _inFrame(__func__, enc_id, DVR_FAILURE, detachedAudio);
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
    return _forward(__func__, enc_id, &DVR::startRecordInternal);
}

DVRResult_e DVR::stopRecord(int enc_id) {
    return _forward(__func__, enc_id, &DVR::stopRecordInternal);
}

DVRResult_e DVR::autoNextFile(int enc_id, bool enable) {
    return _forward(__func__, enc_id, &Recorder::autoNextFile, enable);
}

DVRResult_e DVR::nextFile(int enc_id, const char *fileName) {
    return _forward(__func__, enc_id, &Recorder::nextFile, fileName);
}

DVRResult_e DVR::setStoragePath(int enc_id, const char *path) {
    return _forward(__func__, enc_id, &Recorder::setStoragePath, path);
}

DVRResult_e DVR::setFileNameFormat(int enc_id, const char *format, const char *timeFormat) {
    return _forward(__func__, enc_id, &Recorder::setFileNameFormat, format, timeFormat);
}

DVRResult_e DVR::applySettings(int enc_id) {
    return _inFrame(__func__, enc_id, DVR_FAILURE, &DVR::_restartIfRecording);
}

DVRResult_e DVR::abandonNewSettings(int enc_id) {
    return _forward(__func__, enc_id, &Recorder::abandonNewSettings);
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
    return _forward(__func__, enc_id, &Recorder::setOutputFormat, format);
}

DVRResult_e DVR::setBitRate(int enc_id, int bitRate) {
    return _forward(__func__, enc_id, &Recorder::setBitRate, bitRate);
}

DVRResult_e DVR::setFrameRate(int enc_id, int frameRate) {
    return _forward(__func__, enc_id, &Recorder::setFrameRate, frameRate);
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
    return _forward(__func__, enc_id, &Recorder::setFileLength, seconds);
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
    return _forward(__func__, enc_id, [&](Recorder &recorder) {
        DVR_ASSERT(pStampSetting != NULL);
        return recorder.setSelfDefinedStamp(pStampSetting);
    });
}

bool DVR::isSettingChanged(int enc_id) {
    return _inFrame(__func__, enc_id, false, &Recorder::isSettingChanged);
}

DVRStm_e DVR::getCurrentState(int enc_id) {
    return _inFrame(__func__, enc_id, kUnknownState, &Recorder::getCurrentState);
}

DVRResult_e DVR::getEncoderCapability(int, EncoderDeviceCaps_t *caps) {
    std::lock_guard<std::mutex> serviceGuard(mLock);
    return Recorder::getDeviceCaps(caps);
}

DVRFileFormat_e DVR::getOutputFormat(int enc_id) {
    return _inFrame(__func__, enc_id, kUnknownFormat, &Recorder::getOutputFormat);
}

int DVR::getBitRate(int enc_id) {
    return _inFrame(__func__, enc_id, -1, &Recorder::getBitRate);
}

int DVR::getFrameRate(int enc_id) {
    return _inFrame(__func__, enc_id, -1, &Recorder::getFrameRate);
}

DVRResolution_e DVR::getResolution(int enc_id) {
    return _inFrame(__func__, enc_id, kUnknownResolution, &Recorder::getResolution);
}

int DVR::getFileLength(int enc_id) {
    return _inFrame(__func__, enc_id, -1, &Recorder::getFileLength);
}

DVRResult_e DVR::getTimestampSetting(int enc_id, QVStampSettings_t *stamp) {
    return _forward(__func__, enc_id, &Recorder::getTimestampSetting, stamp);
}

DVRResult_e DVR::getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) {
    return _forward(__func__, enc_id, &Recorder::getSelfDefinedStampSetting, stamp);
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

}  // namespace dvrspace
