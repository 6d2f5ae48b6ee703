#include "FileNamePrediction.h"

#include <cstdio>
#include <vector>

#include "dvr_file_name_generator.h"

using dvrspace::DVRFileNameGenerator;

namespace dvrguard {

namespace {

// The service formats a default name's format into a buffer of this size.
constexpr size_t kDefaultFormatBuffer = 64;
// The service's time texts hold at most this many characters, so a pattern
// of three characters grows by at most this factor.
constexpr size_t kTimeTextCharacters = 31;

// The generator reads its clock through a plain function; the prediction's
// time is handed to it here, so both names of a prediction share one second.
thread_local std::time_t tPredictionTime = 0;

std::time_t predictionClock() {
    return tPredictionTime;
}

// Every pattern replaced by its time, in one pass from the left.
std::string replacePatterns(const std::string &format, const std::string &start,
                            const std::string &end) {
    std::string result;
    for (size_t i = 0; i < format.size();) {
        if (format.compare(i, 3, FileNamePrediction::kStartPattern) == 0) {
            result += start;
            i += 3;
        } else if (format.compare(i, 3, FileNamePrediction::kEndPattern) == 0) {
            result += end;
            i += 3;
        } else {
            result += format[i++];
        }
    }
    return result;
}

std::string generate(const std::string &format, const std::string &timeFormat, int fileLengthS,
                     std::time_t now) {
    tPredictionTime = now;
    // Room for any name of this format: the generator aborts on one that
    // does not fit.
    const size_t room = (format.size() + timeFormat.size() + 1) * kTimeTextCharacters;
    DVRFileNameGenerator generator(static_cast<int>(room), FileNamePrediction::kStartPattern,
                                   FileNamePrediction::kEndPattern, &predictionClock);
    std::vector<char> name(room, '\0');
    generator.genFileNameOnce(name.data(), fileLengthS, name.size(), format.c_str(),
                              timeFormat.c_str());
    return name.data();
}

}  // namespace

std::string FileNamePrediction::formatTime(const std::string &format, std::time_t when) {
    if (format.empty()) {
        return "";
    }
    std::tm local{};
    localtime_r(&when, &local);
    // strftime says 0 both for "too small" and for an empty result: a
    // leading character that is cut off again tells them apart.
    const std::string marked = "x" + format;
    std::vector<char> buffer(marked.size() * 4 + 64);
    while (std::strftime(buffer.data(), buffer.size(), marked.c_str(), &local) == 0) {
        buffer.resize(buffer.size() * 2);
    }
    return std::string(buffer.data() + 1);
}

FileNamePrediction::FileNamePrediction(std::string name, std::string intended,
                                       std::string abortReason)
    : mName(std::move(name)),
      mIntended(std::move(intended)),
      mAbortReason(std::move(abortReason)) {}

FileNamePrediction FileNamePrediction::defaultName(const std::string &storagePath, int encId,
                                                   int format, int fileLengthS, int limit,
                                                   std::time_t now) {
    const char *extension = format == 0 ? "avi" : "ts";
    char cut[kDefaultFormatBuffer] = {};
    snprintf(cut, sizeof(cut), "%s/default_c%d_[%s]_[%s].%s", storagePath.c_str(), encId,
             kStartPattern, kEndPattern, extension);
    const std::string start = formatTime(kDefaultTimeFormat, now);
    const std::string end = formatTime(kDefaultTimeFormat, now + fileLengthS);
    const std::string intended = storagePath + "/default_c" + std::to_string(encId) + "_[" + start +
                                 "]_[" + end + "]." + extension;
    const std::string name = generate(cut, kDefaultTimeFormat, fileLengthS, now);
    // The service asks for a default name of fewer than limit - 1 characters.
    if (static_cast<long long>(name.size()) >= static_cast<long long>(limit) - 1) {
        return FileNamePrediction("", intended,
                                  "its default names have " + std::to_string(name.size()) +
                                      " characters; the service aborts on " +
                                      std::to_string(limit - 1) + " or more");
    }
    return FileNamePrediction(name, intended, "");
}

FileNamePrediction FileNamePrediction::patternName(const std::string &pattern,
                                                   const std::string &timeFormat, int fileLengthS,
                                                   int limit, std::time_t now) {
    const std::string limitText = std::to_string(limit);
    if (static_cast<long long>(pattern.size()) >= limit) {
        return FileNamePrediction("", pattern,
                                  "the pattern has " + std::to_string(pattern.size()) +
                                      " characters; the service aborts on " + limitText +
                                      " or more");
    }
    if (static_cast<long long>(timeFormat.size()) >= limit) {
        return FileNamePrediction("", pattern,
                                  "the time format has " + std::to_string(timeFormat.size()) +
                                      " characters; the service aborts on " + limitText +
                                      " or more");
    }
    const std::string start = formatTime(timeFormat, now);
    const std::string end = formatTime(timeFormat, now + fileLengthS);
    const std::string intended = replacePatterns(pattern, start, end);
    const std::string name = generate(pattern, timeFormat, fileLengthS, now);
    if (static_cast<long long>(name.size()) >= limit) {
        return FileNamePrediction("", intended,
                                  "its names have " + std::to_string(name.size()) +
                                      " characters; the service aborts on " + limitText +
                                      " or more");
    }
    return FileNamePrediction(name, intended, "");
}

}  // namespace dvrguard
