#include "CallbackManager.h"

#include "DVRTypes.h"

namespace dvrspace {

CallbackManager::CallbackManager(CallbackManageType_e type)
    : mType(type == CBK_MANAGE_KEEP_FOR_PID ? CBK_MANAGE_KEEP_FOR_PID
                                            : CBK_MANAGE_DROP_WITH_CLIENT) {}

int CallbackManager::addClient(int pid, const android::sp<android::IInterface> &callback) {
    if (callback == nullptr) {
        return android::BAD_VALUE;
    }
    std::lock_guard<std::mutex> guard(mLock);
    mClients[pid] = callback;
    return android::OK;
}

android::sp<android::IInterface> CallbackManager::getClient(int pid) const {
    std::lock_guard<std::mutex> guard(mLock);
    const auto client = mClients.find(pid);
    return client != mClients.end() ? client->second : nullptr;
}

int CallbackManager::removeClient(int pid) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mClients.erase(pid) == 0) {
        return android::NAME_NOT_FOUND;
    }
    if (mType == CBK_MANAGE_DROP_WITH_CLIENT) {
        for (auto it = mSubscriptions.begin(); it != mSubscriptions.end();) {
            it = std::get<1>(*it) == pid ? mSubscriptions.erase(it) : std::next(it);
        }
    }
    return android::OK;
}

int CallbackManager::addCallbackObject(int pid, int cbkId, int type) {
    if (!isObjectType(type)) {
        return android::BAD_VALUE;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (mClients.count(pid) == 0) {
        return android::NAME_NOT_FOUND;
    }
    return mSubscriptions.emplace(type, pid, cbkId).second ? android::OK : android::ALREADY_EXISTS;
}

int CallbackManager::removeCallbackObject(int pid, int cbkId, int type) {
    if (!isObjectType(type)) {
        return android::BAD_VALUE;
    }
    std::lock_guard<std::mutex> guard(mLock);
    return mSubscriptions.erase(Subscription(type, pid, cbkId)) == 1 ? android::OK
                                                                     : android::NAME_NOT_FOUND;
}

int CallbackManager::findCallbackHandlers(int type, CallbackHandlerSet &handlers) const {
    if (!isObjectType(type)) {
        return android::BAD_VALUE;
    }
    CallbackHandlerSet found;
    std::lock_guard<std::mutex> guard(mLock);
    // Subscriptions are ordered by type first, so this type's are one run.
    for (auto it = mSubscriptions.lower_bound(Subscription(type, INT32_MIN, INT32_MIN));
         it != mSubscriptions.end() && std::get<0>(*it) == type; ++it) {
        const auto client = mClients.find(std::get<1>(*it));
        if (client != mClients.end()) {
            found.emplace(std::get<2>(*it), client->second);
        }
    }
    handlers = std::move(found);
    return android::OK;
}

bool CallbackManager::isObjectType(int type) {
    return type >= DVR_CBK_OBJ_RECORD && type <= DVR_CBK_OBJ_FILENAME;
}

}  // namespace dvrspace
