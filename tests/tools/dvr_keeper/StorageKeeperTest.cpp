// The keeper's policy and reconciliation on a small tmpfs, without the
// service: which files go, in which order, and which never do.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "Catalog.h"
#include "KeeperConfig.h"
#include "KeeperTestPaths.h"
#include "LogCapture.h"
#include "SmallFilesystem.h"
#include "StorageKeeper.h"
#include "TempDir.h"

using dvrkeeper::Catalog;
using dvrkeeper::KeeperConfig;
using dvrkeeper::Recording;
using dvrkeeper::StorageKeeper;

namespace {

constexpr int64_t kMb = 1000 * 1000;

class StorageKeeperTest : public testing::Test {
protected:
    void SetUp() override {
        disk = std::make_unique<dvrtest::SmallFilesystem>(dir.file("disk"), 8);
        if (!disk->mounted()) {
            GTEST_SKIP() << disk->why();
        }
        storage = dvrtest::resolvedPath(disk->path());
        catalog = Catalog::open(dir.file("catalog.db"), Catalog::Damaged::kMoveAside);
    }

    // A file of bytes in the storage, catalogued as finished (or as state).
    std::string addFile(const std::string &name, int64_t bytes, int64_t startedMs,
                        Recording::State state = Recording::State::kFinished) {
        const std::string path = storage + "/" + name;
        std::ofstream(path, std::ios::binary) << std::string(static_cast<size_t>(bytes), 'r');
        Recording recording;
        recording.path = path;
        recording.directory = storage;
        recording.encoderId = 100;
        recording.state = state;
        recording.startedMs = startedMs;
        recording.finishedMs = startedMs + 1000;
        recording.bytes = bytes;
        catalog->put(recording);
        return path;
    }

    KeeperConfig config(const std::string &policy = "") {
        KeeperConfig config;
        config.set("dir", storage + policy);
        return config;
    }

    static bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

    dvrtest::TempDir dir;
    std::unique_ptr<dvrtest::SmallFilesystem> disk;
    std::string storage;
    std::unique_ptr<Catalog> catalog;
};

}  // namespace

TEST_F(StorageKeeperTest, DeletesTheOldestUnlockedFinishedRecordingsUntilTheFreeGoalHolds) {
    std::vector<std::string> files;
    for (int i = 0; i < 6; ++i) {
        files.push_back(addFile(std::string(1, char('a' + i)) + ".ts", kMb, 1000 * (i + 1)));
    }
    catalog->setLocked(files[1], true);
    const KeeperConfig settings = config(",free-mb=4.5");
    StorageKeeper keeper(*catalog, settings);
    dvrtest::LogCapture log;
    keeper.enforce();

    EXPECT_GE(disk->freeBytes(), 4500000);
    EXPECT_FALSE(exists(files[0]));
    EXPECT_TRUE(exists(files[1]));
    EXPECT_FALSE(exists(files[2]));
    EXPECT_FALSE(exists(files[3]));
    EXPECT_TRUE(exists(files[4]));
    EXPECT_TRUE(exists(files[5]));
    const std::vector<Catalog::Deletion> deletions = catalog->deletions();
    ASSERT_EQ(3u, deletions.size());
    EXPECT_EQ(files[0], deletions[0].path);
    EXPECT_EQ(files[2], deletions[1].path);
    EXPECT_EQ(files[3], deletions[2].path);
    for (const Catalog::Deletion &deletion : deletions) {
        EXPECT_EQ(0u, deletion.reason.rfind("free space ", 0)) << deletion.reason;
        EXPECT_EQ(1u, log.messagesContaining("Deleted " + deletion.path + " (free space ").size());
        EXPECT_FALSE(catalog->find(deletion.path).has_value());
    }
    ASSERT_EQ(1u, catalog->directories().size());
    EXPECT_EQ(0, catalog->directories()[0].health);
    EXPECT_EQ(4500000, catalog->directories()[0].freeGoalBytes);
}

TEST_F(StorageKeeperTest, OnlyLockedFilesLeftIsAnErrorAndNothingIsDeleted) {
    std::vector<std::string> files;
    for (int i = 0; i < 6; ++i) {
        files.push_back(addFile(std::to_string(i) + ".ts", kMb, 1000 * (i + 1)));
        catalog->setLocked(files.back(), true);
    }
    const std::string writing = addFile("now.ts", kMb, 9000, Recording::State::kRecording);
    const KeeperConfig settings = config(",free-mb=7");
    StorageKeeper keeper(*catalog, settings);
    dvrtest::LogCapture log;
    keeper.enforce();
    keeper.enforce();

    for (const std::string &file : files) {
        EXPECT_TRUE(exists(file)) << file;
    }
    EXPECT_TRUE(exists(writing));
    EXPECT_TRUE(catalog->deletions().empty());
    const std::string expected = "cannot make room in " + storage + " (free space " +
                                 std::to_string(disk->freeBytes() / kMb) +
                                 " MB below 7 MB): only locked files or files being written "
                                 "remain\n";
    // Loudly once, and not again on every round while it stays so.
    EXPECT_EQ(1u, log.count(ANDROID_LOG_ERROR, "DVRKeeper", expected));
    ASSERT_EQ(1u, catalog->directories().size());
    EXPECT_EQ(1, catalog->directories()[0].health);
    EXPECT_EQ(expected.substr(0, expected.size() - 1), catalog->directories()[0].message);
}

