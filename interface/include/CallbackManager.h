// Keeps the service's clients and their callback subscriptions: which client
// process (by PID) holds which callback object, and which (PID, cbkId) pairs
// subscribed to which DVRCbkObjType_e. Any thread may call any operation; one
// internal lock serialises them and is never held while calling out, so it
// nests inside the caller's locks.
//
// Results are 0 on success or a negative status from utils/Errors.h:
// BAD_VALUE for a null callback object or an object type outside
// DVRCbkObjType_e, NAME_NOT_FOUND for an unknown client or subscription,
// ALREADY_EXISTS for a subscription made twice.
#ifndef DVR_CALLBACK_MANAGER_H
#define DVR_CALLBACK_MANAGER_H

#include <binder/IInterface.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>

namespace dvrspace {

// What becomes of a client's subscriptions when the client is removed.
enum CallbackManageType_e : int32_t {
    // They go with it: a client that attaches again subscribes again.
    CBK_MANAGE_DROP_WITH_CLIENT = 0,
    // They stay with its PID, silent while no client holds that PID, and apply
    // again when a client attaches under it.
    CBK_MANAGE_KEEP_FOR_PID = 1,
};

// One (cbkId, callback object) pair per subscription, ordered by cbkId first:
// the order in which the service delivers a notification.
using CallbackHandlerSet = std::set<std::pair<int, android::sp<android::IInterface>>>;

class CallbackManager {
public:
    // An unknown type behaves as CBK_MANAGE_DROP_WITH_CLIENT.
    explicit CallbackManager(CallbackManageType_e type);
    CallbackManager(const CallbackManager &) = delete;
    CallbackManager &operator=(const CallbackManager &) = delete;

    CallbackManageType_e type() const { return mType; }

    // Remembers callback as the client of pid, replacing any earlier one; the
    // replaced object's subscriptions now reach the new one.
    int addClient(int pid, const android::sp<android::IInterface> &callback);
    // The client's callback object; null for an unknown PID.
    android::sp<android::IInterface> getClient(int pid) const;
    // Forgets the client (and, by type, its subscriptions).
    int removeClient(int pid);

    // Subscribes client pid to object type type under cbkId; the client must
    // be known.
    int addCallbackObject(int pid, int cbkId, int type);
    int removeCallbackObject(int pid, int cbkId, int type);

    // Replaces handlers with every subscription to type whose client is known.
    // On failure handlers is left as it was.
    int findCallbackHandlers(int type, CallbackHandlerSet &handlers) const;

private:
    using Subscription = std::tuple<int /*type*/, int /*pid*/, int /*cbkId*/>;

    static bool isObjectType(int type);

    const CallbackManageType_e mType;
    mutable std::mutex mLock;
    std::map<int, android::sp<android::IInterface>> mClients;
    std::set<Subscription> mSubscriptions;
};

}  // namespace dvrspace

#endif  // DVR_CALLBACK_MANAGER_H
