#include "CallDeadline.h"

#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

namespace dvrctl {

namespace {

// Read by the handler only; set before the timer starts.
char *gMessage = nullptr;
size_t gMessageLength = 0;
int gMessageFd = STDERR_FILENO;

void expire(int) {
    ssize_t written = 0;
    while (written >= 0 && static_cast<size_t>(written) < gMessageLength) {
        const ssize_t more =
            write(gMessageFd, gMessage + written, gMessageLength - static_cast<size_t>(written));
        written = more < 0 ? more : written + more;
    }
    _exit(CallDeadline::kTimeoutStatus);
}

}  // namespace

void CallDeadline::arm(double seconds, std::string message, int fd) {
    if (seconds <= 0) {
        return;
    }
    delete[] gMessage;
    gMessage = new char[message.size()];
    std::memcpy(gMessage, message.data(), message.size());
    gMessageLength = message.size();
    gMessageFd = fd;
    struct sigaction action {};
    action.sa_handler = expire;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    itimerval timer{};
    const auto whole = static_cast<long>(seconds);
    timer.it_value.tv_sec = whole;
    timer.it_value.tv_usec = static_cast<long>((seconds - static_cast<double>(whole)) * 1e6);
    if (timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0) {
        timer.it_value.tv_usec = 1;
    }
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void CallDeadline::disarm() {
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
}

}  // namespace dvrctl
