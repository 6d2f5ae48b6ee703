#include "dvr_file_name_generator.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "DVRAssert.h"

namespace dvrspace {

namespace {

constexpr int kTimeTextSize = 32;

enum PatternIndex { kNoPattern = 0, kStartPattern = 1, kEndPattern = 2 };

}  // namespace

time_t DVRFileNameGenerator::systemWallClock() {
    return time(nullptr);
}

DVRFileNameGenerator::DVRFileNameGenerator(int lengthLimit, const char *start_time_pattern,
                                           const char *end_time_pattern, WallClock clock)
    : mFormatLengthLimit(lengthLimit), mClock(clock) {
    DVR_ASSERT((start_time_pattern) != NULL && (strlen(start_time_pattern) < TIME_PATTERN_LENGTH));
    DVR_ASSERT((end_time_pattern) != NULL && (strlen(end_time_pattern) < TIME_PATTERN_LENGTH));
    DVR_ASSERT(mFormatLengthLimit > 0);
    DVR_ASSERT(mClock != nullptr);
    mFileNameFmt = static_cast<char *>(calloc(mFormatLengthLimit, 1));
    mTimeFmt = static_cast<char *>(calloc(mFormatLengthLimit, 1));
    DVR_ASSERT(mFileNameFmt != NULL && mTimeFmt != NULL);
    mFmtGhost = static_cast<char *>(calloc(mFormatLengthLimit, 1));
    DVR_ASSERT(mFmtGhost != NULL);
    // The length checks above leave room for the terminator.
    memset(mStartTimePattern, 0, sizeof(mStartTimePattern));
    memset(mEndTimePattern, 0, sizeof(mEndTimePattern));
    memcpy(mStartTimePattern, start_time_pattern, strlen(start_time_pattern));
    memcpy(mEndTimePattern, end_time_pattern, strlen(end_time_pattern));
}

DVRFileNameGenerator::~DVRFileNameGenerator() {
    free(mFileNameFmt);
    free(mFmtGhost);
    free(mTimeFmt);
}

void DVRFileNameGenerator::setFormat(const char *pFileNameFmt, const char *pTimeFmt) {
    if (pFileNameFmt != nullptr && pFileNameFmt[0] != '\0') {
        DVR_ASSERT_TEXT(strlen(pFileNameFmt) < (size_t)mFormatLengthLimit,
                        "strlen(pFileNameFmt) < mFormatLengthLimit");
        strcpy(mFileNameFmt, pFileNameFmt);
    } else {
        mFileNameFmt[0] = '\0';
    }
    if (pTimeFmt != nullptr && pTimeFmt[0] != '\0') {
        DVR_ASSERT_TEXT(strlen(pTimeFmt) < (size_t)mFormatLengthLimit,
                        "strlen(pTimeFmt) < mFormatLengthLimit");
        strcpy(mTimeFmt, pTimeFmt);
    } else {
        mTimeFmt[0] = '\0';
    }
}

bool DVRFileNameGenerator::isFormatSet() const {
    return mFileNameFmt[0] != '\0';
}

int DVRFileNameGenerator::genTime(char *startText, char *endText, int secondsAhead, int size,
                                  const char *timeFmt) {
    // One clock reading for both, so the end is exactly secondsAhead later.
    const time_t now = mClock();
    struct tm local {};
    struct tm *tm = localtime_r(&now, &local);
    DVR_ASSERT(tm != NULL);
    strftime(startText, size, timeFmt, tm);
    const time_t end = now + secondsAhead;
    tm = localtime_r(&end, &local);
    DVR_ASSERT(tm != NULL);
    strftime(endText, size, timeFmt, tm);
    return static_cast<int>(strlen(endText));
}

int DVRFileNameGenerator::findPattern(const char *text, char **retPattern, int *retPtnIdx) {
    DVR_ASSERT(retPattern != NULL);
    DVR_ASSERT(retPtnIdx != NULL);
    const char *start = strstr(text, mStartTimePattern);
    const char *end = strstr(text, mEndTimePattern);
    if (start != nullptr && (end == nullptr || start < end)) {
        *retPattern = mStartTimePattern;
        *retPtnIdx = kStartPattern;
        return static_cast<int>(start - text);
    }
    if (end != nullptr) {
        *retPattern = mEndTimePattern;
        *retPtnIdx = kEndPattern;
        return static_cast<int>(end - text);
    }
    *retPattern = nullptr;
    *retPtnIdx = kNoPattern;
    return 0;
}

int DVRFileNameGenerator::genFileNameOnce(char *output, int secondsAhead, size_t length,
                                          const char *fileNameFmt, const char *timeFmt) {
    char timeTexts[3][kTimeTextSize] = {};
    genTime(timeTexts[kStartPattern], timeTexts[kEndPattern], secondsAhead, kTimeTextSize, timeFmt);

    strncpy(mFmtGhost, fileNameFmt, mFormatLengthLimit);
    mFmtGhost[mFormatLengthLimit - 1] = '\0';

    // The name is assembled apart from output so that one that does not fit is
    // caught by the length check below before anything overruns the caller.
    std::string name;
    char *cursor = mFmtGhost;
    while (true) {
        char *pattern = nullptr;
        int patternIndex = kNoPattern;
        const int position = findPattern(cursor, &pattern, &patternIndex);
        // Also ends the loop for a pattern at the very start of the remaining
        // text, which is then kept literally.
        if (position == 0) {
            break;
        }
        // The pattern's characters are the delimiter set: the piece starts
        // after any leading pattern characters and ends at the first one.
        char *savePtr = nullptr;
        const char *piece = strtok_r(cursor, pattern, &savePtr);
        if (piece == nullptr) {
            break;
        }
        name.append(piece, strnlen(piece, length));
        name.append(timeTexts[patternIndex]);
        cursor += position + strlen(pattern);
    }
    name.append(cursor);

    const char *file_name = name.c_str();
    DVR_ASSERT(strlen(file_name) < length);
    memcpy(output, file_name, name.size() + 1);
    return static_cast<int>(name.size());
}

int DVRFileNameGenerator::genFileName(char *output, int secondsAhead, size_t length) {
    return genFileNameOnce(output, secondsAhead, length, mFileNameFmt, mTimeFmt);
}

}  // namespace dvrspace
