// The catalog on its own: schema version and migration, WAL, a corrupt or
// unwritable file, which recording is the oldest that may be deleted, and the
// record of deletions.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <sstream>

#include "Catalog.h"
#include "SmallFilesystem.h"
#include "TempDir.h"

using dvrkeeper::Catalog;
using dvrkeeper::CatalogError;
using dvrkeeper::Recording;

namespace {

Recording row(const std::string &path, int64_t startedMs, Recording::State state) {
    Recording recording;
    recording.path = path;
    recording.directory = path.substr(0, path.rfind('/'));
    recording.encoderId = 100;
    recording.state = state;
    recording.startedMs = startedMs;
    recording.finishedMs = startedMs + 1000;
    recording.bytes = 1000;
    return recording;
}

// One text answer of sql on the file at path, through SQLite directly.
std::string ask(const std::string &path, const std::string &sql) {
    sqlite3 *db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_stmt *statement = nullptr;
    std::string answer = "(error)";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        const unsigned char *text = sqlite3_column_text(statement, 0);
        answer = text != nullptr ? reinterpret_cast<const char *>(text) : "";
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return answer;
}

void runSql(const std::string &path, const std::string &sql) {
    sqlite3 *db = nullptr;
    sqlite3_open(path.c_str(), &db);
    char *error = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error))
        << (error != nullptr ? error : "");
    sqlite3_close(db);
}

