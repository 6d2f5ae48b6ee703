#include "LogCapture.h"

#include <android/log.h>

#include <mutex>

namespace dvrtest {
namespace {

std::mutex gLinesLock;
std::vector<LogLine> gLines;

void captureLogger(const __android_logger_data *data, const char *message) {
    {
        std::lock_guard<std::mutex> lock(gLinesLock);
        gLines.push_back({data->priority, data->tag != nullptr ? data->tag : "", message});
    }
    __android_log_stderr_logger(data, message);
}

}  // namespace

LogCapture::LogCapture() {
    clear();
    // DEBUG lines are part of what tests assert.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(captureLogger);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(gLinesLock);
    return gLines;
}

size_t LogCapture::count(int priority, const std::string &tag, const std::string &message) const {
    std::lock_guard<std::mutex> lock(gLinesLock);
    size_t matches = 0;
    for (const LogLine &line : gLines) {
        if (line.priority == priority && line.tag == tag && line.message == message) {
            ++matches;
        }
    }
    return matches;
}

std::vector<std::string> LogCapture::messagesContaining(const std::string &fragment) const {
    std::lock_guard<std::mutex> lock(gLinesLock);
    std::vector<std::string> found;
    for (const LogLine &line : gLines) {
        if (line.message.find(fragment) != std::string::npos) {
            found.push_back(line.message);
        }
    }
    return found;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gLinesLock);
    gLines.clear();
}

}  // namespace dvrtest
