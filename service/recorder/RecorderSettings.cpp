// A recording channel's settings: loading them from the store and the
// runtime configuration, the factory reset that writes them back, the setters
// and getters of the staged and in-force settings, and the encoder capability
// all recorders share with its corrections.
#define LOG_TAG "DVRRecorder"

#include "Recorder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DVRAssert.h"
#include "DVRLog.h"
#include "dvr_utils.h"
#include "qv_vendor_data.h"
#include "runtimecfg.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "Recorder.cpp"

namespace dvrspace {

EncoderCapability_t *Recorder::mgDeviceCaps = nullptr;
int Recorder::mdRefCount = 0;

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

constexpr int kSystemMaxWidth = 1920;
constexpr int kSystemMaxHeight = 1080;
constexpr int kSystemMaxBitRate = 25;

// The renderer's colour codes run opposite to the clients' selectors.
constexpr int kColorCodeBase = 8;

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

}  // namespace

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
        REC_LOGE(getEncoderId(),
                 "Insufficient camera source list items (only %d found, expect %d)\n", found,
                 settings.cameraCount);
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
