#include "MediaCache.h"

namespace dvrweb {

MediaCache::Bytes MediaCache::get(const std::string &key, const Maker &make, std::string *error) {
    std::promise<Made> promise;
    std::shared_future<Made> making;
    {
        std::lock_guard<std::mutex> guard(mLock);
        for (auto kept = mKept.begin(); kept != mKept.end(); ++kept) {
            if (kept->first == key) {
                mKept.splice(mKept.begin(), mKept, kept);
                return kept->second;
            }
        }
        const auto running = mMaking.find(key);
        if (running != mMaking.end()) {
            making = running->second;
        } else {
            mMaking[key] = promise.get_future().share();
        }
    }
    if (making.valid()) {
        const Made &made = making.get();
        *error = made.error;
        return made.bytes;
    }
    Made made;
    std::string bytes = make(&made.error);
    if (!bytes.empty()) {
        made.bytes = std::make_shared<const std::string>(std::move(bytes));
    }
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (made.bytes != nullptr) {
            keep(key, made.bytes);
        }
        mMaking.erase(key);
    }
    promise.set_value(made);
    *error = made.error;
    return made.bytes;
}

void MediaCache::keep(const std::string &key, const Bytes &bytes) {
    mKept.emplace_front(key, bytes);
    mKeptBytes += static_cast<int64_t>(bytes->size());
    // The newest stays even when it alone is over the budget: it is being served.
    while (mKeptBytes > mBudget && mKept.size() > 1) {
        mKeptBytes -= static_cast<int64_t>(mKept.back().second->size());
        mKept.pop_back();
    }
}

int64_t MediaCache::keptBytes() {
    std::lock_guard<std::mutex> guard(mLock);
    return mKeptBytes;
}

}  // namespace dvrweb