TEST_F(StorageKeeperTest, WriteProtectedFileIsTreatedAsLocked) {
    const std::string old = addFile("old.ts", 3 * kMb, 1000);
    const std::string newer = addFile("newer.ts", 3 * kMb, 2000);
    chmod(old.c_str(), 0444);
    const KeeperConfig settings = config(",free-mb=4");
    StorageKeeper keeper(*catalog, settings);
    dvrtest::LogCapture log;
    keeper.enforce();

    EXPECT_TRUE(exists(old));
    EXPECT_FALSE(exists(newer));
    EXPECT_TRUE(catalog->find(old)->locked);
    EXPECT_TRUE(
        log.contains(ANDROID_LOG_WARN, "DVRKeeper",
                     "Recording " + old + " is write-protected on disk; treated as locked\n"));
}

TEST_F(StorageKeeperTest, FilesItDidNotCatalogAreNeverDeleted) {
    const std::string notes = storage + "/notes.txt";
    std::ofstream(notes) << std::string(6 * kMb, 'n');
    const std::string stranger = storage + "/stranger.ts";
    std::ofstream(stranger) << std::string(kMb, 's');
    KeeperConfig settings = config(",free-mb=7");
    settings.set("settle", "3600");
    StorageKeeper keeper(*catalog, settings);
    keeper.reconcile();
    keeper.enforce();

    EXPECT_TRUE(exists(notes));
    // Found on disk and catalogued, but written too recently to be safe.
    EXPECT_TRUE(exists(stranger));
    EXPECT_FALSE(catalog->find(notes).has_value());
    ASSERT_TRUE(catalog->find(stranger).has_value());
    EXPECT_EQ(Recording::State::kFound, catalog->find(stranger)->state);
    EXPECT_EQ(1, catalog->directories()[0].health);
}

TEST_F(StorageKeeperTest, ReconcileCataloguesFoundFilesAndMarksVanishedOnes) {
    const std::string gone = addFile("gone.ts", 1000, 1000);
    const std::string found = storage + "/found.avi";
    std::ofstream(found) << std::string(5000, 'f');
    const std::string protectedFile = storage + "/protected.ts";
    std::ofstream(protectedFile) << std::string(7000, 'p');
    chmod(protectedFile.c_str(), 0444);
    unlink(gone.c_str());
    const KeeperConfig settings = config();
    StorageKeeper keeper(*catalog, settings);
    dvrtest::LogCapture log;
    keeper.reconcile();

    EXPECT_EQ(Recording::State::kMissing, catalog->find(gone)->state);
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, "DVRKeeper",
                             "Recording " + gone + " is gone from disk; marked missing\n"));
    ASSERT_TRUE(catalog->find(found).has_value());
    EXPECT_EQ(Recording::State::kFound, catalog->find(found)->state);
    EXPECT_EQ(5000, catalog->find(found)->bytes);
    EXPECT_FALSE(catalog->find(found)->encoderId.has_value());
    EXPECT_FALSE(catalog->find(found)->locked);
    EXPECT_TRUE(
        log.contains(ANDROID_LOG_INFO, "DVRKeeper", "Catalogued " + found + ", found on disk\n"));
    EXPECT_TRUE(catalog->find(protectedFile)->locked);
}

TEST_F(StorageKeeperTest, VanishedDirectoryIsReportedAndItsRowsMarkedMissing) {
    const std::string plain = dir.file("plain");
    mkdir(plain.c_str(), 0755);
    const std::string file = dvrtest::resolvedPath(plain) + "/a.ts";
    std::ofstream(file) << "a";
    KeeperConfig settings;
    settings.set("dir", dvrtest::resolvedPath(plain));
    StorageKeeper keeper(*catalog, settings);
    keeper.reconcile();
    ASSERT_TRUE(catalog->find(file).has_value());
    unlink(file.c_str());
    rmdir(plain.c_str());
    dvrtest::LogCapture log;
    keeper.reconcile();
    keeper.enforce();

    EXPECT_EQ(Recording::State::kMissing, catalog->find(file)->state);
    const std::string expected = "storage directory " + dvrtest::resolvedPath(plain) +
                                 " cannot be read: No such file or directory\n";
    EXPECT_EQ(1u, log.count(ANDROID_LOG_ERROR, "DVRKeeper", expected));
    EXPECT_EQ(2, catalog->directories()[0].health);
}

