// A recording channel's construction and teardown, its devices, its
// lifecycle (start, stop, suspend) and the encoder's callbacks. Settings,
// file names and stamps live in the other Recorder*.cpp files.
#define LOG_TAG "DVRRecorder"

#include "Recorder.h"

#include <unistd.h>

#include <utils/Errors.h>
#include <cstdlib>
#include <cstring>

#include "DVR.h"
#include "DVRAssert.h"
#include "DVREncoderFactory.h"
#include "DVRLog.h"
#include "RecorderInternal.h"
#include "dvr_file_name_generator.h"
#include "dvr_utils.h"
#include "svc_mon.h"

namespace dvrspace {

using recorder_internal::kEndTimePattern;
using recorder_internal::kStartTimePattern;

std::map<int, Recorder *> gRecorderList;

int Recorder::mdRecordCount = 0;

namespace {

constexpr const char *kServiceRunning = "running";
constexpr useconds_t kServicePollUs = 100000;

constexpr const char *kTriggerThreadName = "DVR Trigger Encode Thread";
// The board's storage controller interrupts less eagerly while recording.
constexpr const char *kStorageTuningRecording =
    "echo dma_int_threshold 0 > /sys/devices/platform/9c003e80.mmc/config";
constexpr const char *kStorageTuningIdle =
    "echo dma_int_threshold 1024 > /sys/devices/platform/9c003e80.mmc/config";

constexpr int kPlayingCheckAttempts = 10;
constexpr useconds_t kPlayingCheckPollUs = 100000;
constexpr int kAudioRetries = 100;
constexpr useconds_t kAudioRetryPollUs = 10000;
constexpr useconds_t kCallbackPollUs = 10000;
constexpr uint64_t kCallbackDoneLimitUs = 1000000;

// Silence for the encoder when real audio is unavailable or not recorded;
// static so the audio path never allocates.
constexpr int kDummyAudioBytes = 1024;
uint8_t gDummyAudioBlock[kDummyAudioBytes];

std::atomic<Recorder::CommandRunner> gCommandRunner{&system};
// Recorders start and stop on different client threads; the count and its
// command change together.
std::mutex gRecordCountLock;

Recorder *_get_recorder_from_list(int id) {
    auto found = gRecorderList.find(id);
    if (found == gRecorderList.end()) {
        DVR_LOGE("Recorder not found with encoder ID: %d\n", id);
        return nullptr;
    }
    return found->second;
}

}  // namespace

void OnRecordStartCallback(int id, const char *file) {
    Recorder *pRec = _get_recorder_from_list(id);
    DVR_ASSERT(pRec != NULL);
    pRec->OnRecordStart(file);
}

void onRecordFinishCallback(int id, const char *file) {
    Recorder *pRec = _get_recorder_from_list(id);
    DVR_ASSERT(pRec != NULL);
    pRec->onRecordFinish(file);
}

void onFileFinishCallback(int id, const char *file) {
    Recorder *pRec = _get_recorder_from_list(id);
    DVR_ASSERT(pRec != NULL);
    pRec->onFileFinish(file);
}

void onNeedDataCallback(int id, ENCNeedDataType_e type) {
    Recorder *pRec = _get_recorder_from_list(id);
    DVR_ASSERT(pRec != NULL);
    pRec->onNeedData(type);
}

void onErrorCallback(int id, DVRErrorServerity_e severity, int code) {
    Recorder *pRec = _get_recorder_from_list(id);
    DVR_ASSERT(pRec != NULL);
    pRec->onError(severity, code);
}

Recorder::Recorder(int index, DVR &service)
    : mState(DVR_STM_NONE),
      mCamera(nullptr),
      mAudio(nullptr),
      mAudioHandle(-1),
      mFileName(nullptr),
      mNextFileName(nullptr),
      mStoragePath(nullptr),
      mService(service),
      mEncoder(nullptr),
      mFileNameGenerator(nullptr),
      mbAutoNextFile(false),
      mInCallback(false) {
    REC_LOGI(index, "CONSTRUCTOR\n");
    SWITCH_STATE(DVR_STM_NONE);
    memset(&mFileNameLock, 0, sizeof(mFileNameLock));

    readSettingsFromConfig();
    _stampChangeTime(mNewSettings);

    svc_mon_handle_t svcmon = mService.getSvcMonHandle();
    DVR_ASSERT(svcmon != NULL);
    const char *es_name = DVREncoderFactory::getFactory()->getServiceName();
    DVR_ASSERT(es_name != NULL);
    char stateText[SVC_MON_STATE_MAX] = {};
    int smRet = svc_mon_state_get(svcmon, SVC_MON_INIT_NAME, es_name, stateText);
    DVR_ASSERT(smRet == SVC_MON_NOERROR);
    while (strcmp(stateText, kServiceRunning) != 0) {
        REC_LOGW(index, "es_server NOT ready: %s\n", stateText);
        usleep(kServicePollUs);
        memset(stateText, 0, sizeof(stateText));
        smRet = svc_mon_state_get(svcmon, SVC_MON_INIT_NAME, es_name, stateText);
        DVR_ASSERT(smRet == SVC_MON_NOERROR);
    }

    mEncoder = DVREncoderFactory::getFactory()->getEncoder(
        index, OnRecordStartCallback, onRecordFinishCallback, onFileFinishCallback,
        onNeedDataCallback, onErrorCallback);
    DVR_ASSERT(mEncoder != NULL);

    _getCapsFromDevices();
    const int limit = mgDeviceCaps->file_name_length_limit;
    DVR_ASSERT(mgDeviceCaps->file_name_length_limit > 0);
    mFileName = static_cast<char *>(calloc(limit, 1));
    mNextFileName = static_cast<char *>(calloc(limit, 1));
    DVR_ASSERT(mFileName != NULL && mNextFileName != NULL);
    mStoragePath = static_cast<char *>(calloc(limit, 1));
    DVR_ASSERT(mStoragePath != NULL);

    if (gDefaultPath == nullptr) {
        read_default_path(limit);
    }
    const int ret = create_default_path(mStoragePath, limit);
    DVR_ASSERT(ret == 0);

    mFileNameGenerator = new DVRFileNameGenerator(limit, kStartTimePattern, kEndTimePattern);

    SWITCH_STATE(DVR_STM_IDLE);

    const bool inserted = gRecorderList.emplace(mEncoder->mId, this).second;
    if (!inserted) {
        REC_LOGE(mEncoder->mId, "Fatal! gRecorderList key %d exists\n", mEncoder->mId);
        DVR_ASSERT(inserted);
    }
}

Recorder::~Recorder() {
    REC_LOGI(getEncoderId(), "DESTRUCTOR\n");

    if (mTriggerEncodeThread != nullptr) {
        const android::status_t st = mTriggerEncodeThread->requestExitAndWait();
        DVR_ASSERT(st == 0);
        mTriggerEncodeThread.clear();
    }

    delete mFileNameGenerator;
    mFileNameGenerator = nullptr;
    // Names may be private to the client: nothing of them stays in freed memory.
    const size_t limit = mgDeviceCaps->file_name_length_limit;
    for (char **buffer : {&mFileName, &mNextFileName, &mStoragePath}) {
        memset(*buffer, 0, limit);
        free(*buffer);
        *buffer = nullptr;
    }
    mCurSettings.clear();
    mNewSettings.clear();

    const bool cameraAttached = mCamera != nullptr;
    const bool audioAttached = mAudio != nullptr;
    if (cameraAttached) {
        REC_LOGE(getEncoderId(),
                 "Camera device does not detach! Please call Recorder::detachCamera() before "
                 "releasing Recorder instance!\n");
        mCamera = nullptr;
        DVR_ASSERT(!cameraAttached);
    } else if (audioAttached) {
        REC_LOGE(getEncoderId(),
                 "Audio device does not detach! Please call Recorder::detachAudio() before "
                 "releasing Recorder instance!\n");
        mAudio = nullptr;
        DVR_ASSERT(!audioAttached);
    }

    if (--mdRefCount == 0) {
        free(mgDeviceCaps);
        mgDeviceCaps = nullptr;
    }

    DVR_ASSERT(mEncoder != NULL);
    const bool registered = gRecorderList.erase(mEncoder->mId) == 1;
    if (!registered) {
        REC_LOGE(mEncoder->mId, "Fatal! gRecorderList key %d does not exist\n", mEncoder->mId);
        DVR_ASSERT(registered);
    }

    DVREncoderFactory *factory = DVREncoderFactory::getFactory();
    factory->releaseEncoder(mEncoder);
    mEncoder = nullptr;
    factory->releaseFactory();

    pthread_mutex_destroy(&mFileNameLock);
    SWITCH_STATE(DVR_STM_NONE);
}

// ---------------------------------------------------------------- devices

void Recorder::attachCamera(DVRCameraDevice *pCamDev) {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    DVR_ASSERT(pCamDev != NULL);
    if (mCamera != nullptr) {
        REC_LOGW(getEncoderId(), "Already attached\n");
        return;
    }
    mCamera = pCamDev;
    _capsCheckAndCorrection();
}

void Recorder::attachAudio(DVRAudioDevice *pAudDev) {
    if (mAudio != nullptr) {
        REC_LOGW(getEncoderId(), "Already attached\n");
        return;
    }
    {
        std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
        DVR_ASSERT(pAudDev != NULL);
        mAudioHandle = pAudDev->open();
        mAudio = pAudDev;
    }
    const int ret = setSamplingRate(pAudDev->getSamplingRate());
    DVR_ASSERT(ret == 0);
}

void Recorder::detachCamera() {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        DVR_LOGW("Camera device already detached\n");
    }
    mCamera = nullptr;
}

