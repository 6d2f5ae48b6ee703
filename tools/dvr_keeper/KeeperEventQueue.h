// Events from the binder threads, the signal thread and the death recipient
// to the keeper's worker thread. push may be called from any thread and
// never blocks on the worker.
#ifndef DVR_KEEPER_KEEPER_EVENT_QUEUE_H
#define DVR_KEEPER_KEEPER_EVENT_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "KeeperEvent.h"

namespace dvrkeeper {

class KeeperEventQueue {
public:
    void push(KeeperEvent event);
    // The next event, or nothing when timeout passes first.
    std::optional<KeeperEvent> pop(std::chrono::milliseconds timeout);
    // Whether a stop is waiting (other events stay queued).
    bool stopPending();

private:
    std::mutex mLock;
    std::condition_variable mPushed;
    std::deque<KeeperEvent> mEvents;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_EVENT_QUEUE_H
