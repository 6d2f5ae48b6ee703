// The device's C interface over the host's SvcMonitor.
#include "svc_mon.h"

#define LOG_TAG "SvcMon"
#include <log/log.h>

#include <unistd.h>

#include <string>

#include "SvcMonitor.h"
#include "SvcStateDir.h"

namespace {

// How long startServiceAndWait waits to read back "running" before it gives
// up, and how often it looks.
constexpr int kStartTimeoutUs = 5000000;
constexpr int kStartPollUs = 10000;
constexpr const char *kRunning = "running";

SvcMonitor *monitorOf(svc_mon_handle_t handle) {
    return reinterpret_cast<SvcMonitor *>(handle);
}

}  // namespace

svc_mon_handle_t svc_mon_create(void) {
    return reinterpret_cast<svc_mon_handle_t>(SvcMonitor::create());
}

void svc_mon_destroy(svc_mon_handle_t handle) {
    SvcMonitor *monitor = monitorOf(handle);
    if (monitor == nullptr) {
        return;
    }
    // A handler cannot wait for its own thread to end; leaking the monitor is
    // the harmless way out.
    if (monitor->onOwnThread()) {
        ALOGE("svc_mon_destroy called from a handler; the monitor is left running");
        return;
    }
    delete monitor;
}

int svc_mon_notify_start(svc_mon_handle_t handle) {
    if (handle == nullptr) {
        ALOGE("svc_mon_notify_start: null handle");
        return -1;
    }
    return monitorOf(handle)->start();
}

int svc_mon_notify_stop(svc_mon_handle_t handle) {
    if (handle == nullptr) {
        ALOGE("svc_mon_notify_stop: null handle");
        return -1;
    }
    return monitorOf(handle)->stop();
}

svc_mon_notify_handle_t svc_mon_notify_add(svc_mon_handle_t handle, const char *svc_name,
                                           svc_mon_callback_t callback, void *context) {
    if (handle == nullptr) {
        ALOGE("svc_mon_notify_add: null handle");
        return nullptr;
    }
    return monitorOf(handle)->add(svc_name, callback, context);
}

int svc_mon_notify_rm(svc_mon_handle_t handle, svc_mon_notify_handle_t notify) {
    if (handle == nullptr) {
        ALOGE("svc_mon_notify_rm: null handle");
        return -1;
    }
    return monitorOf(handle)->remove(notify);
}

int svc_mon_state_get(svc_mon_handle_t handle, const char *svc_name, const char *key, char *value) {
    if (handle == nullptr) {
        ALOGE("svc_mon_state_get: null handle");
        return -1;
    }
    return monitorOf(handle)->stateGet(svc_name, key, value);
}

int startServiceAndWait(const char *name) {
    if (name == nullptr) {
        ALOGE("startServiceAndWait: null service name");
        return -1;
    }
    const SvcStateDir dir = SvcStateDir::fromEnvironment();
    std::string error;
    if (!dir.write(name, kRunning, &error)) {
        ALOGE("cannot start %s: %s", name, error.c_str());
        return -1;
    }
    std::string state;
    for (int waitedUs = 0; waitedUs < kStartTimeoutUs; waitedUs += kStartPollUs) {
        if (!dir.read(name, &state, &error)) {
            ALOGE("cannot read the state of %s: %s", name, error.c_str());
            return -1;
        }
        if (state == kRunning) {
            return SVC_MON_NOERROR;
        }
        usleep(kStartPollUs);
    }
    ALOGE("%s did not reach \"%s\" within %d ms (reads \"%s\")", name, kRunning,
          kStartTimeoutUs / 1000, state.c_str());
    return -1;
}
