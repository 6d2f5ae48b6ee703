// The host's service monitor behind the svc_mon_* functions: watches the
// state directory with inotify on its own thread and reports every change of a
// service's state to the registered handlers, as "init" would on the device.
#ifndef SVC_MONITOR_H
#define SVC_MONITOR_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SvcStateDir.h"
#include "svc_mon.h"

class SvcMonitor {
public:
    // The only service manager on a PC.
    static constexpr const char *kInitName = "init";

    // Watches the directory named by DVR_SVC_DIR, creating it when missing;
    // null (logged) when it cannot be created or watched.
    static SvcMonitor *create();
    // Stops the thread; must not run on the monitor's thread.
    ~SvcMonitor();
    SvcMonitor(const SvcMonitor &) = delete;
    SvcMonitor &operator=(const SvcMonitor &) = delete;

    // Any thread but the monitor's own. Starting a running monitor succeeds;
    // states present at start are the baseline, only later changes are reported.
    int start();
    // Returns once no handler runs any more; refused on the monitor's thread.
    int stop();
    // Any thread, handlers included.
    svc_mon_notify_handle_t add(const char *svcName, svc_mon_callback_t callback, void *context);
    // Any thread. From another thread it returns only when no handler is
    // running, so the handler's context may be freed at once; from a handler it
    // returns at once and the removed handler is not called again.
    int remove(svc_mon_notify_handle_t notify);
    // Any thread.
    int stateGet(const char *svcName, const char *key, char *value) const;
    bool onOwnThread() const;

private:
    struct Handler {
        svc_mon_notify_handle_t handle;
        svc_mon_callback_t callback;
        void *context;
        bool removed;
    };
    using Changes = std::vector<std::pair<std::string, std::string>>;

    SvcMonitor(SvcStateDir dir, int inotifyFd, int wakeFd);
    void run();
    // Reads the state of every touched service and keeps those that changed.
    Changes collectChanges(const std::vector<std::string> &touched, bool defaultChanged,
                           bool rescan);
    void dispatch(const Changes &changes);

    const SvcStateDir mDir;
    const int mInotifyFd;
    const int mWakeFd;
    // Serialises start, stop and destruction.
    std::mutex mStartStopLock;
    std::thread mThread;

    // Guards everything below.
    mutable std::mutex mLock;
    std::condition_variable mIdle;
    std::vector<std::shared_ptr<Handler>> mHandlers;
    uintptr_t mNextHandle = 1;
    std::thread::id mThreadId;
    bool mStopping = false;
    bool mDispatching = false;

    // Last reported state per service; the monitor's thread only (and start
    // before the thread runs).
    std::map<std::string, std::string> mKnownStates;
    // State of services without a file, as of the last look at ".default".
    std::string mDefaultState;
};

#endif  // SVC_MONITOR_H
