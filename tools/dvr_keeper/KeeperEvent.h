// What the keeper's worker thread is asked to handle, in arrival order.
#ifndef DVR_KEEPER_KEEPER_EVENT_H
#define DVR_KEEPER_KEEPER_EVENT_H

#include <cstdint>
#include <string>

namespace dvrkeeper {

struct KeeperEvent {
    enum class Kind { kRecordStart, kRecordFinish, kSevereError, kServiceDied, kStop };
    Kind kind;
    int encoderId = -1;
    std::string path;  // record start and finish
    int value = 0;     // error code
    // Service died: which connection's binder (a death reported for an
    // earlier connection is stale).
    const void *binder = nullptr;
    // When the notification arrived (wall clock, ms since the epoch): the
    // worker may handle it later.
    int64_t atMs = 0;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_EVENT_H
