// The recordings the keeper catalogued, read through its library: listed
// newest first, found by their catalog id (never by a path from a request:
// the id is a hash of the catalogued path, stable while the keeper updates
// the row), locked and unlocked as `dvr-keeper lock` does. The catalog is
// opened for each call, so the keeper's writes are always seen and a catalog
// that appears later is found. Any thread.
#ifndef DVR_WEB_RECORDING_INDEX_H
#define DVR_WEB_RECORDING_INDEX_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Recording.h"

namespace dvrweb {

// The catalog cannot be read: missing, corrupt or of a newer keeper.
struct CatalogUnavailable {
    std::string reason;
};

class RecordingIndex {
public:
    static constexpr int kDefaultLimit = 200;
    static constexpr int kMaxLimit = 1000;

    struct Query {
        std::optional<int64_t> encId;
        std::optional<int64_t> sinceMs;  // started at or after
        std::optional<int64_t> untilMs;  // started before
        int limit = kDefaultLimit;
    };

    explicit RecordingIndex(std::string catalogPath) : mPath(std::move(catalogPath)) {}

    // {"recordings": [...]} newest first. Throws CatalogUnavailable.
    nlohmann::json list(const Query &query) const;
    // The recording with this id. Throws CatalogUnavailable.
    std::optional<dvrkeeper::Recording> find(const std::string &id) const;
    // False when id is not in the catalog (any more). Throws CatalogUnavailable.
    bool setLocked(const std::string &id, bool locked) const;

    // The id of a catalogued path: 16 lower-case hex digits.
    static std::string idOf(const std::string &path);
    static bool isId(const std::string &text);
    static nlohmann::json toJson(const dvrkeeper::Recording &recording);

private:
    const std::string mPath;
};

}  // namespace dvrweb

#endif  // DVR_WEB_RECORDING_INDEX_H
