// dvr_server's part of systemd's Type=notify protocol: readiness, stopping and
// the watchdog. Without $NOTIFY_SOCKET (not started by systemd) every call
// does nothing.
#ifndef DVR_SYSTEMD_NOTIFIER_H
#define DVR_SYSTEMD_NOTIFIER_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace dvrspace {

class SystemdNotifier {
public:
    SystemdNotifier() = default;
    // Stops the watchdog thread.
    ~SystemdNotifier();
    SystemdNotifier(const SystemdNotifier &) = delete;
    SystemdNotifier &operator=(const SystemdNotifier &) = delete;

    // Tells systemd the service is ready, with a status line. Main thread.
    void ready(const std::string &status);
    // Tells systemd the service is stopping, with a status line, and ends the
    // watchdog. Main thread.
    void stopping(const std::string &status);
    // When systemd asks for a watchdog ($WATCHDOG_USEC), starts a thread that
    // every half interval runs probe and then pings. A probe that blocks (a
    // wedged service) stops the pings, so systemd restarts the server. Main
    // thread, once, after ready().
    void startWatchdog(std::function<void()> probe);

private:
    void stopWatchdog();
    void watch(uint64_t intervalUs);

    std::function<void()> mProbe;
    std::mutex mLock;
    std::condition_variable mWake;
    bool mStop = false;
    std::thread mWatchdog;
};

}  // namespace dvrspace

#endif  // DVR_SYSTEMD_NOTIFIER_H
