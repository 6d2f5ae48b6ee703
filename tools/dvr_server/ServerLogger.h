// How dvr_server's log lines look on standard error: one line per message,
// "MM-DD HH:MM:SS.mmm  PID  TID P TAG: message", the message's own trailing
// line feed dropped (liblog's stderr logger adds a second one). When standard
// error is the systemd journal, which stamps its own time, a line is
// "<syslog level>TAG: message" so that the journal keeps each priority.
#ifndef DVR_SERVER_LOGGER_H
#define DVR_SERVER_LOGGER_H

#include <android/log.h>

namespace dvrspace {

class ServerLogger {
public:
    // Makes liblog hand every message of the process to this logger and drop
    // those below minimumPriority (an android_LogPriority). Call once, early
    // in main, before other threads log.
    static void install(int minimumPriority);

private:
    // An __android_logger_function; any thread.
    static void write(const struct __android_logger_data *data, const char *message);
    // True when standard error is the stream $JOURNAL_STREAM names.
    static bool stderrIsJournal();

    static bool sToJournal;
};

}  // namespace dvrspace

#endif  // DVR_SERVER_LOGGER_H
