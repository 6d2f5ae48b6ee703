#define LOG_TAG "DVRRecorder"

#include "Recorder.h"

#include <unistd.h>

#include <utils/Errors.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "DVR.h"
#include "DVRAssert.h"
#include "DVREncoderFactory.h"
#include "DVRLog.h"
#include "IDVRCallback.h"
#include "TextBrush.h"
#include "dvr_file_name_generator.h"
#include "dvr_utils.h"
#include "qv_vendor_data.h"
#include "runtimecfg.h"
#include "svc_mon.h"

namespace dvrspace {

std::map<int, Recorder *> gRecorderList;
char *gDefaultPath = nullptr;

EncoderCapability_t *Recorder::mgDeviceCaps = nullptr;
int Recorder::mdRefCount = 0;
int Recorder::mdRecordCount = 0;

namespace {

// Store positions of the persisted settings.
constexpr int DVR_FORMAT_POS = 238;
constexpr int DVR_BIT_RATE_POS = 242;
constexpr int DVR_FPS_POS = 244;
constexpr int DVR_RES_WIDTH_POS = 246;
constexpr int DVR_RES_HEIGHT_POS = 250;
constexpr int DVR_FILE_LEN_POS = 254;
constexpr int DVR_TIMESTAMP_EN_POS = 256;
constexpr int DVR_TIMESTAMP_POSX_POS = 257;
constexpr int DVR_TIMESTAMP_POSY_POS = 261;
constexpr int DVR_USER_STAMP_EN_POS = 265;
constexpr int DVR_USER_STAMP_POSX_POS = 266;
constexpr int DVR_USER_STAMP_POSY_POS = 270;
constexpr int DVR_USTMP_INTERVAL_MS_POS = 274;
constexpr int DVR_AUDIO_EN_POS = 278;
constexpr int DVRCAM_NUM_POS = 476;
constexpr int DVRCAM_SRC_SEL_POS = 480;
// Text values: three characters and the terminator.
constexpr int kSettingTextSize = 4;

constexpr const char *kServiceRunning = "running";
constexpr useconds_t kServicePollUs = 100000;

constexpr const char *kDefaultPathKey = "DVR_DEFAULT_PATH";
constexpr const char *kBuiltInDefaultPath = "/tmp/dvr_default";
// Room the runtime configuration's line limit leaves for a value.
constexpr int kLineOverhead = 16;

constexpr const char *kStartTimePattern = "%ST";
constexpr const char *kEndTimePattern = "%ET";
constexpr const char *kDefaultTimeFormat = "%Y%m%d_%H-%M-%S";
constexpr size_t kDefaultNameFormatSize = 64;

constexpr int kSystemMaxWidth = 1920;
constexpr int kSystemMaxHeight = 1080;
constexpr int kSystemMaxBitRate = 25;

// The renderer's colour codes run opposite to the clients' selectors.
constexpr int kColorCodeBase = 8;
// Stamps draw on the frame itself, without a background box.
constexpr int kStampBackground = 0;
constexpr const char *kTimestampFormat = "%Y/%m/%d %H:%M:%S";

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

// "AVI"/"avi" and "TS"/"ts"; false for anything else.
bool format_from_text(const char *text, DVRFileFormat_e *format) {
    if (strcmp(text, "AVI") == 0 || strcmp(text, "avi") == 0) {
        *format = DVR_FILE_FORMAT_AVI;
        return true;
    }
    if (strcmp(text, "TS") == 0 || strcmp(text, "ts") == 0) {
        *format = DVR_FILE_FORMAT_TS;
        return true;
    }
    return false;
}

const char *format_extension(DVRFileFormat_e format) {
    return format == DVR_FILE_FORMAT_AVI ? "avi" : "ts";
}

// Splits "a,b" into the first count source slots; the number of slots filled.
int split_camera_sources(char *text, int count, int32_t *sources) {
    const int wanted = std::min(count, RecordSettings_t::kMaxCameraSources);
    int found = 0;
    char *savePtr = nullptr;
    for (char *token = strtok_r(text, ",", &savePtr); token != nullptr && found < wanted;
         token = strtok_r(nullptr, ",", &savePtr)) {
        sources[found++] = atoi(token);
    }
    return found;
}

int font_size_translate(QVDVRStampFontSize_e fontSize) {
    if ((unsigned int)fontSize > QV_DVR_STAMP_FONT_SIZE_LARGEST) {
        DVR_LOGE("Undefine font size: %d\n", fontSize);
        DVR_ASSERT((unsigned int)fontSize <= QV_DVR_STAMP_FONT_SIZE_LARGEST);
    }
    return fontSize + 1;
}

// The renderer's pixel format for the camera's; only NV12 can be stamped.
int format_translate(int videoFormat) {
    if (videoFormat != DVR_VIDEO_FORMAT_NV12) {
        DVR_LOGE("Unsupport format: 0x%x\n", videoFormat);
        DVR_ASSERT(videoFormat == DVR_VIDEO_FORMAT_NV12);
    }
    return TextBrush::kFormatNV12;
}

void copy_stamp_setting(StampSettingPriv_t *pPriv, const QVStampSettings_t *pSetting) {
    if (pSetting == nullptr) {
        DVR_LOGE("Fatal! Input setting is NULL!\n");
        DVR_ASSERT(pSetting != NULL);
    }
    StampSettingPriv_t translated;
    translated.enabled = pSetting->enabled;
    translated.x = pSetting->x;
    translated.y = pSetting->y;
    translated.fontSize = font_size_translate(pSetting->fontSize);
    translated.reserved = 0;
    translated.color = kColorCodeBase - pSetting->color;
    translated.interval = pSetting->interval;
    *pPriv = translated;
}

Recorder *_get_recorder_from_list(int id) {
    auto found = gRecorderList.find(id);
    if (found == gRecorderList.end()) {
        DVR_LOGE("Recorder not found with encoder ID: %d\n", id);
        return nullptr;
    }
    return found->second;
}

}  // namespace

// Every state change is logged where it happens, so this stays a macro: the
// line names the caller.
#define SWITCH_STATE(next)                                                        \
    do {                                                                          \
        mState = (next);                                                          \
        if (mEncoder != nullptr) {                                                \
            REC_LOGW(mEncoder->mId, "Switch to state: %s\n", stm_toString(next)); \
        } else {                                                                  \
            DVR_LOGW("Switch to state: %s\n", stm_toString(next));                \
        }                                                                         \
    } while (0)

void read_default_path(int maxLength) {
    const int max_length = std::min(qv_config_get_line_max() - kLineOverhead, maxLength);
    DVR_ASSERT(max_length > 0);
    gDefaultPath = static_cast<char *>(calloc(max_length, 1));
    DVR_ASSERT(gDefaultPath != NULL);
    if (qv_config_get_string(kDefaultPathKey, gDefaultPath, max_length) < 0) {
        DVR_LOGE("Failed to read '%s' from runtime.cfg, use default path '%s'\n", kDefaultPathKey,
                 kBuiltInDefaultPath);
        strncpy(gDefaultPath, kBuiltInDefaultPath, max_length - 1);
    }
    DVR_LOGI("Default path: %s\n", gDefaultPath);
}

int create_default_path(char *ret_path, int capacity) {
    DVR_ASSERT(ret_path != NULL);
    DVR_ASSERT(gDefaultPath != NULL);
    if (access(gDefaultPath, F_OK) != 0) {
        // Parents are not created: a default path under a missing directory is
        // a configuration error worth failing on.
        const std::string command = std::string("mkdir ") + gDefaultPath;
        (void)system(command.c_str());
        if (access(gDefaultPath, F_OK) != 0) {
            DVR_LOGE("Cannot create '%s'\n", gDefaultPath);
            return -1;
        }
    }
    strncpy(ret_path, gDefaultPath, capacity);
    DVR_LOGI("Default storage path: %s\n", ret_path);
    return 0;
}

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

// ---------------------------------------------------------------- settings

void Recorder::readSettingsFromConfig() {
    // One byte more than is read: a stored text of four characters has no
    // terminator of its own.
    char formatText[kSettingTextSize + 1] = {};
    if (qv_vendor_data_read_string(DVR_FORMAT_POS, kSettingTextSize, formatText) != 0) {
        DVR_LOGW("Not found in vendor data, check runtime config.\n");
        const int ret = qv_config_get_string("DVR_FORMAT", formatText, kSettingTextSize);
        if (ret < 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", "DVR_FORMAT", ret);
        }
    }
    if (!format_from_text(formatText, &mNewSettings.outputFormat)) {
        DVR_LOGE("Fatal! Unknown format type %s\n", formatText);
    }

    // The remaining rows in store order; three integers are kept in two bytes.
    struct Row {
        const char *key;
        int position;
        int length;
        int32_t *intField;  // null for a flag
        bool *flagField;
    };
    RecordSettings_t &settings = mNewSettings;
    const Row rows[] = {
        {"DVR_BIT_RATE", DVR_BIT_RATE_POS, 2, &settings.bitRate, nullptr},
        {"DVR_FPS", DVR_FPS_POS, 2, &settings.frameRate, nullptr},
        {"DVR_RES_WIDTH", DVR_RES_WIDTH_POS, 4, &settings.width, nullptr},
        {"DVR_RES_HEIGHT", DVR_RES_HEIGHT_POS, 4, &settings.height, nullptr},
        {"DVR_FILE_LEN", DVR_FILE_LEN_POS, 2, &settings.fileLength, nullptr},
        {"DVR_TIMESTAMP_EN", DVR_TIMESTAMP_EN_POS, 1, nullptr, &settings.timestamp.enabled},
        {"DVR_TIMESTAMP_POSX", DVR_TIMESTAMP_POSX_POS, 4, &settings.timestamp.x, nullptr},
        {"DVR_TIMESTAMP_POSY", DVR_TIMESTAMP_POSY_POS, 4, &settings.timestamp.y, nullptr},
        {"DVR_USER_STAMP_EN", DVR_USER_STAMP_EN_POS, 1, nullptr, &settings.userStamp.enabled},
        {"DVR_USER_STAMP_POSX", DVR_USER_STAMP_POSX_POS, 4, &settings.userStamp.x, nullptr},
        {"DVR_USER_STAMP_POSY", DVR_USER_STAMP_POSY_POS, 4, &settings.userStamp.y, nullptr},
        {"DVR_USTMP_INTERVAL_MS", DVR_USTMP_INTERVAL_MS_POS, 4, &settings.userStamp.interval,
         nullptr},
        {"DVR_AUDIO_EN", DVR_AUDIO_EN_POS, 1, nullptr, &settings.audioRecording},
    };
    for (const Row &row : rows) {
        int ret = 0;
        if (row.intField != nullptr) {
            int value = 0;
            if (qv_vendor_data_read_int(row.position, row.length, &value) == 0) {
                *row.intField = value;
                continue;
            }
            DVR_LOGW("Not found in vendor data, check runtime config.\n");
            ret = qv_config_get_int(row.key, row.intField);
        } else {
            bool value = false;
            if (qv_vendor_data_read_bool(row.position, &value) == 0) {
                *row.flagField = value;
                continue;
            }
            DVR_LOGW("Not found in vendor data, check runtime config.\n");
            ret = qv_config_get_bool(row.key, row.flagField);
        }
        if (ret != 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", row.key, ret);
        }
    }

    int cameraCount = 0;
    if (qv_vendor_data_read_int(DVRCAM_NUM_POS, 4, &cameraCount) == 0) {
        mNewSettings.cameraCount = cameraCount;
    } else {
        DVR_LOGW("Not found DVRCAM_NUM in vendor data, check runtime config.\n");
        const int ret = qv_config_get_int("DVRCAM_NUM", &mNewSettings.cameraCount);
        if (ret != 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", "DVRCAM_NUM", ret);
        }
    }

    char sourceText[kSettingTextSize + 1] = {};
    if (qv_vendor_data_read_string(DVRCAM_SRC_SEL_POS, kSettingTextSize, sourceText) != 0) {
        DVR_LOGW("Not found DVRCAM_SRC_SEL in vendor data, check runtime config.\n");
        const int ret = qv_config_get_string("DVRCAM_SRC_SEL", sourceText, kSettingTextSize);
        if (ret < 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", "DVRCAM_SRC_SEL", ret);
        }
    }
    const int found =
        split_camera_sources(sourceText, mNewSettings.cameraCount, mNewSettings.cameraSources);
    if (found < mNewSettings.cameraCount) {
        DVR_LOGE("Insufficient camera source list items (only %d found, expect %d)\n", found,
                 mNewSettings.cameraCount);
    }
}

DVRResult_e Recorder::resetSettings() {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    RecordSettings_t &settings = mNewSettings;

    char formatText[kSettingTextSize] = {};
    int ret = qv_config_get_string("DVR_FORMAT", formatText, kSettingTextSize);
    if (ret < 0) {
        DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", "DVR_FORMAT", ret);
    }
    // Only an empty value reaches the mapping, and it matches no format: a
    // reset never changes the output format in memory, while the text read is
    // still what the store receives.
    if (ret == 0 && !format_from_text(formatText, &settings.outputFormat)) {
        REC_LOGE(getEncoderId(), "Fatal! Unknown format type %s\n", formatText);
    }

    struct IntKey {
        const char *key;
        int32_t *field;
    };
    const IntKey encoderKeys[] = {
        {"DVR_BIT_RATE", &settings.bitRate},    {"DVR_FPS", &settings.frameRate},
        {"DVR_RES_WIDTH", &settings.width},     {"DVR_RES_HEIGHT", &settings.height},
        {"DVR_FILE_LEN", &settings.fileLength},
    };
    for (const IntKey &entry : encoderKeys) {
        ret = qv_config_get_int(entry.key, entry.field);
        if (ret != 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", entry.key, ret);
        }
    }

    // Flags are read as integers here and must be 0 or 1.
    struct Key {
        const char *key;
        int32_t *intField;  // null for a flag
        bool *flagField;
    };
    const Key stampKeys[] = {
        {"DVR_TIMESTAMP_EN", nullptr, &settings.timestamp.enabled},
        {"DVR_TIMESTAMP_POSX", &settings.timestamp.x, nullptr},
        {"DVR_TIMESTAMP_POSY", &settings.timestamp.y, nullptr},
        {"DVR_USER_STAMP_EN", nullptr, &settings.userStamp.enabled},
        {"DVR_USER_STAMP_POSX", &settings.userStamp.x, nullptr},
        {"DVR_USER_STAMP_POSY", &settings.userStamp.y, nullptr},
        {"DVR_USTMP_INTERVAL_MS", &settings.userStamp.interval, nullptr},
        {"DVR_AUDIO_EN", nullptr, &settings.audioRecording},
        {"DVRCAM_NUM", &settings.cameraCount, nullptr},
    };
    for (const Key &entry : stampKeys) {
        if (entry.intField != nullptr) {
            ret = qv_config_get_int(entry.key, entry.intField);
            if (ret != 0) {
                DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", entry.key, ret);
            }
            continue;
        }
        // Same as an absent key when there is no configuration at all.
        int value = -1;
        ret = qv_config_get_int(entry.key, &value);
        if (ret != 0) {
            DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", entry.key, ret);
        }
        if (value != 0 && value != 1) {
            REC_LOGE(getEncoderId(), "Invalid value of '%s': %d\n", entry.key, value);
            value = 0;
        }
        *entry.flagField = value == 1;
    }

    char sourceText[kSettingTextSize] = {};
    ret = qv_config_get_string("DVRCAM_SRC_SEL", sourceText, kSettingTextSize);
    if (ret < 0) {
        DVR_LOGE("Read '%s' from runtime.cfg failed: %d\n", "DVRCAM_SRC_SEL", ret);
    }
    const int found =
        split_camera_sources(sourceText, settings.cameraCount, settings.cameraSources);
    if (found < settings.cameraCount) {
        REC_LOGE(getEncoderId(), "Insufficient camera source list items (only %d found, expect %d)\n",
                 found, settings.cameraCount);
    }

    _stampChangeTime(settings);

    // Two-byte values are written four bytes wide; ascending positions let each
    // later write replace the spill of the one before, so the order matters.
    ret = qv_vendor_data_write_string(DVR_FORMAT_POS, kSettingTextSize, formatText);
    if (ret != 0) {
        REC_LOGE(getEncoderId(), "Fail to write dvr_format into vendor data!");
        DVR_ASSERT(ret == 0);
    }
    struct IntWrite {
        int position;
        int value;
        bool isFlag;
        const char *name;  // as the failure message names it
    };
    const IntWrite writes[] = {
        {DVR_BIT_RATE_POS, settings.bitRate, false, "bitrate"},
        {DVR_FPS_POS, settings.frameRate, false, "framerate"},
        {DVR_RES_WIDTH_POS, settings.width, false, "framerate"},
        {DVR_RES_HEIGHT_POS, settings.height, false, "DVR_RES_HEIGHT_POS"},
        {DVR_FILE_LEN_POS, settings.fileLength, false, "DVR_FILE_LEN_POS"},
        {DVR_TIMESTAMP_EN_POS, settings.timestamp.enabled, true, "DVR_TIMESTAMP_EN_POS"},
        {DVR_TIMESTAMP_POSX_POS, settings.timestamp.x, false, "DVR_TIMESTAMP_POSX_POS"},
        {DVR_TIMESTAMP_POSY_POS, settings.timestamp.y, false, "DVR_TIMESTAMP_POSY_POS"},
        {DVR_USER_STAMP_EN_POS, settings.userStamp.enabled, true, "DVR_USER_STAMP_EN_POS"},
        {DVR_USER_STAMP_POSX_POS, settings.userStamp.x, false, "DVR_USER_STAMP_EN_POS"},
        {DVR_USER_STAMP_POSY_POS, settings.userStamp.y, false, "DVR_USER_STAMP_POSY_POS"},
        {DVR_USTMP_INTERVAL_MS_POS, settings.userStamp.interval, false,
         "DVR_USTMP_INTERVAL_MS_POS"},
        {DVR_AUDIO_EN_POS, settings.audioRecording, true, "DVR_AUDIO_EN_POS"},
        {DVRCAM_NUM_POS, settings.cameraCount, false, "DVRCAM_NUM"},
    };
    for (const IntWrite &write : writes) {
        ret = write.isFlag ? qv_vendor_data_write_bool(write.position, write.value != 0)
                           : qv_vendor_data_write_int(write.position, 4, write.value);
        if (ret != 0) {
            REC_LOGE(getEncoderId(), "Fail to write %s into vendor data!", write.name);
            DVR_ASSERT(ret == 0);
        }
    }

    char sourceList[kSettingTextSize] = {};
    const int sourceCount = std::min(settings.cameraCount, RecordSettings_t::kMaxCameraSources);
    for (int i = 0; i < sourceCount; ++i) {
        const size_t used = strlen(sourceList);
        snprintf(sourceList + used, sizeof(sourceList) - used, i + 1 < sourceCount ? "%d," : "%d",
                 settings.cameraSources[i]);
    }
    ret = qv_vendor_data_write_string(DVRCAM_SRC_SEL_POS, kSettingTextSize, sourceList);
    if (ret != 0) {
        REC_LOGE(getEncoderId(), "Fail to write DVRCAM_SRC_SEL into vendor data!");
        DVR_ASSERT(ret == 0);
    }
    return DVR_SUCCESS;
}

DVRResult_e Recorder::abandonNewSettings() {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.copy(mCurSettings);
    return DVR_SUCCESS;
}

bool Recorder::isSettingChanged() {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    return mCurSettings.changeTime != mNewSettings.changeTime;
}

void Recorder::getCurrentSettings(RecordSettings_t *pSettings) {
    DVR_ASSERT(pSettings != NULL);
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    pSettings->copy(_settingsInEffect());
}

DVRResult_e Recorder::setOutputFormat(DVRFileFormat_e format) {
    if ((unsigned int)format > DVR_FILE_FORMAT_TS) {
        REC_LOGE(getEncoderId(), "Invalid file format: 0x%x\n", format);
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.outputFormat = format;
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setBitRate(int bitRate) {
    if (bitRate < mgDeviceCaps->min_bit_rate || bitRate > mgDeviceCaps->max_bit_rate) {
        REC_LOGE(getEncoderId(), "Invalid bit rate: %d Mbps (spec:[%d,%d])\n", bitRate,
                 mgDeviceCaps->min_bit_rate, mgDeviceCaps->max_bit_rate);
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.bitRate = bitRate;
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setFileLength(int seconds) {
    if (seconds < mgDeviceCaps->min_file_length || seconds > mgDeviceCaps->max_file_length) {
        REC_LOGE(getEncoderId(), "Invalid file length: %d seconds (spec:[%d,%d])\n", seconds,
                 mgDeviceCaps->min_file_length, mgDeviceCaps->max_file_length);
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.fileLength = seconds;
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setFrameRate(int frameRate) {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        REC_LOGE(getEncoderId(), "Camera device NOT attached\n");
        return DVR_FAILURE;
    }
    if (frameRate < mgDeviceCaps->min_frame_rate || frameRate > mgDeviceCaps->max_frame_rate) {
        REC_LOGE(getEncoderId(), "Invalid frame rate: %d fps (spec:[%d,%d])\n", frameRate,
                 mgDeviceCaps->min_frame_rate, mgDeviceCaps->max_frame_rate);
        return DVR_INVALID_ARGUMENT;
    }
    const int cameraFrameRate = mCamera->getCaps()->frameRate;
    if (frameRate > cameraFrameRate) {
        REC_LOGE(getEncoderId(), "Desired frame rate(%d) exceeds camera's capability(%d)\n",
                 frameRate, cameraFrameRate);
        return DVR_INVALID_ARGUMENT;
    }
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.frameRate = frameRate;
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setResolution(int width, int height) {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        REC_LOGE(getEncoderId(), "Camera device NOT attached\n");
        return DVR_FAILURE;
    }
    mSettingsLock.lock();
    if (width != -1 && height != -1) {
        DVR_LOGE("Follow input's resolution only...\n");
        // The settings lock stays held on this refusal, deliberately: every
        // later settings operation of this recorder then waits for good.
        return DVR_INVALID_ARGUMENT;
    }
    const DVRCameraCaps_t *cameraCaps = mCamera->getCaps();
    mNewSettings.width = cameraCaps->width;
    mNewSettings.height = cameraCaps->height;
    _stampChangeTime(mNewSettings);
    mSettingsLock.unlock();
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setTimestamp(const QVStampSettings_t &setting) {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    copy_stamp_setting(&mNewSettings.timestamp, &setting);
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setSelfDefinedStamp(const QVStampSettings_t *pSetting) {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    copy_stamp_setting(&mNewSettings.userStamp, pSetting);
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setAudioRecording(bool enable) {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    // One clock value for both: switching audio alone is no pending change.
    const uint32_t now = static_cast<uint32_t>(getMonotonicClockUs());
    mNewSettings.audioRecording = enable;
    mCurSettings.audioRecording = enable;
    mNewSettings.changeTime = now;
    mCurSettings.changeTime = now;
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setSamplingRate(unsigned int rate) {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    mNewSettings.samplingRate = rate;
    _stampChangeTime(mNewSettings);
    return DVR_SUCCESS;
}

std::set<unsigned int> Recorder::encoderSamplingRate() {
    return mEncoder->getSupportedSamplingRates();
}

DVRFileFormat_e Recorder::getOutputFormat() const {
    return _settingsInEffect().outputFormat;
}

int Recorder::getBitRate() const {
    return _settingsInEffect().bitRate;
}

int Recorder::getFrameRate() const {
    return _settingsInEffect().frameRate;
}

int Recorder::getFileLength() const {
    return _settingsInEffect().fileLength;
}

bool Recorder::getAudioRecording() const {
    return _settingsInEffect().audioRecording;
}

DVRResolution_e Recorder::getResolution() const {
    const RecordSettings_t &settings = _settingsInEffect();
    const int width = settings.width;
    const int height = settings.height;
    if (width == 1920 && height == 1080) {
        return DVR_RESOLUTION_1080P;
    }
    if (width == 1280 && height == 720) {
        return DVR_RESOLUTION_720P;
    }
    if (width == 720 && height == 480) {
        return DVR_RESOLUTION_480P;
    }
    REC_LOGE(getEncoderId(), "Invalid size:{%d,%d}\n", width, mCurSettings.height);
    if (width == -1 || height == -1) {
        return DVR_RESOLUTION_INPUT;
    }
    return static_cast<DVRResolution_e>(-1);
}

DVRResult_e Recorder::getTimestampSetting(QVStampSettings_t *pTsSetting) {
    DVR_ASSERT(pTsSetting != NULL);
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    const StampSettingPriv_t &stamp = _settingsInEffect().timestamp;
    pTsSetting->enabled = stamp.enabled;
    pTsSetting->x = stamp.x;
    pTsSetting->y = stamp.y;
    return DVR_SUCCESS;
}

DVRResult_e Recorder::getSelfDefinedStampSetting(QVStampSettings_t *pStampSetting) {
    DVR_ASSERT(pStampSetting != NULL);
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    const StampSettingPriv_t &stamp = _settingsInEffect().userStamp;
    pStampSetting->enabled = stamp.enabled;
    pStampSetting->x = stamp.x;
    pStampSetting->y = stamp.y;
    pStampSetting->interval = stamp.interval;
    return DVR_SUCCESS;
}

DVRResult_e Recorder::getDeviceCaps(EncoderDeviceCaps_t *pCaps) {
    if (pCaps == nullptr) {
        DVR_LOGE("Invalid NULL parameter!\n");
        return DVR_INVALID_ARGUMENT;
    }
    if (mgDeviceCaps == nullptr) {
        DVR_LOGE("Device capability is not initialized yet!\n");
        return DVR_FAILURE;
    }
    pCaps->file_name_length_limit = mgDeviceCaps->file_name_length_limit;
    pCaps->max_width = mgDeviceCaps->max_width;
    pCaps->max_height = mgDeviceCaps->max_height;
    pCaps->max_file_length = mgDeviceCaps->max_file_length;
    pCaps->min_file_length = mgDeviceCaps->min_file_length;
    pCaps->max_bit_rate = mgDeviceCaps->max_bit_rate;
    pCaps->min_bit_rate = mgDeviceCaps->min_bit_rate;
    pCaps->max_frame_rate = mgDeviceCaps->max_frame_rate;
    pCaps->min_frame_rate = mgDeviceCaps->min_frame_rate;
    return DVR_SUCCESS;
}

// ---------------------------------------------------------------- file names

DVRResult_e Recorder::setStoragePath(const char *path) {
    DVR_ASSERT(mgDeviceCaps->file_name_length_limit > 0);
    const int limit = mgDeviceCaps->file_name_length_limit;
    if (path == nullptr || path[0] == '\0') {
        memset(mStoragePath, 0, limit);
        return DVR_SUCCESS;
    }
    const size_t length = strlen(path);
    if (length >= static_cast<size_t>(limit)) {
        REC_LOGE(getEncoderId(), "Given storage path too long: %zu characters\n", length);
        return DVR_INVALID_ARGUMENT;
    }
    // No terminator is written: what remains of a longer earlier path stays
    // behind the new one.
    memcpy(mStoragePath, path, length);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::nextFile(const char *pFileName) {
    std::lock_guard<std::mutex> stateGuard(mStateLock);
    if (pFileName == nullptr) {
        REC_LOGE(getEncoderId(), "Invalid NULL pFileName!\n");
        return DVR_INVALID_ARGUMENT;
    }
    if (pFileName[0] == '\0') {
        REC_LOGE(getEncoderId(), "Invalid empty file name\n");
        return DVR_INVALID_ARGUMENT;
    }
    const int limit = mgDeviceCaps->file_name_length_limit;
    const size_t length = strlen(pFileName);
    if (length >= static_cast<size_t>(limit)) {
        REC_LOGE(getEncoderId(), "Given file name length exceeds %d (%zu)\n", limit - 1, length);
        return DVR_INVALID_ARGUMENT;
    }
    _setNextFileName(pFileName);
    if (mState == DVR_STM_IDLE) {
        SWITCH_STATE(DVR_STM_READY);
    }
    return DVR_SUCCESS;
}

DVRResult_e Recorder::setFileNameFormat(const char *fileNameFmt, const char *timeFmt) {
    std::lock_guard<std::mutex> stateGuard(mStateLock);
    pthread_mutex_lock(&mFileNameLock);
    DVR_ASSERT(mgDeviceCaps->file_name_length_limit > 0);
    mFileNameGenerator->setFormat(fileNameFmt, timeFmt);
    const bool formatSet = mFileNameGenerator->isFormatSet();
    if (formatSet && mState == DVR_STM_IDLE) {
        SWITCH_STATE(DVR_STM_READY);
    } else if (!formatSet && mState == DVR_STM_READY) {
        SWITCH_STATE(DVR_STM_IDLE);
    }
    pthread_mutex_unlock(&mFileNameLock);
    return DVR_SUCCESS;
}

DVRResult_e Recorder::autoNextFile(bool enable) {
    mbAutoNextFile = enable;
    std::lock_guard<std::mutex> stateGuard(mStateLock);
    DVR_ASSERT(mEncoder != NULL);
    const DVRStm_e state = mState;
    if (enable) {
        if (state == DVR_STM_RECORDING) {
            _updateFileName();
        } else if (state == DVR_STM_IDLE || state == DVR_STM_READY) {
            SWITCH_STATE(DVR_STM_READY);
        }
    } else if (state == DVR_STM_IDLE || state == DVR_STM_READY) {
        SWITCH_STATE(DVR_STM_IDLE);
    }
    return DVR_SUCCESS;
}

bool Recorder::hasNextFile() {
    return mNextFileName[0] != '\0';
}

bool Recorder::_isNextFileSet() {
    return mNextFileName[0] != '\0' && strcmp(mNextFileName, mFileName) != 0;
}

void Recorder::_setNextFileName(const char *pFileName) {
    DVR_ASSERT(pFileName != NULL);
    if (pFileName[0] == '\0') {
        REC_LOGE(getEncoderId(), "Invalid empty file name\n");
        return;
    }
    const size_t file_len = strlen(pFileName);
    DVR_ASSERT((int)file_len < mgDeviceCaps->file_name_length_limit);
    std::lock_guard<std::mutex> nameGuard(mLock);
    memcpy(mNextFileName, pFileName, file_len);
    mNextFileName[file_len] = '\0';
}

int Recorder::_getNextFileFromUser() {
    DVR_ASSERT(mbAutoNextFile == true);
    int cameraId = -1;
    {
        std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
        if (mCamera == nullptr) {
            REC_LOGE(getEncoderId(), "Camera device NOT attached\n");
            return -1;
        }
        cameraId = mCamera->getID();
    }
    const int limit = mgDeviceCaps->file_name_length_limit;
    char *fileName = static_cast<char *>(calloc(limit, 1));
    DVR_ASSERT(fileName != NULL);
    // Asked without any recorder lock: the client may take its time.
    mService.getFileNameFromUser(cameraId, fileName, limit);
    int ret = 0;
    if (fileName[0] != '\0') {
        // The client may have filled the whole buffer; a name must end inside it.
        fileName[limit - 1] = '\0';
        _setNextFileName(fileName);
    } else {
        REC_LOGE(getEncoderId(), "File name is empty (or not gotten)!\n");
        ret = -1;
    }
    free(fileName);
    return ret;
}

void Recorder::_genDefaultFileName() {
    DVR_ASSERT(mgDeviceCaps->file_name_length_limit > 0);
    DVR_ASSERT_TEXT(mCurSettings.fileLength > 0, "mCurSettings.enc.mFileLength > 0");
    const int limit = mgDeviceCaps->file_name_length_limit;
    char *pDefFileName = static_cast<char *>(calloc(limit, 1));
    DVR_ASSERT(pDefFileName != NULL);

    DVRFileFormat_e format = mCurSettings.outputFormat;
    if ((unsigned int)format > DVR_FILE_FORMAT_TS) {
        DVR_LOGW("Invalid file format, default set '%s'\n", format_extension(DVR_FILE_FORMAT_TS));
        format = DVR_FILE_FORMAT_TS;
    }
    if (access(mStoragePath, F_OK) != 0) {
        DVR_LOGW("Storage path '%s' gone, use default path '%s'\n", mStoragePath, gDefaultPath);
        const int ret = create_default_path(mStoragePath, limit);
        DVR_ASSERT(ret == 0);
    }

    char fileNameFormat[kDefaultNameFormatSize] = {};
    snprintf(fileNameFormat, sizeof(fileNameFormat), "%s/default_c%d_[%s]_[%s].%s", mStoragePath,
             getEncoderId(), kStartTimePattern, kEndTimePattern, format_extension(format));
    mFileNameGenerator->genFileNameOnce(pDefFileName, mCurSettings.fileLength, limit - 1,
                                        fileNameFormat, kDefaultTimeFormat);
    _setNextFileName(pDefFileName);
    free(pDefFileName);
}

void Recorder::_updateFileName() {
    if (!mbAutoNextFile) {
        _genDefaultFileName();
    } else if (_getNextFileFromUser() != 0) {
        _genDefaultFileName();
    }
}

void Recorder::_applyNextFile() {
    DVR_ASSERT(mEncoder != NULL);
    strncpy(mFileName, mNextFileName, mgDeviceCaps->file_name_length_limit);
    const int ret = mEncoder->setFileName(mFileName);
    DVR_ASSERT(ret == 0);
}

// ---------------------------------------------------------------- stamps and snapshot

DVRResult_e Recorder::takeSnapshot(SnapshotPA_t &result) {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        DVR_LOGE("Camera device not attached\n");
        return DVR_FAILURE;
    }
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    uint64_t timestamp = 0;
    const int ret = mCamera->getVideoFrame(frameVA, framePA, &timestamp);
    if (ret != 0) {
        DVR_LOGE("getVideoFrame failed: %d\n", ret);
        return DVR_FAILURE;
    }
    const DVRCameraCaps_t *caps = mCamera->getCaps();
    result.planePA[0] = framePA[0];
    result.planePA[1] = framePA[1];
    result.width = caps->width;
    result.height = caps->height;
    result.stride = caps->stride;
    result.timestamp = timestamp;
    // A snapshot without its user stamp is still a snapshot.
    const int stampRet = _renderStamp(frameVA);
    if (stampRet != 0) {
        DVR_LOGE("_renderStamp() failed: %d", stampRet);
    }
    return DVR_SUCCESS;
}

int Recorder::_renderStamp(void **frame) {
    DVR_ASSERT(mCamera != NULL);
    char text[IDVRCallback::kStampStringCapacity] = {};
    const DVRCameraCaps_t *caps = mCamera->getCaps();
    const int cameraId = mCamera->getID();
    const StampSettingPriv_t &timestamp = mCurSettings.timestamp;
    const StampSettingPriv_t &userStamp = mCurSettings.userStamp;

    // A brush per stamp and frame: the settings may change between frames.
    if (timestamp.enabled) {
        const time_t now = time(nullptr);
        struct tm localNow;
        const struct tm *tm = localtime_r(&now, &localNow);
        DVR_ASSERT(tm != NULL);
        strftime(text, sizeof(text), kTimestampFormat, tm);
        TextBrush brush(caps->width, caps->height, caps->stride, format_translate(caps->format),
                        timestamp.fontSize, kStampBackground, timestamp.color);
        const int ret = brush.drawText(timestamp.x, timestamp.y, frame[0], text);
        DVR_ASSERT(ret == 0);
    }
    if (!userStamp.enabled) {
        return 0;
    }
    memset(text, 0, sizeof(text));
    // Asked on every frame: the stamp's interval is not used here.
    mService.getStampFromUser(cameraId, text);
    if (text[0] == '\0') {
        return -1;
    }
    // The client must stay within the buffer; its text ends inside it regardless.
    text[sizeof(text) - 1] = '\0';
    TextBrush brush(caps->width, caps->height, caps->stride, format_translate(caps->format),
                    userStamp.fontSize, kStampBackground, userStamp.color);
    const int ret = brush.drawText(userStamp.x, userStamp.y, frame[0], text);
    DVR_ASSERT(ret == 0);
    return 0;
}

// ---------------------------------------------------------------- helpers

int Recorder::getEncoderId() const {
    return mEncoder != nullptr ? mEncoder->mId : -1;
}

const RecordSettings_t &Recorder::_settingsInEffect() const {
    return mState == DVR_STM_RECORDING ? mCurSettings : mNewSettings;
}

void Recorder::_stampChangeTime(RecordSettings_t &settings) {
    settings.changeTime = static_cast<uint32_t>(getMonotonicClockUs());
}

void Recorder::_getCapsFromDevices() {
    DVR_ASSERT(mEncoder != NULL);
    if (mgDeviceCaps != nullptr) {
        DVR_ASSERT(mdRefCount > 0);
        ++mdRefCount;
        return;
    }
    DVR_ASSERT(mdRefCount == 0);
    mgDeviceCaps = static_cast<EncoderCapability_t *>(malloc(sizeof(EncoderCapability_t)));
    DVR_ASSERT(mgDeviceCaps != NULL);
    EncoderCapability_t caps;
    memset(&caps, 0, sizeof(caps));
    const int ret = mEncoder->getCapability(&caps);
    DVR_ASSERT(ret == 0);
    _capsCheckSystemLimit(&caps);
    *mgDeviceCaps = caps;
    mdRefCount = 1;
}

void Recorder::_capsCheckSystemLimit(EncoderCapability_t *pCaps) {
    struct Limit {
        const char *name;
        int32_t *value;
        int limit;
    };
    const Limit limits[] = {
        {"width", &pCaps->max_width, kSystemMaxWidth},
        {"height", &pCaps->max_height, kSystemMaxHeight},
        {"bitrate", &pCaps->max_bit_rate, kSystemMaxBitRate},
    };
    for (const Limit &limit : limits) {
        if (*limit.value > limit.limit) {
            REC_LOGW(getEncoderId(),
                     "Encoder capability (%s=%d) exceeds system limitation (%d), force to be %d\n",
                     limit.name, *limit.value, limit.limit, limit.limit);
            *limit.value = limit.limit;
        }
    }
}

void Recorder::_capsCheckAndCorrection() {
    std::lock_guard<std::mutex> settingsGuard(mSettingsLock);
    DVR_ASSERT(mCamera != NULL);
    const DVRCameraCaps_t *cameraCaps = mCamera->getCaps();
    struct Bound {
        const char *name;
        const char *unit;
        int32_t *value;
        int cameraValue;
    };
    const Bound bounds[] = {
        {"Frame rate", "fps", &mNewSettings.frameRate, cameraCaps->frameRate},
        {"Width", "px", &mNewSettings.width, cameraCaps->width},
        {"Height", "px", &mNewSettings.height, cameraCaps->height},
    };
    bool clamped = false;
    for (const Bound &bound : bounds) {
        if (*bound.value > bound.cameraValue) {
            REC_LOGW(getEncoderId(), "%s (%d %s) exceeds camera's capability(%d %s)!\n", bound.name,
                     *bound.value, bound.unit, bound.cameraValue, bound.unit);
            *bound.value = bound.cameraValue;
            clamped = true;
        }
    }
    if (clamped) {
        _stampChangeTime(mNewSettings);
    }
}

}  // namespace dvrspace
