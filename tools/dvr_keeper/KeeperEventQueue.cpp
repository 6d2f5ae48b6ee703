#include "KeeperEventQueue.h"

#include <algorithm>

namespace dvrkeeper {

void KeeperEventQueue::push(KeeperEvent event) {
    // Notified under the lock: once the stop event is taken, the daemon may
    // destroy the queue while the signal thread would still be notifying.
    std::lock_guard<std::mutex> guard(mLock);
    mEvents.push_back(std::move(event));
    mPushed.notify_one();
}

std::optional<KeeperEvent> KeeperEventQueue::pop(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> guard(mLock);
    if (!mPushed.wait_for(guard, timeout, [this] { return !mEvents.empty(); })) {
        return std::nullopt;
    }
    KeeperEvent event = std::move(mEvents.front());
    mEvents.pop_front();
    return event;
}

bool KeeperEventQueue::stopPending() {
    std::lock_guard<std::mutex> guard(mLock);
    return std::any_of(mEvents.begin(), mEvents.end(), [](const KeeperEvent &event) {
        return event.kind == KeeperEvent::Kind::kStop;
    });
}

}  // namespace dvrkeeper
