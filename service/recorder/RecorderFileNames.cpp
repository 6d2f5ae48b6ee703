// A recording channel's output file names: the default directory and the
// storage path, the client's next file, pattern names, names asked from the
// file-name client and default names.
#define LOG_TAG "DVRRecorder"

#include "Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DVR.h"
#include "DVRAssert.h"
#include "DVRLog.h"
#include "RecorderInternal.h"
#include "dvr_file_name_generator.h"
#include "runtimecfg.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "Recorder.cpp"

namespace dvrspace {

using recorder_internal::kEndTimePattern;
using recorder_internal::kStartTimePattern;

char *gDefaultPath = nullptr;

namespace {

constexpr const char *kDefaultPathKey = "DVR_DEFAULT_PATH";
constexpr const char *kBuiltInDefaultPath = "/tmp/dvr_default";
// Room the runtime configuration's line limit leaves for a value.
constexpr int kLineOverhead = 16;

constexpr const char *kDefaultTimeFormat = "%Y%m%d_%H-%M-%S";
constexpr size_t kDefaultNameFormatSize = 64;

const char *format_extension(DVRFileFormat_e format) {
    return format == DVR_FILE_FORMAT_AVI ? "avi" : "ts";
}

}  // namespace

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

}  // namespace dvrspace
