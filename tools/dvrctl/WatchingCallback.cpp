#include "WatchingCallback.h"

#include <utils/Errors.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "FileNamePrediction.h"

using namespace dvrspace;

namespace dvrctl {

namespace {

// Copies text into buffer of capacity bytes, cut to fit and terminated.
void copyAnswer(const std::string &text, char *buffer, size_t capacity) {
    const size_t length = std::min(text.size(), capacity - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
}

}  // namespace

WatchingCallback::WatchingCallback(Answers answers, Listener listener)
    : mAnswers(std::move(answers)), mListener(std::move(listener)) {}

std::string WatchingCallback::expand(const std::string &pattern, int number, std::time_t now) {
    std::string format;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '%' && i + 1 < pattern.size()) {
            if (pattern[i + 1] == 'i') {
                format += std::to_string(number);
            } else {
                format += pattern.substr(i, 2);
            }
            ++i;
        } else {
            format += pattern[i];
        }
    }
    return dvrguard::FileNamePrediction::formatTime(format, now);
}

int WatchingCallback::onRecordStart(int cbkId, int index, const char *fileName) {
    return notify({DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_START, cbkId, index,
                   std::string(fileName != nullptr ? fileName : ""), 0});
}

int WatchingCallback::onRecordFinish(int cbkId, int index, const char *fileName) {
    return notify({DVR_CBK_OBJ_RECORD, DVR_CBK_RECORD_FINISH, cbkId, index,
                   std::string(fileName != nullptr ? fileName : ""), 0});
}

int WatchingCallback::onRecordError(int cbkId, int index, int errorCode) {
    return notify({DVR_CBK_OBJ_ERROR, DVR_CBK_ERROR, cbkId, index, std::nullopt, errorCode});
}

int WatchingCallback::onRecordErrorSevere(int cbkId, int index, int errorCode) {
    return notify({DVR_CBK_OBJ_ERROR, DVR_CBK_ERROR_SEVERE, cbkId, index, std::nullopt, errorCode});
}

int WatchingCallback::onRecordAbnormal(int cbkId, int index, int value) {
    return notify({DVR_CBK_OBJ_ABNORMAL, DVR_CBK_ABNORMAL, cbkId, index, std::nullopt, value});
}

int WatchingCallback::getStampString(int cbkId, int index, char *buffer) {
    if (!mAnswers.stamp) {
        return DVRCallbackAdapter::getStampString(cbkId, index, buffer);
    }
    if (buffer == nullptr) {
        return android::BAD_VALUE;
    }
    copyAnswer(expand(*mAnswers.stamp, 0, std::time(nullptr)), buffer, kStampStringCapacity);
    return 0;
}

int WatchingCallback::fileNameGenerator(int cbkId, int index, char *buffer, int length) {
    if (!mAnswers.fileName) {
        return DVRCallbackAdapter::fileNameGenerator(cbkId, index, buffer, length);
    }
    if (buffer == nullptr || length <= 0) {
        return android::BAD_VALUE;
    }
    copyAnswer(expand(*mAnswers.fileName, ++mFileNamesAnswered, std::time(nullptr)), buffer,
               static_cast<size_t>(length));
    return 0;
}

int WatchingCallback::notify(const Notification &notification) {
    if (mListener) {
        mListener(notification);
    }
    return 0;
}

}  // namespace dvrctl
