// Recently made media (remuxed MP4s, thumbnails) kept in memory up to a byte
// budget, the least recently used leaving first. Each key is made once even
// when several requests ask at the same time (a browser asks for ranges of
// one video in parallel). Keys carry the file's size and change time, so a
// file that changed is made afresh. Any thread.
#ifndef DVR_WEB_MEDIA_CACHE_H
#define DVR_WEB_MEDIA_CACHE_H

#include <cstdint>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace dvrweb {

class MediaCache {
public:
    using Bytes = std::shared_ptr<const std::string>;
    // Makes the media; empty bytes with *error set on failure.
    using Maker = std::function<std::string(std::string *error)>;

    explicit MediaCache(int64_t budgetBytes) : mBudget(budgetBytes) {}

    // The bytes of key, made by make when not kept; null with *error set
    // when making failed (failures are not kept).
    Bytes get(const std::string &key, const Maker &make, std::string *error);
    int64_t keptBytes();

private:
    struct Made {
        Bytes bytes;
        std::string error;
    };
    void keep(const std::string &key, const Bytes &bytes);

    const int64_t mBudget;
    std::mutex mLock;
    std::list<std::pair<std::string, Bytes>> mKept;  // most recent first
    std::map<std::string, std::shared_future<Made>> mMaking;
    int64_t mKeptBytes = 0;
};

}  // namespace dvrweb

#endif  // DVR_WEB_MEDIA_CACHE_H
