// dvr-keeper's command line: usage, exit codes, and lock, unlock, list and
// stats on a catalog filled here.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "Catalog.h"
#include "KeeperConfig.h"
#include "KeeperProcess.h"
#include "TempDir.h"

using dvrkeeper::Catalog;
using dvrkeeper::Recording;
using dvrtest::CommandResult;
using dvrtest::runKeeper;

namespace {

class KeeperTool : public testing::Test {
protected:
    void SetUp() override {
        database = dir.file("catalog.db");
        catalog = Catalog::open(database, Catalog::Damaged::kFail);
    }

    std::string add(const std::string &name, int encoderId, int64_t startedMs) {
        const std::string path = dir.write(name, "x");
        Recording recording;
        recording.path = path;
        recording.directory = dir.path();
        recording.encoderId = encoderId;
        recording.state = Recording::State::kFinished;
        recording.startedMs = startedMs;
        recording.finishedMs = startedMs + 2000;
        recording.bytes = 1000 + encoderId;
        recording.frames = 20;
        recording.durationSeconds = 2;
        recording.container = "mpegts";
        catalog->put(recording);
        return path;
    }

    CommandResult keeper(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--db", database});
        return runKeeper(arguments);
    }

    static bool writable(const std::string &path) {
        struct stat status {};
        stat(path.c_str(), &status);
        return (status.st_mode & 0222) != 0;
    }

    dvrtest::TempDir dir;
    std::string database;
    std::unique_ptr<Catalog> catalog;
};

}  // namespace

TEST_F(KeeperTool, HelpAndVersionExitZero) {
    const CommandResult help = runKeeper({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_EQ(0u, help.out.rfind("Usage: dvr-keeper [--config FILE] [--db FILE] COMMAND", 0))
        << help.out;
    for (const char *command :
         {"\n  run ", "\n  lock ", "\n  unlock ", "\n  list ", "\n  stats "}) {
        EXPECT_NE(std::string::npos, help.out.find(command)) << command;
    }
    const CommandResult version = runKeeper({"--version"});
    EXPECT_EQ(0, version.status);
    EXPECT_EQ(0u, version.out.rfind("dvr-keeper (dvr) ", 0)) << version.out;
}

TEST_F(KeeperTool, BadUsageExitsTwoWithTheReason) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "no command given"},
        {{"explode"}, "unknown command 'explode'"},
        {{"lock"}, "lock takes FILE... or --last N --channel ENC"},
        {{"lock", "--last", "2"}, "lock takes FILE... or --last N --channel ENC"},
        {{"lock", "--last", "0", "--channel", "100"},
         "--last needs a whole number from 1 to 2147483647, not '0'"},
        {{"list", "--since", "yesterday"}, "--since needs a time, not 'yesterday'"},
        {{"stats", "--channel", "100"}, "stats takes only --json"},
        {{"list", "--dir", "/data"}, "--dir belongs to run, not to list"},
        {{"run"}, "run needs at least one --dir (or dir in the configuration)"},
        {{"run", "--dir", "/data,free-mb=x"}, "free-mb needs a positive number, not 'x'"},
    };
    for (const auto &[arguments, reason] : cases) {
        const CommandResult result = keeper(arguments);
        EXPECT_EQ(2, result.status) << testing::PrintToString(arguments);
        EXPECT_EQ("dvr-keeper: " + reason + "\nTry 'dvr-keeper --help'.\n", result.err)
            << testing::PrintToString(arguments);
    }
}

TEST_F(KeeperTool, RunWithoutTheDaemonsModuleSaysWhereItLookedAndExitsOne) {
    // The program alone, away from the module beside it in the build tree.
    const std::string program = dir.file("dvr-keeper");
    const CommandResult copied =
        dvrtest::runCommand(std::string("cp ") + DVR_KEEPER_TOOL + " " + program);
    ASSERT_EQ(0, copied.status) << copied.err;
    const CommandResult result =
        dvrtest::runCommand(program + " --db " + dir.file("c.db") + " run --dir " + dir.path());
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("dvr-keeper: the daemon's module dvr-keeper-daemon.so is neither in " + dir.path() +
                  " nor in " + dir.path() + "/../" + DVR_INSTALL_LIBDIR + "/dvr-keeper\n",
              result.err);
}