void Recorder::detachAudio() {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mAudio != nullptr) {
        mAudio->close(mAudioHandle);
        mAudio = nullptr;
        mAudioHandle = -1;
    } else {
        DVR_LOGW("Audio device already detached\n");
    }
}

DVRCameraDevice *Recorder::getCameraDevice() {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        REC_LOGW(getEncoderId(), "Camera device does NOT exist!\n");
    }
    return mCamera;
}

DVRAudioDevice *Recorder::getAudioDevice() {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mAudio == nullptr) {
        REC_LOGW(getEncoderId(), "Audio device does NOT exist!\n");
    }
    return mAudio;
}

// ---------------------------------------------------------------- control

Recorder::CommandRunner Recorder::setCommandRunner(CommandRunner runner) {
    return gCommandRunner.exchange(runner);
}

void Recorder::_countRecordingStart() {
    std::lock_guard<std::mutex> countGuard(gRecordCountLock);
    if (mdRecordCount == 0) {
        (void)gCommandRunner.load()(kStorageTuningRecording);
    }
    ++mdRecordCount;
}

void Recorder::_countRecordingStop() {
    std::lock_guard<std::mutex> countGuard(gRecordCountLock);
    if (--mdRecordCount == 0) {
        (void)gCommandRunner.load()(kStorageTuningIdle);
    }
}

