#include "SystemdNotifier.h"

#include <systemd/sd-daemon.h>

#include <chrono>

namespace dvrspace {

SystemdNotifier::~SystemdNotifier() {
    stopWatchdog();
}

void SystemdNotifier::ready(const std::string &status) {
    sd_notify(0, ("READY=1\nSTATUS=" + status).c_str());
}

void SystemdNotifier::stopping(const std::string &status) {
    stopWatchdog();
    sd_notify(0, ("STOPPING=1\nSTATUS=" + status).c_str());
}

void SystemdNotifier::startWatchdog(std::function<void()> probe) {
    uint64_t intervalUs = 0;
    if (mWatchdog.joinable() || sd_watchdog_enabled(0, &intervalUs) <= 0 || intervalUs == 0) {
        return;
    }
    mProbe = std::move(probe);
    mWatchdog = std::thread(&SystemdNotifier::watch, this, intervalUs);
}

void SystemdNotifier::stopWatchdog() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStop = true;
    }
    mWake.notify_all();
    if (mWatchdog.joinable()) {
        mWatchdog.join();
    }
    // The probe may hold the service; the caller is about to release it.
    mProbe = nullptr;
}

void SystemdNotifier::watch(uint64_t intervalUs) {
    const auto period = std::chrono::microseconds(intervalUs / 2);
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStop) {
        lock.unlock();
        mProbe();
        sd_notify(0, "WATCHDOG=1");
        lock.lock();
        mWake.wait_for(lock, period, [this] { return mStop; });
    }
}

}  // namespace dvrspace
