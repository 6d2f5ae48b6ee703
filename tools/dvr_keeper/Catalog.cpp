#include "Catalog.h"

#include <cstdio>
#include <ctime>

#include "SqlStatement.h"

namespace dvrkeeper {

namespace {

// migrations[i] brings a catalog from version i to version i + 1.
const char *const kMigrations[] = {
    // 1: recordings and the deletions the keeper made.
    "CREATE TABLE recordings ("
    " path TEXT PRIMARY KEY, directory TEXT NOT NULL, encoder_id INTEGER,"
    " state TEXT NOT NULL, started_ms INTEGER NOT NULL, finished_ms INTEGER,"
    " locked INTEGER NOT NULL DEFAULT 0, closed_cleanly INTEGER,"
    " duration_s REAL NOT NULL DEFAULT 0, frames INTEGER NOT NULL DEFAULT 0,"
    " keyframes INTEGER NOT NULL DEFAULT 0, bytes INTEGER NOT NULL DEFAULT 0,"
    " has_audio INTEGER NOT NULL DEFAULT 0, container TEXT NOT NULL DEFAULT '',"
    " missing_slots INTEGER NOT NULL DEFAULT 0, largest_gap_ms REAL NOT NULL DEFAULT 0,"
    " decoded_to_end INTEGER);"
    "CREATE INDEX recordings_by_age ON recordings (directory, started_ms);"
    "CREATE INDEX recordings_by_channel ON recordings (encoder_id, started_ms);"
    "CREATE TABLE deletions ("
    " id INTEGER PRIMARY KEY, path TEXT NOT NULL, encoder_id INTEGER,"
    " started_ms INTEGER NOT NULL, bytes INTEGER NOT NULL, deleted_ms INTEGER NOT NULL,"
    " reason TEXT NOT NULL, free_before INTEGER NOT NULL);",
    // 2: what the daemon last found per storage directory, for stats.
    "CREATE TABLE directories ("
    " path TEXT PRIMARY KEY, free_goal INTEGER NOT NULL, total_limit INTEGER,"
    " age_limit_days REAL, free_bytes INTEGER NOT NULL, bytes_per_second REAL NOT NULL,"
    " health INTEGER NOT NULL, message TEXT NOT NULL, checked_ms INTEGER NOT NULL);",
    // 3: list in start order without sorting the whole table.
    "CREATE INDEX recordings_by_start ON recordings (started_ms, path);",
};
static_assert(sizeof(kMigrations) / sizeof(kMigrations[0]) == Catalog::kSchemaVersion,
              "one migration per schema version");

const char *const kRecordingColumns =
    "path, directory, encoder_id, state, started_ms, finished_ms, locked, closed_cleanly,"
    " duration_s, frames, keyframes, bytes, has_audio, container, missing_slots,"
    " largest_gap_ms, decoded_to_end";

// Fills recording from row in place: a list reads every row into the same
// Recording, whose strings keep their buffers.
void readRecording(const SqlStatement &row, Recording &recording) {
    row.text(0, recording.path);
    row.text(1, recording.directory);
    recording.encoderId = row.optionalInteger(2);
    recording.state = Recording::stateFromName(row.text(3));
    recording.startedMs = row.integer(4);
    recording.finishedMs = row.optionalInteger(5);
    recording.locked = row.integer(6) != 0;
    recording.closedCleanly = row.optionalFlag(7);
    recording.durationSeconds = row.real(8);
    recording.frames = row.integer(9);
    recording.keyFrames = row.integer(10);
    recording.bytes = row.integer(11);
    recording.hasAudio = row.integer(12) != 0;
    row.text(13, recording.container);
    recording.missingSlots = row.integer(14);
    recording.largestGapMs = row.real(15);
    recording.decodedToEnd = row.optionalFlag(16);
}

Recording readRecording(const SqlStatement &row) {
    Recording recording;
    readRecording(row, recording);
    return recording;
}

std::string selectRecordings(const char *rest) {
    return std::string("SELECT ") + kRecordingColumns + " FROM recordings " + rest;
}

std::optional<Recording> firstRecording(SqlStatement &query) {
    if (!query.step()) {
        return std::nullopt;
    }
    return readRecording(query);
}

std::vector<Recording> allRecordings(SqlStatement &query) {
    std::vector<Recording> rows;
    while (query.step()) {
        rows.push_back(readRecording(query));
    }
    return rows;
}

std::optional<int64_t> optionalFlag(const std::optional<bool> &flag) {
    if (!flag) {
        return std::nullopt;
    }
    return *flag ? 1 : 0;
}

// path + ".corrupt-YYYYmmdd-HHMMSS", numbered when that exists already.
std::string asidePath(const std::string &path) {
    char stamp[32];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string aside = path + ".corrupt-" + stamp;
    for (int n = 1; std::FILE *existing = std::fopen(aside.c_str(), "r"); ++n) {
        std::fclose(existing);
        aside = path + ".corrupt-" + stamp + "-" + std::to_string(n);
    }
    return aside;
}

}  // namespace

Catalog::Catalog(sqlite3 *db, std::string path) : mDb(db), mPath(std::move(path)) {}

Catalog::~Catalog() {
    sqlite3_close_v2(mDb);
}

std::unique_ptr<Catalog> Catalog::open(const std::string &path, Damaged damaged,
                                       std::string *movedTo) {
    if (movedTo != nullptr) {
        movedTo->clear();
    }
    try {
        std::unique_ptr<Catalog> catalog = openAndMigrate(path);
        if (damaged == Damaged::kMoveAside) {
            const std::string check = catalog->integrityCheck();
            if (check != "ok") {
                throw CatalogError("integrity check: " + check, SQLITE_CORRUPT);
            }
        }
        return catalog;
    } catch (const CatalogError &error) {
        if (!error.corrupt() || damaged == Damaged::kFail) {
            throw;
        }
    }
    const std::string aside = asidePath(path);
    if (std::rename(path.c_str(), aside.c_str()) != 0) {
        throw CatalogError("cannot move the corrupt catalog " + path + " aside", SQLITE_CANTOPEN);
    }
    // The journal belongs to the damaged file; it must not be replayed into
    // the new one.
    for (const char *suffix : {"-wal", "-shm"}) {
        std::rename((path + suffix).c_str(), (aside + suffix).c_str());
    }
    if (movedTo != nullptr) {
        *movedTo = aside;
    }
    return openAndMigrate(path);
}

std::unique_ptr<Catalog> Catalog::openAndMigrate(const std::string &path) {
    sqlite3 *db = nullptr;
    const int code =
        // One thread at a time: no SQLite mutexes.
        sqlite3_open_v2(path.c_str(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) {
        const std::string message = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(code);
        sqlite3_close_v2(db);
        throw CatalogError("cannot open " + path + ": " + message, code);
    }
    std::unique_ptr<Catalog> catalog(new Catalog(db, path));
    sqlite3_busy_timeout(db, 5000);
    catalog->execute("PRAGMA journal_mode=WAL");
    catalog->execute("PRAGMA synchronous=NORMAL");
    catalog->migrate();
    return catalog;
}

void Catalog::execute(const std::string &sql) {
    char *message = nullptr;
    const int code = sqlite3_exec(mDb, sql.c_str(), nullptr, nullptr, &message);
    if (code != SQLITE_OK) {
        const std::string text = message != nullptr ? message : sqlite3_errstr(code);
        sqlite3_free(message);
        throw CatalogError(mPath + ": " + text, code & 0xff);
    }
}

int Catalog::schemaVersion() {
    SqlStatement query(mDb, "PRAGMA user_version");
    return query.step() ? static_cast<int>(query.integer(0)) : 0;
}

void Catalog::migrate() {
    if (schemaVersion() == kSchemaVersion) {
        return;  // no write lock for a reader of a current catalog
    }
    begin();
    try {
        const int version = schemaVersion();
        if (version > kSchemaVersion) {
            throw CatalogError(mPath + ": schema version " + std::to_string(version) +
                                   " is newer than this keeper's " + std::to_string(kSchemaVersion),
                               SQLITE_ERROR);
        }
        for (int step = version; step < kSchemaVersion; ++step) {
            execute(kMigrations[step]);
        }
        execute("PRAGMA user_version=" + std::to_string(kSchemaVersion));
        commit();
    } catch (...) {
        rollback();
        throw;
    }
}

std::string Catalog::integrityCheck() {
    SqlStatement check(mDb, "PRAGMA integrity_check");
    return check.step() ? check.text(0) : "no answer";
}

void Catalog::begin() {
    execute("BEGIN IMMEDIATE");
}

void Catalog::commit() {
    execute("COMMIT");
}

void Catalog::rollback() {
    sqlite3_exec(mDb, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Catalog::put(const Recording &r) {
    SqlStatement insert(mDb, std::string("INSERT OR REPLACE INTO recordings (") +
                                 kRecordingColumns +
                                 ") VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    insert.bindAll(r.path, r.directory, r.encoderId, std::string(Recording::stateName(r.state)),
                   r.startedMs, r.finishedMs, int64_t{r.locked}, optionalFlag(r.closedCleanly),
                   r.durationSeconds, r.frames, r.keyFrames, r.bytes, int64_t{r.hasAudio},
                   r.container, r.missingSlots, r.largestGapMs, optionalFlag(r.decodedToEnd));
    insert.run();
}

std::optional<Recording> Catalog::find(const std::string &path) {
    SqlStatement query(mDb, selectRecordings("WHERE path = ?"));
    query.bind(1, path);
    return firstRecording(query);
}

std::vector<Recording> Catalog::inDirectory(const std::string &directory) {
    SqlStatement query(mDb, selectRecordings("WHERE directory = ? ORDER BY started_ms, path"));
    query.bind(1, directory);
    return allRecordings(query);
}

std::optional<Recording> Catalog::oldestDeletable(const std::string &directory,
                                                  int64_t settledBeforeMs) {
    SqlStatement query(
        mDb, selectRecordings("WHERE directory = ? AND locked = 0 AND"
                              " (state = 'finished' OR (state = 'found' AND finished_ms < ?))"
                              " ORDER BY started_ms, path LIMIT 1"));
    query.bindAll(directory, settledBeforeMs);
    return firstRecording(query);
}

void Catalog::setState(const std::string &path, Recording::State state) {
    SqlStatement update(mDb, "UPDATE recordings SET state = ? WHERE path = ?");
    update.bind(1, std::string(Recording::stateName(state))).bind(2, path);
    update.run();
}

void Catalog::setDecodedToEnd(const std::string &path, bool decoded) {
    SqlStatement update(mDb, "UPDATE recordings SET decoded_to_end = ? WHERE path = ?");
    update.bindAll(int64_t{decoded}, path);
    update.run();
}

void Catalog::forget(const std::string &path) {
    SqlStatement remove(mDb, "DELETE FROM recordings WHERE path = ?");
    remove.bind(1, path);
    remove.run();
}

int64_t Catalog::totalBytes(const std::string &directory) {
    SqlStatement query(mDb,
                       "SELECT COALESCE(SUM(bytes), 0) FROM recordings WHERE directory = ? AND"
                       " state != 'missing'");
    query.bind(1, directory);
    return query.step() ? query.integer(0) : 0;
}

bool Catalog::setLocked(const std::string &path, bool locked) {
    SqlStatement update(mDb, "UPDATE recordings SET locked = ? WHERE path = ?");
    update.bind(1, int64_t{locked}).bind(2, path);
    update.run();
    return sqlite3_changes(mDb) > 0;
}

std::vector<Recording> Catalog::newest(int64_t encoderId, int count) {
    SqlStatement query(mDb, selectRecordings("WHERE encoder_id = ? AND state != 'missing'"
                                             " ORDER BY started_ms DESC, path DESC LIMIT ?"));
    query.bindAll(encoderId, int64_t{count});
    return allRecordings(query);
}

void Catalog::forEach(const Filter &filter, const std::function<void(const Recording &)> &visit) {
    std::string sql = std::string("SELECT ") + kRecordingColumns + " FROM recordings WHERE 1";
    if (filter.encoderId) {
        sql += " AND encoder_id = ?1";
    }
    if (filter.sinceMs) {
        sql += " AND started_ms >= ?2";
    }
    sql += " ORDER BY started_ms, path";
    SqlStatement query(mDb, sql);
    query.bind(1, filter.encoderId).bind(2, filter.sinceMs);
    Recording recording;
    while (query.step()) {
        readRecording(query, recording);
        visit(recording);
    }
}

void Catalog::recordDeletion(const Recording &deleted, const std::string &reason,
                             int64_t freeBefore, int64_t nowMs) {
    forget(deleted.path);
    SqlStatement insert(mDb,
                        "INSERT INTO deletions (path, encoder_id, started_ms, bytes, deleted_ms,"
                        " reason, free_before) VALUES (?,?,?,?,?,?,?)");
    insert.bindAll(deleted.path, deleted.encoderId, deleted.startedMs, deleted.bytes, nowMs, reason,
                   freeBefore);
    insert.run();
}

std::vector<Catalog::Deletion> Catalog::deletions() {
    SqlStatement query(mDb,
                       "SELECT path, encoder_id, started_ms, bytes, deleted_ms, reason,"
                       " free_before FROM deletions ORDER BY id");
    std::vector<Deletion> rows;
    while (query.step()) {
        rows.push_back({query.text(0), query.optionalInteger(1), query.integer(2), query.integer(3),
                        query.integer(4), query.text(5), query.integer(6)});
    }
    return rows;
}

std::vector<Catalog::ChannelUsage> Catalog::channelUsage() {
    SqlStatement query(mDb,
                       "SELECT encoder_id, COUNT(*), COALESCE(SUM(bytes), 0), MIN(started_ms),"
                       " MAX(started_ms) FROM recordings WHERE state != 'missing'"
                       " GROUP BY encoder_id ORDER BY encoder_id");
    std::vector<ChannelUsage> rows;
    while (query.step()) {
        rows.push_back({query.optionalInteger(0), query.integer(1), query.integer(2),
                        query.integer(3), query.integer(4)});
    }
    return rows;
}

int64_t Catalog::lockedCount() {
    SqlStatement query(mDb,
                       "SELECT COUNT(*) FROM recordings WHERE locked != 0 AND state != 'missing'");
    return query.step() ? query.integer(0) : 0;
}

void Catalog::putDirectory(const DirectoryStatus &s) {
    SqlStatement insert(mDb,
                        "INSERT OR REPLACE INTO directories (path, free_goal, total_limit,"
                        " age_limit_days, free_bytes, bytes_per_second, health, message,"
                        " checked_ms) VALUES (?,?,?,?,?,?,?,?,?)");
    insert.bindAll(s.path, s.freeGoalBytes, s.totalLimitBytes, s.ageLimitDays, s.freeBytes,
                   s.bytesPerSecond, int64_t{s.health}, s.message, s.checkedMs);
    insert.run();
}

std::vector<DirectoryStatus> Catalog::directories() {
    SqlStatement query(mDb,
                       "SELECT path, free_goal, total_limit, age_limit_days, free_bytes,"
                       " bytes_per_second, health, message, checked_ms FROM directories"
                       " ORDER BY path");
    std::vector<DirectoryStatus> rows;
    while (query.step()) {
        DirectoryStatus status;
        status.path = query.text(0);
        status.freeGoalBytes = query.integer(1);
        status.totalLimitBytes = query.optionalInteger(2);
        if (!query.isNull(3)) {
            status.ageLimitDays = query.real(3);
        }
        status.freeBytes = query.integer(4);
        status.bytesPerSecond = query.real(5);
        status.health = static_cast<int>(query.integer(6));
        status.message = query.text(7);
        status.checkedMs = query.integer(8);
        rows.push_back(status);
    }
    return rows;
}

}  // namespace dvrkeeper