DVRResult_e Recorder::start() {
    std::lock_guard<std::mutex> stateGuard(mStateLock);
    if (mService.isSuspend()) {
        REC_LOGE(getEncoderId(), "Invalid operation during suspend\n");
        return DVR_INVALID_OPERATION;
    }
    if (mState != DVR_STM_READY) {
        REC_LOGE(getEncoderId(), "Invalid operation under state: %s\n", stm_toString(mState));
        return DVR_INVALID_OPERATION;
    }
    DVR_ASSERT(mEncoder != NULL);

    if (mbAutoNextFile) {
        pthread_mutex_lock(&mFileNameLock);
        if (mFileNameGenerator->isFormatSet()) {
            REC_LOGW(getEncoderId(), "File format is set but ignore here\n");
        }
        pthread_mutex_unlock(&mFileNameLock);
        _updateFileName();
    }
    {
        std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
        mCurSettings.copy(mNewSettings);
    }
    {
        std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
        if (mCamera != nullptr) {
            (void)mCamera->start();
        }
        if (mAudio != nullptr) {
            (void)mAudio->start(mAudioHandle);
        }
    }
    _countRecordingStart();

    if (mTriggerEncodeThread == nullptr) {
        mTriggerEncodeThread = new TriggerEncodeThread(this, mEncoder);
        DVR_ASSERT(mTriggerEncodeThread.get() != NULL);
    }
    // Its start-up configures and starts the encoder; nobody waits for that.
    (void)mTriggerEncodeThread->run(kTriggerThreadName, -1, 0);
    SWITCH_STATE(DVR_STM_RECORDING);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::stopAndWait() {
    std::lock_guard<std::mutex> stateGuard(mStateLock);
    if (mState != DVR_STM_RECORDING) {
        REC_LOGE(getEncoderId(), "Invalid operation under state: %s\n", stm_toString(mState));
        return DVR_INVALID_OPERATION;
    }
    SWITCH_STATE(DVR_STM_STOPPING);

    // A failed check leaves DVR_STM_STOPPING behind: the recorder refuses
    // every later start and stop.
    for (int attempt = 1;; ++attempt) {
        if (mEncoder == nullptr) {
            REC_LOGE(-1, "mEncoder is NULL! Cannot check encoder state.");
            return DVR_INVALID_OPERATION;
        }
        if (mEncoder->isPlaying() != 0) {
            break;
        }
        REC_LOGE(getEncoderId(), "Invalid operation to stop! Encoder is not in PLAYING state...");
        usleep(kPlayingCheckPollUs);
        if (attempt == kPlayingCheckAttempts) {
            return DVR_INVALID_OPERATION;
        }
    }

    // Without the device lock: onNeedData may hold it inside a fetch that only
    // these calls release.
    if (mCamera != nullptr) {
        (void)mCamera->prepareStop();
    }
    if (mAudio != nullptr) {
        (void)mAudio->prepareStop(mAudioHandle);
    }

    mTriggerEncodeThread->preStop();
    mTriggerEncodeThread->requestExit();
    mTriggerEncodeThread->trigger();
    (void)mTriggerEncodeThread->join();

    _countRecordingStop();
    {
        std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
        if (mCamera != nullptr) {
            (void)mCamera->stop();
        }
        if (mAudio != nullptr) {
            (void)mAudio->stop(mAudioHandle);
        }
    }

    if (!hasNextFile() && !mbAutoNextFile) {
        SWITCH_STATE(DVR_STM_IDLE);
    } else {
        SWITCH_STATE(DVR_STM_READY);
    }
    return DVR_SUCCESS;
}

int Recorder::onSuspend() {
    return mEncoder->suspend() == 0 ? 0 : -1;
}

int Recorder::onResume() {
    return mEncoder->resume() == 0 ? 0 : -1;
}

void Recorder::abnormal() {
    mService.doCallback(getEncoderId(), DVR_CBK_OBJ_ABNORMAL, DVR_CBK_ABNORMAL, nullptr, 0);
}

// ---------------------------------------------------------------- encoder events

void Recorder::onNeedData(ENCNeedDataType_e type) {
    if (mState != DVR_STM_RECORDING) {
        REC_LOGE(getEncoderId(), "Receive under unexpect state: %s (expect: %s)\n",
                 stm_toString(mState), stm_toString(DVR_STM_RECORDING));
        return;
    }
    mInCallback = true;
    uint64_t timestamp = 0;
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    void *pAudioData = nullptr;
    int dAudLen = 0;
    DVR_ASSERT(mEncoder != NULL);

    if (type == ENC_NEED_VIDEO) {
        std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
        if (mCamera == nullptr) {
            REC_LOGW(getEncoderId(), "Camera device does NOT exist\n");
        } else {
            const int ret = mCamera->getVideoFrame(frameVA, framePA, &timestamp);
            if (ret != 0) {
                REC_LOGE(getEncoderId(), "getVideoFrame() failed: %d\n", ret);
            } else {
                DVR_ASSERT(frameVA[0] != NULL);
                _renderStamp(frameVA);
                (void)mEncoder->pushVideoFrame(framePA, &timestamp);
            }
        }
    } else if (type == ENC_NEED_AUDIO) {
        if (!mCurSettings.audioRecording) {
            (void)mEncoder->pushAudioData(gDummyAudioBlock, kDummyAudioBytes, &timestamp);
        } else {
            std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
            if (mAudio != nullptr) {
                int dNoAudCountDown = kAudioRetries;
                int ret = mAudio->getAudioData(mAudioHandle, &pAudioData, &dAudLen, &timestamp);
                while (ret == 0 && dAudLen == 0 && dNoAudCountDown > 0) {
                    --dNoAudCountDown;
                    usleep(kAudioRetryPollUs);
                    timestamp = 0;
                    ret = mAudio->getAudioData(mAudioHandle, &pAudioData, &dAudLen, &timestamp);
                }
                if (ret < 0) {
                    REC_LOGE(getEncoderId(), "getAudioData failed: %d\n", ret);
                    (void)mEncoder->pushAudioData(gDummyAudioBlock, kDummyAudioBytes, &timestamp);
                } else {
                    // Deliberately strict: a chunk that only came with the
                    // last retry aborts as well.
                    DVR_ASSERT(dNoAudCountDown > 0);
                    DVR_ASSERT(dAudLen > 0);
                    DVR_ASSERT(pAudioData != NULL);
                    (void)mEncoder->pushAudioData(pAudioData, dAudLen, &timestamp);
                }
            }
        }
    } else {
        REC_LOGE(getEncoderId(), "Unknown type: 0x%x\n", type);
        DVR_ASSERT(type == ENC_NEED_VIDEO || type == ENC_NEED_AUDIO);
    }
    mInCallback = false;
}

void Recorder::onFileFinish(const char *pFinishFile) {
    if (mState != DVR_STM_RECORDING) {
        REC_LOGE(getEncoderId(), "Receive under unexpect state: %s (expect: %s)\n",
                 stm_toString(mState), stm_toString(DVR_STM_RECORDING));
        return;
    }
    DVR_ASSERT(mEncoder != NULL);
    mInCallback = true;
    DVR_ASSERT(pFinishFile != NULL);

    pthread_mutex_lock(&mFileNameLock);
    if (mFileNameGenerator->isFormatSet()) {
        mFileNameGenerator->genFileName(mNextFileName, mCurSettings.fileLength,
                                        mgDeviceCaps->file_name_length_limit);
    } else {
        _updateFileName();
    }
    pthread_mutex_unlock(&mFileNameLock);
    if (_isNextFileSet()) {
        _applyNextFile();
    }

    mService.doCallback(getEncoderId(), DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_FINISH, pFinishFile, 0);
    mService.doCallback(getEncoderId(), DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_START, mFileName, 0);
    mInCallback = false;
}

void Recorder::OnRecordStart(const char *pStartFile) {
    DVR_ASSERT(pStartFile != NULL);
    DVR_ASSERT(mEncoder != NULL);
    mInCallback = true;
    mService.doCallback(getEncoderId(), DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_START, pStartFile, 0);
    mInCallback = false;
}

void Recorder::onRecordFinish(const char *pLastFile) {
    DVR_ASSERT(pLastFile != NULL);
    DVR_ASSERT(mEncoder != NULL);
    mInCallback = true;
    mService.doCallback(getEncoderId(), DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_FINISH, pLastFile, 0);
    mInCallback = false;
}

void Recorder::onError(DVRErrorServerity_e severity, int code) {
    (void)stopAndWait();
    switch (severity) {
        case DVR_ERROR_NORMAL:
            mService.doCallback(getEncoderId(), DVR_CBK_OBJ_ERROR, DVR_CBK_ERROR, nullptr, code);
            break;
        case DVR_ERROR_SEVERE:
            mService.doCallback(getEncoderId(), DVR_CBK_OBJ_ERROR, DVR_CBK_ERROR_SEVERE, nullptr,
                                code);
            break;
        default:
            REC_LOGE(getEncoderId(), "Unknown error severity: %d\n", severity);
            DVR_ASSERT(severity == DVR_ERROR_NORMAL || severity == DVR_ERROR_SEVERE);
    }
}

void Recorder::_waitLastCallback() {
    DVR_ASSERT(mTriggerEncodeThread->isPreStopped());
    const int frameRate = mCurSettings.frameRate;
    const uint64_t waitLimitUs = frameRate != 0 ? 2 * (1000000 / frameRate) : 0;

    // A callback that was due when the encoder stopped may still begin.
    const uint64_t beginWaitUs = getMonotonicClockUs();
    while (!mInCallback && getMonotonicClockUs() - beginWaitUs <= waitLimitUs) {
        usleep(kCallbackPollUs);
    }
    const uint64_t endWaitUs = getMonotonicClockUs();
    while (mInCallback) {
        usleep(kCallbackPollUs);
        const bool tooLong = getMonotonicClockUs() - endWaitUs > kCallbackDoneLimitUs;
        if (tooLong) {
            REC_LOGE(getEncoderId(), "Wait callback done too long (exceeds 1 second!)\n");
            DVR_ASSERT(!tooLong);
        }
    }
}

int Recorder::getEncoderId() const {
    return mEncoder != nullptr ? mEncoder->mId : -1;
}

}  // namespace dvrspace