std::string contents(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

TEST(KeeperCatalog, NewCatalogIsAtTheCurrentSchemaVersionInWalMode) {
    dvrtest::TempDir dir;
    const std::string path = dir.file("catalog.db");
    {
        const auto catalog = Catalog::open(path, Catalog::Damaged::kFail);
        EXPECT_EQ(3, catalog->schemaVersion());
        EXPECT_EQ("ok", catalog->integrityCheck());
    }
    EXPECT_EQ("3", ask(path, "PRAGMA user_version"));
    EXPECT_EQ("wal", ask(path, "PRAGMA journal_mode"));
}

TEST(KeeperCatalog, VersionOneCatalogIsMigratedKeepingItsRows) {
    dvrtest::TempDir dir;
    const std::string path = dir.file("catalog.db");
    // What the first version wrote: recordings and deletions, no directories.
    runSql(path,
           "CREATE TABLE recordings (path TEXT PRIMARY KEY, directory TEXT NOT NULL,"
           " encoder_id INTEGER, state TEXT NOT NULL, started_ms INTEGER NOT NULL,"
           " finished_ms INTEGER, locked INTEGER NOT NULL DEFAULT 0, closed_cleanly INTEGER,"
           " duration_s REAL NOT NULL DEFAULT 0, frames INTEGER NOT NULL DEFAULT 0,"
           " keyframes INTEGER NOT NULL DEFAULT 0, bytes INTEGER NOT NULL DEFAULT 0,"
           " has_audio INTEGER NOT NULL DEFAULT 0, container TEXT NOT NULL DEFAULT '',"
           " missing_slots INTEGER NOT NULL DEFAULT 0, largest_gap_ms REAL NOT NULL DEFAULT 0,"
           " decoded_to_end INTEGER);"
           "CREATE TABLE deletions (id INTEGER PRIMARY KEY, path TEXT NOT NULL,"
           " encoder_id INTEGER, started_ms INTEGER NOT NULL, bytes INTEGER NOT NULL,"
           " deleted_ms INTEGER NOT NULL, reason TEXT NOT NULL, free_before INTEGER NOT NULL);"
           "INSERT INTO recordings (path, directory, encoder_id, state, started_ms, locked)"
           " VALUES ('/rec/a.ts', '/rec', 100, 'finished', 5000, 1);"
           "PRAGMA user_version=1;");
    const auto catalog = Catalog::open(path, Catalog::Damaged::kFail);
    EXPECT_EQ(3, catalog->schemaVersion());
    const std::optional<Recording> kept = catalog->find("/rec/a.ts");
    ASSERT_TRUE(kept.has_value());
    EXPECT_EQ(5000, kept->startedMs);
    EXPECT_TRUE(kept->locked);
    EXPECT_EQ(Recording::State::kFinished, kept->state);
    dvrkeeper::DirectoryStatus status;
    status.path = "/rec";
    status.health = 1;
    catalog->putDirectory(status);
    ASSERT_EQ(1u, catalog->directories().size());
    EXPECT_EQ(1, catalog->directories()[0].health);
    EXPECT_EQ("recordings_by_start",
              ask(path, "SELECT name FROM sqlite_master WHERE name = 'recordings_by_start'"));
}

TEST(KeeperCatalog, CatalogOfANewerKeeperIsRefused) {
    dvrtest::TempDir dir;
    const std::string path = dir.file("catalog.db");
    runSql(path, "CREATE TABLE future (x); PRAGMA user_version=99;");
    try {
        Catalog::open(path, Catalog::Damaged::kMoveAside);
        FAIL() << "a newer schema was opened";
    } catch (const CatalogError &error) {
        EXPECT_EQ(path + ": schema version 99 is newer than this keeper's 3",
                  std::string(error.what()));
        EXPECT_FALSE(error.corrupt());
    }
    EXPECT_EQ("99", ask(path, "PRAGMA user_version"));
}

TEST(KeeperCatalog, CorruptFileFailsTheCommandLineAndIsMovedAsideByTheDaemon) {
    dvrtest::TempDir dir;
    const std::string path = dir.write("catalog.db", std::string(8192, 'x'));
    try {
        Catalog::open(path, Catalog::Damaged::kFail);
        FAIL() << "a corrupt catalog was opened";
    } catch (const CatalogError &error) {
        EXPECT_TRUE(error.corrupt()) << error.what();
        EXPECT_NE(std::string::npos, std::string(error.what()).find("file is not a database"))
            << error.what();
    }
    EXPECT_EQ(std::string(8192, 'x'), contents(path));

    std::string movedTo;
    const auto catalog = Catalog::open(path, Catalog::Damaged::kMoveAside, &movedTo);
    ASSERT_EQ(0u, movedTo.rfind(path + ".corrupt-", 0)) << movedTo;
    EXPECT_EQ(std::string(8192, 'x'), contents(movedTo));
    EXPECT_EQ("ok", catalog->integrityCheck());
    EXPECT_EQ(3, catalog->schemaVersion());
    EXPECT_FALSE(catalog->find("/rec/a.ts").has_value());
}

TEST(KeeperCatalog, CatalogOnAReadOnlyFilesystemGivesAClearError) {
    dvrtest::TempDir dir;
    dvrtest::SmallFilesystem readOnly(dir.file("ro"), 1, "ro");
    if (!readOnly.mounted()) {
        GTEST_SKIP() << readOnly.why();
    }
    const std::string path = readOnly.path() + "/catalog.db";
    try {
        Catalog::open(path, Catalog::Damaged::kMoveAside);
        FAIL() << "a catalog was made on a read-only filesystem";
    } catch (const CatalogError &error) {
        EXPECT_FALSE(error.corrupt());
        EXPECT_EQ("cannot open " + path + ": unable to open database file",
                  std::string(error.what()));
    }
}

TEST(KeeperCatalog, OldestDeletableIsTheOldestUnlockedFinishedOrSettledRecording) {
    dvrtest::TempDir dir;
    const auto catalog = Catalog::open(dir.file("catalog.db"), Catalog::Damaged::kFail);
    Recording locked = row("/rec/a.ts", 1000, Recording::State::kFinished);
    locked.locked = true;
    catalog->put(locked);
    catalog->put(row("/rec/b.ts", 2000, Recording::State::kRecording));
    Recording unsettled = row("/rec/c.ts", 3000, Recording::State::kFound);
    unsettled.finishedMs = 9000;
    catalog->put(unsettled);
    catalog->put(row("/rec/d.ts", 4000, Recording::State::kMissing));
    catalog->put(row("/rec/f.ts", 6000, Recording::State::kFinished));
    catalog->put(row("/rec/e.ts", 5000, Recording::State::kFinished));
    catalog->put(row("/other/z.ts", 1, Recording::State::kFinished));

    std::optional<Recording> oldest = catalog->oldestDeletable("/rec", 8000);
    ASSERT_TRUE(oldest.has_value());
    EXPECT_EQ("/rec/e.ts", oldest->path);
    // Found on disk and untouched since before the settle time: deletable.
    oldest = catalog->oldestDeletable("/rec", 9001);
    ASSERT_TRUE(oldest.has_value());
    EXPECT_EQ("/rec/c.ts", oldest->path);
    EXPECT_TRUE(catalog->setLocked("/rec/c.ts", true));
    EXPECT_FALSE(catalog->setLocked("/rec/nothing.ts", true));
    EXPECT_EQ("/rec/e.ts", catalog->oldestDeletable("/rec", 9001)->path);
}

TEST(KeeperCatalog, DeletionRemovesTheRowAndIsRecorded) {
    dvrtest::TempDir dir;
    const auto catalog = Catalog::open(dir.file("catalog.db"), Catalog::Damaged::kFail);
    const Recording gone = row("/rec/a.ts", 1000, Recording::State::kFinished);
    catalog->put(gone);
    catalog->put(row("/rec/b.ts", 2000, Recording::State::kFinished));
    catalog->begin();
    catalog->recordDeletion(gone, "free space 1 MB below 3 MB", 1000000, 7000);
    catalog->commit();
    EXPECT_FALSE(catalog->find("/rec/a.ts").has_value());
    const std::vector<Catalog::Deletion> deletions = catalog->deletions();
    ASSERT_EQ(1u, deletions.size());
    EXPECT_EQ("/rec/a.ts", deletions[0].path);
    EXPECT_EQ(100, deletions[0].encoderId.value_or(-1));
    EXPECT_EQ(1000, deletions[0].startedMs);
    EXPECT_EQ(1000, deletions[0].bytes);
    EXPECT_EQ(7000, deletions[0].deletedMs);
    EXPECT_EQ("free space 1 MB below 3 MB", deletions[0].reason);
    EXPECT_EQ(1000000, deletions[0].freeBefore);
    EXPECT_EQ(1000, catalog->totalBytes("/rec"));
}

TEST(KeeperCatalog, NewestOfAChannelComeFirstAndSkipMissingFiles) {
    dvrtest::TempDir dir;
    const auto catalog = Catalog::open(dir.file("catalog.db"), Catalog::Damaged::kFail);
    catalog->put(row("/rec/a.ts", 1000, Recording::State::kFinished));
    catalog->put(row("/rec/b.ts", 2000, Recording::State::kFinished));
    catalog->put(row("/rec/c.ts", 3000, Recording::State::kMissing));
    catalog->put(row("/rec/d.ts", 4000, Recording::State::kRecording));
    Recording other = row("/rec/e.ts", 5000, Recording::State::kFinished);
    other.encoderId = 101;
    catalog->put(other);
    const std::vector<Recording> newest = catalog->newest(100, 2);
    ASSERT_EQ(2u, newest.size());
    EXPECT_EQ("/rec/d.ts", newest[0].path);
    EXPECT_EQ("/rec/b.ts", newest[1].path);
}
