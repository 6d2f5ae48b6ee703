// The keeper's SQLite catalog of recordings (WAL mode, schema versioned with
// PRAGMA user_version and migrated when opened). The daemon writes it; the
// command line reads it and sets lock flags, possibly at the same time from
// another process (SQLite serialises the writers; each waits up to 5 s).
// One Catalog is used by one thread at a time.
#ifndef DVR_KEEPER_CATALOG_H
#define DVR_KEEPER_CATALOG_H

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CatalogError.h"
#include "DirectoryStatus.h"
#include "Recording.h"

namespace dvrkeeper {

class Catalog {
public:
    // The schema version this code writes.
    static constexpr int kSchemaVersion = 3;

    enum class Damaged {
        kFail,       // throw CatalogError (the command line)
        kMoveAside,  // rename the file and its WAL aside and start afresh (the daemon)
    };

    // Opens or creates the catalog at path and migrates it. A corrupt file is
    // handled as damaged says; *movedTo (when given) receives where it went,
    // empty when nothing was moved. Throws CatalogError.
    static std::unique_ptr<Catalog> open(const std::string &path, Damaged damaged,
                                         std::string *movedTo = nullptr);
    ~Catalog();
    Catalog(const Catalog &) = delete;
    Catalog &operator=(const Catalog &) = delete;

    const std::string &path() const { return mPath; }
    int schemaVersion();
    // SQLite's integrity_check: "ok" or the first problem.
    std::string integrityCheck();

    // Writes of several statements that must stand or fall together. begin()
    // takes the write lock at once (BEGIN IMMEDIATE).
    void begin();
    void commit();
    void rollback();

    // Inserts or replaces the row of path.
    void put(const Recording &recording);
    std::optional<Recording> find(const std::string &path);
    std::vector<Recording> inDirectory(const std::string &directory);
    // The oldest (by start, then path) recording in directory that may be
    // deleted: finished, or found on disk and last written before
    // settledBeforeMs; never locked, never being written.
    std::optional<Recording> oldestDeletable(const std::string &directory, int64_t settledBeforeMs);
    void setState(const std::string &path, Recording::State state);
    void setDecodedToEnd(const std::string &path, bool decoded);
    // Removes the row of a file that was never made.
    void forget(const std::string &path);
    // The bytes of the recordings on disk in directory, as catalogued.
    int64_t totalBytes(const std::string &directory);
    // Returns false when path is not in the catalog.
    bool setLocked(const std::string &path, bool locked);
    // The newest count recordings of a channel still on disk, newest first.
    std::vector<Recording> newest(int64_t encoderId, int count);

    struct Filter {
        std::optional<int64_t> encoderId;
        std::optional<int64_t> sinceMs;  // started at or after
    };
    // Every row that passes filter, oldest first.
    void forEach(const Filter &filter, const std::function<void(const Recording &)> &visit);

    // Removes the row of a deleted file and records the deletion.
    void recordDeletion(const Recording &deleted, const std::string &reason, int64_t freeBefore,
                        int64_t nowMs);
    struct Deletion {
        std::string path;
        std::optional<int64_t> encoderId;
        int64_t startedMs = 0;
        int64_t bytes = 0;
        int64_t deletedMs = 0;
        std::string reason;
        int64_t freeBefore = 0;
    };
    // In the order they happened.
    std::vector<Deletion> deletions();

    struct ChannelUsage {
        std::optional<int64_t> encoderId;  // files found on disk have none
        int64_t files = 0;
        int64_t bytes = 0;
        int64_t oldestMs = 0;
        int64_t newestMs = 0;
    };
    // Recordings on disk, per channel.
    std::vector<ChannelUsage> channelUsage();
    int64_t lockedCount();

    void putDirectory(const DirectoryStatus &status);
    std::vector<DirectoryStatus> directories();

private:
    Catalog(sqlite3 *db, std::string path);
    static std::unique_ptr<Catalog> openAndMigrate(const std::string &path);
    void execute(const std::string &sql);
    void migrate();

    sqlite3 *mDb;
    const std::string mPath;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_CATALOG_H
