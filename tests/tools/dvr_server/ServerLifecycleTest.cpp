// dvr_server as a process: options, publishing the service, the runtime
// configuration it was given, and stopping on SIGTERM or SIGINT.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "CommandResult.h"
#include "ServerProcess.h"

namespace {

using dvrtest::ServerProcess;

// Entries of directory whose names start with prefix.
std::vector<std::string> entriesStartingWith(const std::string &directory,
                                             const std::string &prefix) {
    std::vector<std::string> names;
    if (DIR *dir = opendir(directory.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            if (std::string(entry->d_name).rfind(prefix, 0) == 0) {
                names.push_back(entry->d_name);
            }
        }
        closedir(dir);
    }
    return names;
}

TEST(DvrServer, PublishesTheServiceLogsOneLineAndExitsZeroOnSigterm) {
    ServerProcess server;
    server.start();
    const android::sp<dvrspace::IDVR> dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    EXPECT_EQ(2, dvr->getCameraCount());
    EXPECT_EQ(1, dvr->getAudioCount());
    EXPECT_EQ(2, dvr->getRecorderCount());
    EXPECT_TRUE(server.waitForLog("] Serving 'dvr' with up to 15 binder threads\n"));

    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status)) << server.log();
    EXPECT_EQ(0, WEXITSTATUS(status)) << server.log();
    const std::string log = server.log();
    EXPECT_NE(std::string::npos, log.find("] Terminated: stopping\n"));
    // Released by the server, the service tore itself down before the exit.
    EXPECT_NE(std::string::npos, log.find("] Recorder(s) finalized\n"));
    EXPECT_NE(std::string::npos, log.find("] All Audio device(s) finalized\n"));
    EXPECT_EQ(std::string::npos, log.find("Service still referenced elsewhere"));
    EXPECT_LT(log.find("] All Audio device(s) finalized\n"), log.find("] Stopped\n"));
}

TEST(DvrServer, SigintStopsItLikeSigterm) {
    ServerProcess server;
    server.start({"--threads", "2"});
    ASSERT_NE(nullptr, server.connect());
    EXPECT_TRUE(server.waitForLog("] Serving 'dvr' with up to 2 binder threads\n"));
    const int status = server.stop(SIGINT);
    ASSERT_TRUE(WIFEXITED(status)) << server.log();
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_NE(std::string::npos, server.log().find("] Interrupt: stopping\n"));
}

TEST(DvrServer, FactoryDefaultsComeFromTheRuntimeCfgGivenAndItsImageGoesWithTheServer) {
    ServerProcess server;
    server.start();
    const android::sp<dvrspace::IDVR> dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    // The shipped runtime.cfg: TS, 4 Mbps, 60 s files.
    EXPECT_EQ(dvrspace::DVR_FILE_FORMAT_TS, dvr->getOutputFormat(ServerProcess::kEncoderIds[0]));
    EXPECT_EQ(4, dvr->getBitRate(ServerProcess::kEncoderIds[0]));
    EXPECT_EQ(60, dvr->getFileLength(ServerProcess::kEncoderIds[1]));
    EXPECT_EQ(1u, entriesStartingWith(server.dir().path(), "dvr_server.").size());
    // Its storage default was created from DVR_DEFAULT_PATH.
    EXPECT_EQ(0, access(server.defaultPath().c_str(), F_OK));

    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_TRUE(entriesStartingWith(server.dir().path(), "dvr_server.").empty());
}

TEST(DvrServer, HelpPrintsTheUsageAndExitsZero) {
    std::string err;
    const int status = dvrtest::runServerCommand({"--help"}, &err);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("", err);
}

TEST(DvrServer, BadUsageExitsTwoWithAReason) {
    const struct {
        std::vector<std::string> arguments;
        std::string message;
    } cases[] = {
        {{"--colour", "red"}, "dvr_server: unknown option '--colour'\n"},
        {{"--name"}, "dvr_server: option --name needs a value\n"},
        {{"--threads", "0"}, "dvr_server: --threads takes a number from 1 to 64, not '0'\n"},
        {{"--threads", "many"}, "dvr_server: --threads takes a number from 1 to 64, not 'many'\n"},
        {{"--data", ""}, "dvr_server: option --data needs a non-empty value\n"},
        {{"stray"}, "dvr_server: unexpected argument 'stray'\n"},
    };
    for (const auto &c : cases) {
        std::string err;
        const int status = dvrtest::runServerCommand(c.arguments, &err);
        ASSERT_TRUE(WIFEXITED(status)) << c.message;
        EXPECT_EQ(2, WEXITSTATUS(status)) << c.message;
        EXPECT_EQ(c.message + "Try 'dvr_server --help'.\n", err);
    }
}

