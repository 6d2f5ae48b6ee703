// SIGINT and SIGTERM, which end the tools that wait (watch, the keeper's
// daemon): blocked in the main thread before the binder pool starts, so
// every thread inherits the mask and the main thread takes them with sigwait.
#ifndef DVR_STOP_SIGNALS_H
#define DVR_STOP_SIGNALS_H

#include <pthread.h>

#include <csignal>

namespace dvrtools {

inline sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

inline void blockStopSignals() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace dvrtools

#endif  // DVR_STOP_SIGNALS_H
