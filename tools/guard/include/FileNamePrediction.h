// What the service will name a channel's files, worked out before a request
// is sent: the default name of a storage path and the name of a pattern
// (setFileNameFormat), each next to the name the user meant. The service's
// naming cuts a default-name format at 63 characters and cuts the text in
// front of a time pattern at its first "%", "S", "T" (start) or "%", "E", "T"
// (end); a prediction whose name differs from the intended one shows that.
// The prediction runs the service's own generator. Pure; any thread.
#ifndef DVR_GUARD_FILE_NAME_PREDICTION_H
#define DVR_GUARD_FILE_NAME_PREDICTION_H

#include <ctime>
#include <string>

namespace dvrguard {

class FileNamePrediction {
public:
    // The service's time format of default names and the patterns it knows.
    static constexpr const char *kDefaultTimeFormat = "%Y%m%d_%H-%M-%S";
    static constexpr const char *kStartPattern = "%ST";
    static constexpr const char *kEndPattern = "%ET";

    // The default name in storagePath of channel encId recording files of
    // fileLengthS seconds in format (0 avi, 1 ts, anything else ts), started
    // at now; limit is the encoder's file_name_length_limit.
    static FileNamePrediction defaultName(const std::string &storagePath, int encId, int format,
                                          int fileLengthS, int limit, std::time_t now);
    // The name of pattern with time format timeFormat; limit is the
    // encoder's file_name_length_limit.
    static FileNamePrediction patternName(const std::string &pattern, const std::string &timeFormat,
                                          int fileLengthS, int limit, std::time_t now);

    // strftime of format at when in local time, of any length.
    static std::string formatTime(const std::string &format, std::time_t when);

    // The name the service writes; empty when it aborts instead.
    const std::string &name() const { return mName; }
    // The name the user meant: every pattern replaced, nothing cut.
    const std::string &intended() const { return mIntended; }
    bool mangled() const { return mName != mIntended; }
    // Non-empty when the service aborts on this pattern: why.
    const std::string &abortReason() const { return mAbortReason; }

private:
    FileNamePrediction(std::string name, std::string intended, std::string abortReason);

    std::string mName;
    std::string mIntended;
    std::string mAbortReason;
};

}  // namespace dvrguard

#endif  // DVR_GUARD_FILE_NAME_PREDICTION_H
