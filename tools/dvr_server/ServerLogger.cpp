#include "ServerLogger.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace dvrspace {

namespace {

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEF";
    return priority >= 0 && priority < static_cast<int>(sizeof(kLetters) - 1) ? kLetters[priority]
                                                                              : '?';
}

int syslogLevel(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE:
        case ANDROID_LOG_DEBUG:
            return LOG_DEBUG;
        case ANDROID_LOG_INFO:
            return LOG_INFO;
        case ANDROID_LOG_WARN:
            return LOG_WARNING;
        case ANDROID_LOG_ERROR:
            return LOG_ERR;
        default:
            return LOG_CRIT;
    }
}

}  // namespace

bool ServerLogger::sToJournal = false;

void ServerLogger::install(int minimumPriority) {
    sToJournal = stderrIsJournal();
    __android_log_set_minimum_priority(minimumPriority);
    __android_log_set_logger(&ServerLogger::write);
}

void ServerLogger::write(const struct __android_logger_data *data, const char *message) {
    size_t length = strlen(message);
    while (length > 0 && (message[length - 1] == '\n' || message[length - 1] == '\r')) {
        --length;
    }
    const char *tag = data->tag != nullptr ? data->tag : "";
    char prefix[96];
    if (sToJournal) {
        snprintf(prefix, sizeof(prefix), "<%d>%s: ", syslogLevel(data->priority), tag);
    } else {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char time[32];
        strftime(time, sizeof(time), "%m-%d %H:%M:%S", &local);
        snprintf(prefix, sizeof(prefix), "%s.%03ld %5d %5ld %c %s: ", time, now.tv_nsec / 1000000,
                 static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                 priorityLetter(data->priority), tag);
    }
    std::string line(prefix);
    line.append(message, length).push_back('\n');
    // One write per line keeps lines of concurrent threads whole.
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (n <= 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
}

bool ServerLogger::stderrIsJournal() {
    const char *stream = getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    struct stat status {};
    return stream != nullptr && sscanf(stream, "%llu:%llu", &device, &inode) == 2 &&
           fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

}  // namespace dvrspace
