// The per-call timeout of dvrctl: armed before the first request, it ends the
// process with exit status 4 and a prepared message when the service has not
// answered in time (a wedged channel never answers). The message is written
// from a SIGALRM handler with write(2) only. One per process; main thread.
#ifndef DVRCTL_CALL_DEADLINE_H
#define DVRCTL_CALL_DEADLINE_H

#include <string>

namespace dvrctl {

class CallDeadline {
public:
    static constexpr int kTimeoutStatus = 4;

    // After seconds (0: never), message goes to fd and the process exits.
    static void arm(double seconds, std::string message, int fd);
    static void disarm();
};

}  // namespace dvrctl

#endif  // DVRCTL_CALL_DEADLINE_H
