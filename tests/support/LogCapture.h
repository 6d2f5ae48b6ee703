// Captures every line logged through __android_log_print while an instance
// lives, so a test can assert exact log text. Lines are still written to
// stderr, where death tests match them. One instance at a time per process.
#ifndef DVR_TEST_LOG_CAPTURE_H
#define DVR_TEST_LOG_CAPTURE_H

#include <android/log.h>

#include <string>
#include <vector>

namespace dvrtest {

struct LogLine {
    int priority;  // android_LogPriority
    std::string tag;
    std::string message;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogLine> lines() const;
    // Number of captured lines equal to (priority, tag, message).
    size_t count(int priority, const std::string &tag, const std::string &message) const;
    bool contains(int priority, const std::string &tag, const std::string &message) const {
        return count(priority, tag, message) > 0;
    }
    // Captured lines whose message contains fragment, for diagnostics.
    std::vector<std::string> messagesContaining(const std::string &fragment) const;
    void clear();
};

}  // namespace dvrtest

#endif  // DVR_TEST_LOG_CAPTURE_H