TEST_F(StorageKeeperTest, TotalAndAgeLimitsDeleteTheOldestFirst) {
    const int64_t now = dvrtest::wallClockMs();
    const std::string ancient = addFile("ancient.ts", 1000, now - 3 * 86400 * 1000LL);
    const std::string old = addFile("old.ts", 1000, now - 2 * 3600 * 1000LL);
    const std::string recent = addFile("recent.ts", 1000, now - 3600 * 1000LL);
    const std::string latest = addFile("latest.ts", 1000, now - 60 * 1000LL);
    // At most 2500 bytes, nothing older than two days.
    const KeeperConfig settings = config(",total-gb=0.0000025,age-days=2");
    StorageKeeper keeper(*catalog, settings);
    keeper.enforce();

    EXPECT_FALSE(exists(ancient));
    EXPECT_FALSE(exists(old));
    EXPECT_TRUE(exists(recent));
    EXPECT_TRUE(exists(latest));
    const std::vector<Catalog::Deletion> deletions = catalog->deletions();
    ASSERT_EQ(2u, deletions.size());
    EXPECT_EQ(ancient, deletions[0].path);
    EXPECT_EQ(old, deletions[1].path);
    EXPECT_EQ(0u, deletions[0].reason.rfind("total above ", 0)) << deletions[0].reason;
}

TEST_F(StorageKeeperTest, DefaultFreeGoalIsThreeFilesOfEveryChannelWritingThere) {
    for (int i = 0; i < 6; ++i) {
        addFile(std::to_string(i) + ".ts", kMb, 1000 * (i + 1));
    }
    const KeeperConfig settings = config();
    StorageKeeper keeper(*catalog, settings);
    // 1 Mbps for 8 s: 1 MB a file.
    keeper.setChannel(100, {1, 8});
    keeper.recordStarted(100, storage + "/now.ts", dvrtest::wallClockMs());

    EXPECT_EQ(3 * kMb, keeper.freeGoal(storage));
    // The file being written and the next one.
    EXPECT_EQ(2 * kMb, keeper.inFlightReserve(storage));
    EXPECT_GE(disk->freeBytes(), 5 * kMb);
    EXPECT_EQ(Recording::State::kRecording, catalog->find(storage + "/now.ts")->state);
    EXPECT_EQ(100, catalog->find(storage + "/now.ts")->encoderId.value_or(-1));
    EXPECT_FALSE(catalog->deletions().empty());
}

TEST(KeeperConfigTest, DirectoryPolicyReadsItsSettings) {
    const dvrkeeper::DirectoryPolicy policy =
        KeeperConfig::parseDirectory("/data/rec/,free-mb=200,total-gb=5,age-days=7");
    EXPECT_EQ("/data/rec", policy.path);
    EXPECT_EQ(200, policy.freeMb.value_or(0));
    EXPECT_EQ(5, policy.totalGb.value_or(0));
    EXPECT_EQ(7, policy.ageDays.value_or(0));
    EXPECT_FALSE(KeeperConfig::parseDirectory("/data").freeMb.has_value());
    EXPECT_THROW(KeeperConfig::parseDirectory("data"), std::invalid_argument);
    EXPECT_THROW(KeeperConfig::parseDirectory("/data,free-mb=-1"), std::invalid_argument);
    EXPECT_THROW(KeeperConfig::parseDirectory("/data,size=1"), std::invalid_argument);
}

TEST(KeeperConfigTest, ConfigurationFileNamesTheLineOfAMistake) {
    dvrtest::TempDir dir;
    const std::string file = dir.write("keeper.conf",
                                       "# keeper\n"
                                       "db /var/lib/k.db\n"
                                       "dir /data,free-mb=10  # comment\n"
                                       "interval 5\n");
    KeeperConfig config;
    config.load(file);
    EXPECT_EQ("/var/lib/k.db", config.database);
    ASSERT_EQ(1u, config.directories.size());
    EXPECT_EQ(10, config.directories[0].freeMb.value_or(0));
    EXPECT_EQ(5, config.intervalSeconds);
    const std::string bad = dir.write("bad.conf", "interval 5\ninterval soon\n");
    try {
        config.load(bad);
        FAIL() << "a bad interval was accepted";
    } catch (const std::invalid_argument &error) {
        EXPECT_EQ(bad + ":2: interval needs a whole number of seconds from 1 to 86400, not 'soon'",
                  std::string(error.what()));
    }
}
