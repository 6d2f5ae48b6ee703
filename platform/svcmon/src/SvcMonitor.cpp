#include "SvcMonitor.h"

#define LOG_TAG "SvcMon"
#include <log/log.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>

namespace {

// Writers replace files by rename (IN_MOVED_TO) or rewrite them in place
// (IN_CLOSE_WRITE); a removed file falls back to the default rule.
constexpr uint32_t kWatchedEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM;

}  // namespace

SvcMonitor *SvcMonitor::create() {
    SvcStateDir dir = SvcStateDir::fromEnvironment();
    std::string error;
    if (!dir.create(&error)) {
        ALOGE("cannot use the state directory: %s", error.c_str());
        return nullptr;
    }
    const int inotifyFd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotifyFd < 0) {
        ALOGE("inotify_init1 failed: %s", strerror(errno));
        return nullptr;
    }
    // Watching from creation on keeps changes made before start() in the
    // queue, where start()'s baseline makes them harmless.
    if (inotify_add_watch(inotifyFd, dir.path().c_str(), kWatchedEvents) < 0) {
        ALOGE("cannot watch %s: %s", dir.path().c_str(), strerror(errno));
        close(inotifyFd);
        return nullptr;
    }
    const int wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeFd < 0) {
        ALOGE("eventfd failed: %s", strerror(errno));
        close(inotifyFd);
        return nullptr;
    }
    return new SvcMonitor(std::move(dir), inotifyFd, wakeFd);
}

SvcMonitor::SvcMonitor(SvcStateDir dir, int inotifyFd, int wakeFd)
    : mDir(std::move(dir)), mInotifyFd(inotifyFd), mWakeFd(wakeFd) {}

SvcMonitor::~SvcMonitor() {
    stop();
    close(mInotifyFd);
    close(mWakeFd);
}

int SvcMonitor::start() {
    // Checked before taking mStartStopLock: a stop() holding it may be waiting
    // for this very handler.
    if (onOwnThread()) {
        ALOGE("svc_mon_notify_start called from a handler");
        return -1;
    }
    std::lock_guard<std::mutex> startStop(mStartStopLock);
    if (mThread.joinable()) {
        return SVC_MON_NOERROR;
    }
    std::vector<std::string> problems;
    std::map<std::string, std::string> baseline = mDir.list(&problems);
    for (const std::string &problem : problems) {
        ALOGW("%s", problem.c_str());
    }
    mKnownStates = std::move(baseline);
    std::string error;
    if (!mDir.readDefault(&mDefaultState, &error)) {
        ALOGW("%s", error.c_str());
        mDefaultState = SvcStateDir::kImplicitState;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = false;
    }
    try {
        mThread = std::thread(&SvcMonitor::run, this);
    } catch (const std::system_error &failure) {
        ALOGE("cannot start the monitor's thread: %s", failure.what());
        return -1;
    }
    return SVC_MON_NOERROR;
}

int SvcMonitor::stop() {
    if (onOwnThread()) {
        ALOGE("svc_mon_notify_stop called from a handler");
        return -1;
    }
    std::lock_guard<std::mutex> startStop(mStartStopLock);
    if (!mThread.joinable()) {
        return SVC_MON_NOERROR;
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
    }
    const uint64_t one = 1;
    if (write(mWakeFd, &one, sizeof(one)) != sizeof(one)) {
        // Only a full counter fails, and a full counter wakes the thread too.
        ALOGW("eventfd write failed: %s", strerror(errno));
    }
    mThread.join();
    uint64_t drained = 0;
    while (read(mWakeFd, &drained, sizeof(drained)) > 0) {
    }
    return SVC_MON_NOERROR;
}

svc_mon_notify_handle_t SvcMonitor::add(const char *svcName, svc_mon_callback_t callback,
                                        void *context) {
    if (svcName == nullptr || callback == nullptr) {
        ALOGE("svc_mon_notify_add needs a service manager name and a callback");
        return nullptr;
    }
    if (strcmp(svcName, kInitName) != 0) {
        ALOGE("no service manager named '%s' here; only '%s' reports states", svcName, kInitName);
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mLock);
    // Handles are numbers never given out twice, only compared, never
    // dereferenced: a stale or made-up handle is a clean error.
    const auto handle = reinterpret_cast<svc_mon_notify_handle_t>(mNextHandle++);
    mHandlers.push_back(std::make_shared<Handler>(Handler{handle, callback, context, false}));
    return handle;
}

int SvcMonitor::remove(svc_mon_notify_handle_t notify) {
    std::unique_lock<std::mutex> lock(mLock);
    auto found = std::find_if(mHandlers.begin(), mHandlers.end(),
                              [notify](const auto &handler) { return handler->handle == notify; });
    if (found == mHandlers.end()) {
        ALOGE("svc_mon_notify_rm: unknown notification handle %p", static_cast<void *>(notify));
        return -1;
    }
    (*found)->removed = true;
    mHandlers.erase(found);
    if (std::this_thread::get_id() != mThreadId) {
        mIdle.wait(lock, [this] { return !mDispatching; });
    }
    return SVC_MON_NOERROR;
}

