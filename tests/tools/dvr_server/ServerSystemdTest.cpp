// dvr_server under systemd's eyes: readiness and watchdog over $NOTIFY_SOCKET,
// and the unit's way of letting clients that are not root in: the server runs
// as a user of its own, clients of its group reach its socket.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "CommandResult.h"
#include "ServerProcess.h"

namespace {

using dvrtest::ServerProcess;

// systemd's end of the notification socket.
class NotifySocket {
public:
    explicit NotifySocket(const std::string &path) {
        mFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, bind(mFd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)))
            << strerror(errno);
    }
    ~NotifySocket() { close(mFd); }

    // The next message, or "" when none came within timeoutMs.
    std::string receive(int timeoutMs) {
        pollfd ready{mFd, POLLIN, 0};
        if (poll(&ready, 1, timeoutMs) != 1) {
            return "";
        }
        char buffer[4096];
        const ssize_t n = recv(mFd, buffer, sizeof(buffer), 0);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
    }

private:
    int mFd = -1;
};

constexpr int kWatchdogUs = 400000;

// Starts server with systemd's notification variables (a 400 ms watchdog).
void startUnderSystemd(ServerProcess &server, const std::string &notifyPath) {
    setenv("NOTIFY_SOCKET", notifyPath.c_str(), 1);
    setenv("WATCHDOG_USEC", std::to_string(kWatchdogUs).c_str(), 1);
    server.start();
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
}

TEST(DvrServerSystemd, ReportsReadyAfterPublishingPingsTheWatchdogAndReportsStopping) {
    ServerProcess server;
    NotifySocket systemd(server.dir().file("notify"));
    startUnderSystemd(server, server.dir().file("notify"));
    EXPECT_EQ("READY=1\nSTATUS=Serving 'dvr'", systemd.receive(60000)) << server.log();
    // Published before it says so.
    EXPECT_NE(std::string::npos, server.log().find("] Serving 'dvr' with up to 15 binder threads"));
    // A ping every half interval.
    for (int ping = 0; ping < 3; ++ping) {
        EXPECT_EQ("WATCHDOG=1", systemd.receive(kWatchdogUs / 1000 * 4)) << ping;
    }
    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    std::string last;
    for (std::string message = systemd.receive(0); !message.empty(); message = systemd.receive(0)) {
        last = message;
    }
    EXPECT_EQ("STOPPING=1\nSTATUS=Stopping every recording", last);
}

TEST(DvrServerSystemd, AWedgedServiceLockStopsTheWatchdogPings) {
    ServerProcess server;
    NotifySocket systemd(server.dir().file("notify"));
    startUnderSystemd(server, server.dir().file("notify"));
    ASSERT_EQ("READY=1\nSTATUS=Serving 'dvr'", systemd.receive(60000)) << server.log();
    ASSERT_EQ("WATCHDOG=1", systemd.receive(kWatchdogUs / 1000 * 4));
    const android::sp<dvrspace::IDVR> dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    const int enc = ServerProcess::kEncoderIds[0];
    ASSERT_EQ(0, dvr->attachCamera(enc, ServerProcess::kCameraIds[0]));
    // Documented: this leaves the channel's settings lock held, and the next
    // setter waits for it for ever while holding the service lock.
    ASSERT_EQ(dvrspace::DVR_INVALID_ARGUMENT,
              dvr->setResolution(enc, dvrspace::DVR_RESOLUTION_720P));
    std::thread([dvr, enc] { dvr->setBitRate(enc, 4); }).detach();
    // Pings already on their way may still arrive; then they stop.
    const auto quiet = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!systemd.receive(kWatchdogUs / 1000 * 3).empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), quiet) << "the pings go on";
    }
    // The server is killed by ~ServerProcess, as systemd would after
    // WatchdogSec; the hanging call then ends with the connection.
}

// A user and a group id that no account uses: the test changes no account
// database. The group is "dvr" where the machine has one.
gid_t dvrGroup() {
    if (const group *existing = getgrnam("dvr")) {
        return existing->gr_gid;
    }
    gid_t gid = 61000;
    while (getgrgid(gid) != nullptr) {
        ++gid;
    }
    return gid;
}

uid_t unusedUser(uid_t from) {
    uid_t uid = from;
    while (getpwuid(uid) != nullptr) {
        ++uid;
    }
    return uid;
}

std::string dvrctlAs(uid_t uid, const std::string &groups) {
    return "/usr/bin/setpriv --reuid=" + std::to_string(uid) + " --regid=" + std::to_string(uid) +
           " " + groups + " -- " + DVRCTL_TOOL + " --wait 2000 getRecorderCount";
}

TEST(DvrServerSystemd, ServerAsAUserOfTheDvrGroupIsReachedByGroupMembersOnly) {
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0) {
        GTEST_SKIP() << "needs root and setpriv to run processes as other users";
    }
    const gid_t group = dvrGroup();
    const uid_t serverUser = unusedUser(61000);
    const uid_t member = unusedUser(serverUser + 1);
    const uid_t outsider = unusedUser(member + 1);

    ServerProcess server;
    // What the unit sets up: the server's own directories, a binder directory
    // of the server's user that only the group may enter.
    const std::string binderDir = server.dir().file("binder");
    ASSERT_EQ(0, mkdir(binderDir.c_str(), 0750));
    for (const std::string &path :
         {server.dir().path(), binderDir, server.dir().file("runtime.cfg"),
          server.dir().file("sim.json")}) {
        ASSERT_EQ(0, chown(path.c_str(), serverUser, group)) << path;
    }
    ASSERT_EQ(0, chmod(server.dir().path().c_str(), 0750));
    server.setLauncher({"/usr/bin/setpriv", "--reuid=" + std::to_string(serverUser),
                        "--regid=" + std::to_string(group), "--clear-groups", "--"});
    server.start();
    ASSERT_NE(nullptr, server.connect()) << server.log();
    const std::string socket = binderDir + "/" + ServerProcess::kName;
    struct stat status {};
    ASSERT_EQ(0, stat(socket.c_str(), &status));
    EXPECT_EQ(serverUser, status.st_uid);
    EXPECT_EQ(group, status.st_gid);
    EXPECT_EQ(0660u, status.st_mode & 0777);

    const dvrtest::CommandResult asMember =
        dvrtest::runCommand(dvrctlAs(member, "--groups=" + std::to_string(group)));
    EXPECT_EQ(0, asMember.status) << asMember.err;
    EXPECT_EQ("2\n", asMember.out);
    const dvrtest::CommandResult asOutsider =
        dvrtest::runCommand(dvrctlAs(outsider, "--clear-groups"));
    EXPECT_NE(0, asOutsider.status);
    EXPECT_EQ("", asOutsider.out);

    const int stopped = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(stopped)) << server.log();
    EXPECT_EQ(0, WEXITSTATUS(stopped)) << server.log();
}

}  // namespace