TEST(DvrServer, UnreadableRuntimeCfgExitsOneBeforeBuildingTheService) {
    dvrtest::TempDir dir;
    std::string err;
    const int status = dvrtest::runServerCommand({"--runtime-cfg", dir.file("missing.cfg")}, &err);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_EQ(
        "dvr_server: cannot read " + dir.file("missing.cfg") + ": No such file or directory\n",
        err);
}

TEST(DvrServer, InstalledUnitIsAHardenedNotifyServiceOfTheDvrUserWithTheShippedDefaults) {
    dvrtest::TempDir dir;
    const std::string prefix = dir.file("prefix");
    const dvrtest::CommandResult install = dvrtest::runCommand(
        std::string(DVR_CMAKE_COMMAND) + " --install " + DVR_BINARY_DIR + " --prefix " + prefix);
    ASSERT_EQ(0, install.status) << install.out << install.err;
    const std::string unit = prefix + "/lib/systemd/system/dvr.service";
    std::ifstream in(unit);
    std::stringstream text;
    text << in.rdbuf();
    for (const std::string &line : std::vector<std::string>{
             "Type=notify\n", "NotifyAccess=main\n", "WatchdogSec=60\n", "User=dvr\n",
             "Group=dvr\n", "UMask=0007\n", "ProtectSystem=strict\n", "PrivateNetwork=yes\n",
             "ReadWritePaths=-/tmp/dvr_default\n", "RuntimeDirectory=dvr dvr-binder\n",
             "RuntimeDirectoryMode=0750\n", "StateDirectory=dvr\n",
             "Environment=DVR_BINDER_DIR=/run/dvr-binder\n",
             "Environment=DVR_VENDOR_DATA=/var/lib/dvr/vendor_data\n", "Restart=on-failure\n",
             "KillSignal=SIGTERM\n", "TimeoutStopSec=60\n",
             "ExecStart=" + prefix + "/bin/dvr_server $DVR_SERVER_OPTIONS\n",
             "Environment=\"DVR_SERVER_OPTIONS=--runtime-cfg " + prefix +
                 "/etc/dvr/runtime.cfg\"\n"}) {
        EXPECT_NE(std::string::npos, text.str().find("\n" + line)) << line << text.str();
    }
    EXPECT_EQ(0, access((prefix + "/etc/dvr/runtime.cfg").c_str(), R_OK));
    // systemd's own check: syntax, and that the server it names exists.
    const dvrtest::CommandResult verify = dvrtest::runCommand("systemd-analyze verify " + unit);
    EXPECT_EQ(0, verify.status) << verify.err;
    EXPECT_EQ("", verify.err);
    // systemd's score of the hardening: exposure at most 4.0 of 10 (the
    // unit as root without hardening scored 9.6, this one 2.6).
    const dvrtest::CommandResult security =
        dvrtest::runCommand("systemd-analyze security --offline=true --threshold=40 " + unit);
    EXPECT_EQ(0, security.status) << security.out << security.err;
    EXPECT_NE(std::string::npos, security.out.find("Overall exposure level for dvr.service: "));

    // The user and group it runs as, and its storage directory, made by
    // systemd's own tools in a scratch root.
    const std::string root = dir.file("root");
    ASSERT_EQ(0, mkdir(root.c_str(), 0755));
    ASSERT_EQ(0, mkdir((root + "/etc").c_str(), 0755));
    const dvrtest::CommandResult users = dvrtest::runCommand(
        "systemd-sysusers --root=" + root + " " + prefix + "/lib/sysusers.d/dvr.conf");
    ASSERT_EQ(0, users.status) << users.err;
    std::ifstream groupFile(root + "/etc/group");
    std::stringstream groups;
    groups << groupFile.rdbuf();
    EXPECT_EQ(0u, groups.str().rfind("dvr:x:", 0)) << groups.str();
    const dvrtest::CommandResult dirs = dvrtest::runCommand(
        "systemd-tmpfiles --create --root=" + root + " " + prefix + "/lib/tmpfiles.d/dvr.conf");
    EXPECT_EQ(0, dirs.status) << dirs.err;
    struct stat storage {};
    ASSERT_EQ(0, stat((root + "/tmp/dvr_default").c_str(), &storage));
    EXPECT_TRUE(S_ISDIR(storage.st_mode));
    EXPECT_EQ(0750u, storage.st_mode & 0777);
}

}  // namespace