TEST_F(KeeperTool, UnreadableCatalogExitsThree) {
    const std::string corrupt = dir.write("corrupt.db", std::string(4096, 'c'));
    const CommandResult result = runKeeper({"--db", corrupt, "list"});
    EXPECT_EQ(3, result.status);
    EXPECT_EQ("dvr-keeper: cannot open the catalog: " + corrupt + ": file is not a database\n",
              result.err);
}

TEST_F(KeeperTool, LockProtectsTheFileAndUnlockReleasesIt) {
    const std::string file = add("a.ts", 100, 1000);
    CommandResult result = keeper({"lock", file});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("locked " + file + "\n", result.out);
    EXPECT_TRUE(catalog->find(file)->locked);
    EXPECT_FALSE(writable(file));

    result = keeper({"unlock", file});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("unlocked " + file + "\n", result.out);
    EXPECT_FALSE(catalog->find(file)->locked);
    EXPECT_TRUE(writable(file));

    const std::string stranger = dir.write("stranger.ts", "s");
    result = keeper({"lock", stranger});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("dvr-keeper: " + stranger + " is not in the catalog\n", result.err);
    EXPECT_TRUE(writable(stranger));
}

TEST_F(KeeperTool, LockLastLocksTheChannelsNewestRecordings) {
    const std::string a = add("a.ts", 100, 1000);
    const std::string b = add("b.ts", 100, 2000);
    const std::string c = add("c.ts", 100, 3000);
    const std::string other = add("o.ts", 101, 4000);
    const CommandResult result = keeper({"lock", "--last", "2", "--channel", "100"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("locked " + c + "\nlocked " + b + "\n", result.out);
    EXPECT_FALSE(catalog->find(a)->locked);
    EXPECT_TRUE(catalog->find(b)->locked);
    EXPECT_TRUE(catalog->find(c)->locked);
    EXPECT_FALSE(catalog->find(other)->locked);

    const CommandResult none = keeper({"lock", "--last", "1", "--channel", "7"});
    EXPECT_EQ(1, none.status);
    EXPECT_EQ("dvr-keeper: no recordings of channel 7 in the catalog\n", none.err);
}

TEST_F(KeeperTool, ListFiltersByChannelAndStartAndPrintsJson) {
    add("a.ts", 100, 1000 * 1000);
    const std::string b = add("b.ts", 101, 2000 * 1000);
    add("c.ts", 100, 3000 * 1000);
    CommandResult result = keeper({"list"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(3, std::count(result.out.begin(), result.out.end(), '\n')) << result.out;

    result = keeper({"list", "--channel", "101", "--json"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("{\"path\": \"" + b +
                  "\", \"encId\": 101, \"state\": \"finished\", \"startedMs\": 2000000,"
                  " \"finishedMs\": 2002000, \"locked\": false, \"closedCleanly\": null,"
                  " \"durationSeconds\": 2.000, \"frames\": 20, \"keyFrames\": 0, \"bytes\": 1101,"
                  " \"audio\": false, \"container\": \"mpegts\", \"missingSlots\": 0,"
                  " \"largestGapMs\": 0.0, \"decodedToEnd\": null}\n",
              result.out);

    result = keeper({"list", "--since", "2000", "--channel", "100"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(1, std::count(result.out.begin(), result.out.end(), '\n')) << result.out;
    EXPECT_NE(std::string::npos, result.out.find(dir.file("c.ts"))) << result.out;
}

TEST_F(KeeperTool, StatsGivesSpacePerChannelLockedFilesAndHealth) {
    add("a.ts", 100, 1000 * 1000);
    add("b.ts", 100, 2000 * 1000);
    const std::string c = add("c.ts", 101, 3000 * 1000);
    catalog->setLocked(c, true);
    dvrkeeper::DirectoryStatus status;
    status.path = dir.path();
    status.freeGoalBytes = 1000;
    status.health = 1;
    status.message = "cannot make room";
    catalog->putDirectory(status);

    const CommandResult result = keeper({"stats", "--json"});
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(0u, result.out.rfind("{\"health\": 1, \"lockedFiles\": 1, \"channels\": ["
                                   "{\"encId\": 100, \"files\": 2, \"bytes\": 2200,"
                                   " \"oldestMs\": 1000000, \"newestMs\": 2000000}, "
                                   "{\"encId\": 101, \"files\": 1, \"bytes\": 1101,"
                                   " \"oldestMs\": 3000000, \"newestMs\": 3000000}], "
                                   "\"directories\": [{\"path\": \"" +
                                       dir.path() + "\", \"freeBytes\": ",
                                   0))
        << result.out;
    EXPECT_NE(std::string::npos,
              result.out.find("\"freeGoalBytes\": 1000, \"hoursLeft\": null, \"health\": 1,"
                              " \"message\": \"cannot make room\"}]}\n"))
        << result.out;

    const CommandResult plain = keeper({"stats"});
    EXPECT_EQ(0, plain.status);
    EXPECT_NE(std::string::npos, plain.out.find("locked files: 1\n")) << plain.out;
    EXPECT_NE(std::string::npos, plain.out.find("\nhealth: 1\n")) << plain.out;
}

TEST(KeeperUnit,
     InstalledUnitRunsTheInstalledKeeperHardenedAsTheDvrUserWithTheShippedConfiguration) {
    dvrtest::TempDir dir;
    const std::string prefix = dir.file("prefix");
    const CommandResult install = dvrtest::runCommand(
        std::string(DVR_CMAKE_COMMAND) + " --install " + DVR_BINARY_DIR + " --prefix " + prefix);
    ASSERT_EQ(0, install.status) << install.out << install.err;
    const std::string unit = prefix + "/lib/systemd/system/dvr-keeper.service";
    std::ifstream in(unit);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (const std::string &line : std::vector<std::string>{
             "Wants=dvr.service\n",
             "After=dvr.service local-fs.target\n",
             "Type=simple\n",
             "User=dvr\n",
             "Group=dvr\n",
             "UMask=0007\n",
             "Environment=DVR_BINDER_DIR=/run/dvr-binder\n",
             "ProtectSystem=strict\n",
             "ProtectHome=yes\n",
             "ReadWritePaths=-/tmp/dvr_default\n",
             "PrivateNetwork=yes\n",
             "NoNewPrivileges=yes\n",
             "CapabilityBoundingSet=\n",
             "Restart=on-failure\n",
             "KillSignal=SIGTERM\n",
             "StateDirectory=dvr-keeper\n",
             "StateDirectoryMode=0750\n",
             "ExecStart=" + prefix + "/bin/dvr-keeper $DVR_KEEPER_OPTIONS run\n",
             "Environment=\"DVR_KEEPER_OPTIONS=--config " + prefix + "/etc/dvr/keeper.conf\"\n",
             "EnvironmentFile=-" + prefix + "/etc/default/dvr-keeper\n"}) {
        EXPECT_NE(std::string::npos, text.find("\n" + line)) << line << text;
    }
    // The daemon's module where the installed program looks for it.
    EXPECT_EQ(
        0, access((prefix + "/" + DVR_INSTALL_LIBDIR + "/dvr-keeper/dvr-keeper-daemon.so").c_str(),
                  R_OK));
    // systemd's own check: syntax, and that the keeper it names exists.
    const CommandResult verify = dvrtest::runCommand("systemd-analyze verify " + unit);
    EXPECT_EQ(0, verify.status) << verify.err;
    EXPECT_EQ("", verify.err);
    // systemd's score of the hardening: exposure at most 4.0 of 10, as the
    // service's own unit (the keeper as root without hardening scored 9.6).
    const CommandResult security =
        dvrtest::runCommand("systemd-analyze security --offline=true --threshold=40 " + unit);
    EXPECT_EQ(0, security.status) << security.out << security.err;
    EXPECT_NE(std::string::npos,
              security.out.find("Overall exposure level for dvr-keeper.service: "));
    // The shipped configuration reads, and the keeper answers with it.
    const std::string config = prefix + "/etc/dvr/keeper.conf";
    dvrkeeper::KeeperConfig settings;
    settings.load(config);
    ASSERT_EQ(1u, settings.directories.size());
    EXPECT_EQ("/tmp/dvr_default", settings.directories[0].path);
    EXPECT_EQ("/var/lib/dvr-keeper/catalog.db", settings.database);
    // (The build's keeper: the installed one finds its libraries only in a
    // system prefix.)
    const CommandResult stats = runKeeper({"--config", config, "--db", dir.file("c.db"), "stats"});
    EXPECT_EQ(0, stats.status) << stats.err;
    EXPECT_EQ("locked files: 0\nhealth: 0\n", stats.out);
}
