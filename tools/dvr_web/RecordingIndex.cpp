#include "RecordingIndex.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "Catalog.h"
#include "KeeperCommands.h"

using dvrkeeper::Catalog;
using dvrkeeper::Recording;
using nlohmann::json;

namespace dvrweb {

namespace {

// Opens the catalog without creating one where the keeper has not.
std::unique_ptr<Catalog> openCatalog(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw CatalogUnavailable{"no catalog at " + path + " (is dvr-keeper running?)"};
    }
    try {
        return Catalog::open(path, Catalog::Damaged::kFail);
    } catch (const dvrkeeper::CatalogError &error) {
        throw CatalogUnavailable{std::string("the catalog cannot be opened: ") + error.what()};
    }
}

template <typename T>
json orNull(const std::optional<T> &value) {
    return value ? json(*value) : json(nullptr);
}

}  // namespace

std::string RecordingIndex::idOf(const std::string &path) {
    // FNV-1a, 64 bits.
    uint64_t hash = 1469598103934665603ULL;
    for (unsigned char c : path) {
        hash = (hash ^ c) * 1099511628211ULL;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

bool RecordingIndex::isId(const std::string &text) {
    return text.size() == 16 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

json RecordingIndex::toJson(const Recording &r) {
    const size_t slash = r.path.rfind('/');
    return {{"id", idOf(r.path)},
            {"path", r.path},
            {"name", slash == std::string::npos ? r.path : r.path.substr(slash + 1)},
            {"encId", orNull(r.encoderId)},
            {"state", Recording::stateName(r.state)},
            {"startedMs", r.startedMs},
            {"finishedMs", orNull(r.finishedMs)},
            {"locked", r.locked},
            {"closedCleanly", orNull(r.closedCleanly)},
            {"durationS", r.durationSeconds},
            {"frames", r.frames},
            {"keyFrames", r.keyFrames},
            {"bytes", r.bytes},
            {"hasAudio", r.hasAudio},
            {"container", r.container},
            {"missingSlots", r.missingSlots},
            {"largestGapMs", r.largestGapMs},
            {"decodedToEnd", orNull(r.decodedToEnd)}};
}

json RecordingIndex::list(const Query &query) const {
    const std::unique_ptr<Catalog> catalog = openCatalog(mPath);
    Catalog::Filter filter;
    filter.encoderId = query.encId;
    filter.sinceMs = query.sinceMs;
    std::vector<Recording> rows;
    catalog->forEach(filter, [&](const Recording &recording) {
        if (!query.untilMs || recording.startedMs < *query.untilMs) {
            rows.push_back(recording);
        }
    });
    json recordings = json::array();
    const int limit = std::clamp(query.limit, 1, kMaxLimit);
    for (auto row = rows.rbegin(); row != rows.rend() && recordings.size() < size_t(limit); ++row) {
        recordings.push_back(toJson(*row));
    }
    return {{"recordings", recordings}, {"total", rows.size()}};
}

std::optional<Recording> RecordingIndex::find(const std::string &id) const {
    const std::unique_ptr<Catalog> catalog = openCatalog(mPath);
    std::optional<Recording> found;
    catalog->forEach({}, [&](const Recording &recording) {
        if (!found && idOf(recording.path) == id) {
            found = recording;
        }
    });
    return found;
}

bool RecordingIndex::setLocked(const std::string &id, bool locked) const {
    const std::optional<Recording> recording = find(id);
    if (!recording) {
        return false;
    }
    const std::unique_ptr<Catalog> catalog = openCatalog(mPath);
    dvrkeeper::CommandOptions options;
    options.files = {recording->path};
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    if (out == nullptr) {
        return false;
    }
    const int status = dvrkeeper::setLockCommand(*catalog, options, locked, out);
    std::fclose(out);
    std::free(text);
    return status == 0;
}

}  // namespace dvrweb