int SvcMonitor::stateGet(const char *svcName, const char *key, char *value) const {
    if (svcName == nullptr || key == nullptr || value == nullptr) {
        ALOGE("svc_mon_state_get needs a service manager name, a key and a buffer");
        return -1;
    }
    if (strcmp(svcName, kInitName) != 0) {
        ALOGE("no service manager named '%s' here; only '%s' reports states", svcName, kInitName);
        return -1;
    }
    std::string state;
    std::string error;
    if (!mDir.read(key, &state, &error)) {
        ALOGE("svc_mon_state_get(%s): %s", key, error.c_str());
        return -1;
    }
    memcpy(value, state.c_str(), state.size() + 1);
    return SVC_MON_NOERROR;
}

bool SvcMonitor::onOwnThread() const {
    std::lock_guard<std::mutex> lock(mLock);
    return std::this_thread::get_id() == mThreadId;
}

void SvcMonitor::run() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mThreadId = std::this_thread::get_id();
    }
    // Large enough for many events at once; aligned as inotify requires.
    alignas(struct inotify_event) char buffer[16 * (sizeof(struct inotify_event) + NAME_MAX + 1)];
    for (;;) {
        struct pollfd fds[2] = {{mInotifyFd, POLLIN, 0}, {mWakeFd, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            ALOGE("poll failed: %s", strerror(errno));
            break;
        }
        {
            std::lock_guard<std::mutex> lock(mLock);
            if (mStopping) {
                break;
            }
        }
        std::vector<std::string> touched;
        bool defaultChanged = false;
        bool rescan = false;
        ssize_t length = 0;
        while ((length = read(mInotifyFd, buffer, sizeof(buffer))) > 0) {
            for (char *at = buffer; at < buffer + length;) {
                const auto *event = reinterpret_cast<const struct inotify_event *>(at);
                at += sizeof(struct inotify_event) + event->len;
                if (event->mask & IN_Q_OVERFLOW) {
                    ALOGW("event queue overflowed; reading every state again");
                    rescan = true;
                } else if (event->mask & IN_IGNORED) {
                    ALOGE("state directory %s is gone; no further changes are reported",
                          mDir.path().c_str());
                } else if (event->len > 0) {
                    const std::string name = event->name;
                    if (name == SvcStateDir::kDefaultStateFile) {
                        defaultChanged = true;
                    } else if (SvcStateDir::isValidName(name) &&
                               std::find(touched.begin(), touched.end(), name) == touched.end()) {
                        touched.push_back(name);
                    }
                }
            }
        }
        const Changes changes = collectChanges(touched, defaultChanged, rescan);
        if (!changes.empty()) {
            dispatch(changes);
        }
    }
    std::lock_guard<std::mutex> lock(mLock);
    mThreadId = std::thread::id();
}

SvcMonitor::Changes SvcMonitor::collectChanges(const std::vector<std::string> &touched,
                                               bool defaultChanged, bool rescan) {
    std::vector<std::string> services = touched;
    if (defaultChanged || rescan) {
        // Services seen so far whose state may follow ".default" now.
        for (const auto &known : mKnownStates) {
            if (std::find(services.begin(), services.end(), known.first) == services.end()) {
                services.push_back(known.first);
            }
        }
    }
    if (rescan) {
        for (const auto &present : mDir.list(nullptr)) {
            if (std::find(services.begin(), services.end(), present.first) == services.end()) {
                services.push_back(present.first);
            }
        }
    }
    if (defaultChanged || rescan) {
        std::string error;
        if (!mDir.readDefault(&mDefaultState, &error)) {
            ALOGE("ignoring a change of %s: %s", SvcStateDir::kDefaultStateFile, error.c_str());
        }
    }
    Changes changes;
    for (const std::string &service : services) {
        std::string state;
        std::string error;
        if (!mDir.read(service, &state, &error)) {
            ALOGE("ignoring a change of %s: %s", service.c_str(), error.c_str());
            continue;
        }
        // An empty file is a writer caught between truncating and writing.
        if (state.empty()) {
            continue;
        }
        // A service not seen before had the default state until now.
        auto known = mKnownStates.find(service);
        const std::string &previous = known != mKnownStates.end() ? known->second : mDefaultState;
        if (previous != state) {
            mKnownStates[service] = state;
            changes.emplace_back(service, state);
        }
    }
    return changes;
}

void SvcMonitor::dispatch(const Changes &changes) {
    std::vector<svc_state_t> states;
    states.reserve(changes.size());
    for (const auto &change : changes) {
        ALOGI("%s: %s", change.first.c_str(), change.second.c_str());
        states.push_back({change.first.c_str(), change.second.c_str()});
    }
    std::unique_lock<std::mutex> lock(mLock);
    mDispatching = true;
    const std::vector<std::shared_ptr<Handler>> handlers = mHandlers;
    for (const auto &handler : handlers) {
        if (handler->removed) {
            continue;
        }
        lock.unlock();
        handler->callback(kInitName, states.data(), static_cast<int>(states.size()),
                          handler->context);
        lock.lock();
    }
    mDispatching = false;
    mIdle.notify_all();
}
