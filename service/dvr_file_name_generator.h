// Turns a client's file-name format into a file name by replacing a start-time
// and an end-time pattern with the recording's start time and planned end time,
// both formatted with the client's strftime format.
//
// Not thread-safe: its owner (a Recorder) serialises every call.
#ifndef DVR_FILE_NAME_GENERATOR_H
#define DVR_FILE_NAME_GENERATOR_H

#include <cstddef>
#include <ctime>

namespace dvrspace {

class DVRFileNameGenerator {
public:
    // Bytes of a pattern slot: at most three characters and the terminator.
    static constexpr int TIME_PATTERN_LENGTH = 4;

    // Source of the wall-clock time that the patterns are replaced with.
    using WallClock = time_t (*)();
    static time_t systemWallClock();

    // lengthLimit bounds both formats (strictly fewer characters) and sizes the
    // buffers; broken arguments abort. clock is replaceable so that names are
    // predictable where they have to be.
    DVRFileNameGenerator(int lengthLimit, const char *start_time_pattern,
                         const char *end_time_pattern, WallClock clock = &systemWallClock);
    ~DVRFileNameGenerator();
    DVRFileNameGenerator(const DVRFileNameGenerator &) = delete;
    DVRFileNameGenerator &operator=(const DVRFileNameGenerator &) = delete;

    // Null or empty clears the respective format; a format of lengthLimit or
    // more characters aborts.
    void setFormat(const char *pFileNameFmt, const char *pTimeFmt);
    // True when a file-name format is set.
    bool isFormatSet() const;

    // Formats now into startText and now + secondsAhead into endText (each of
    // size bytes) with timeFmt; returns the length of endText.
    int genTime(char *startText, char *endText, int secondsAhead, int size, const char *timeFmt);
    // Position in text of the first pattern; *retPattern and *retPtnIdx (1
    // start, 2 end) tell which. With neither pattern present: null, 0, 0.
    int findPattern(const char *text, char **retPattern, int *retPtnIdx);
    // Writes the name for fileNameFmt and timeFmt into output (length bytes)
    // and returns its length; a name that does not fit aborts.
    int genFileNameOnce(char *output, int secondsAhead, size_t length, const char *fileNameFmt,
                        const char *timeFmt);
    // genFileNameOnce with the formats of setFormat.
    int genFileName(char *output, int secondsAhead, size_t length);

private:
    char mStartTimePattern[TIME_PATTERN_LENGTH];
    char mEndTimePattern[TIME_PATTERN_LENGTH];
    int mFormatLengthLimit;
    char *mFileNameFmt;
    // Scratch copy of the file-name format, cut up while a name is generated.
    char *mFmtGhost;
    char *mTimeFmt;
    WallClock mClock;
};

}  // namespace dvrspace

#endif  // DVR_FILE_NAME_GENERATOR_H
