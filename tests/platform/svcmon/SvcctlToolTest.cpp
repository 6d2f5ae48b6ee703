// svcctl as an operator uses it, run as a process on a per-test directory.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <future>
#include <sstream>
#include <string>

#include "CommandResult.h"
#include "ServiceStates.h"
#include "TempDir.h"
#include "svc_mon.h"

namespace {

using ToolResult = dvrtest::CommandResult;

class SvcctlTest : public ::testing::Test {
protected:
    // Runs svcctl --dir <temp> <arguments>.
    ToolResult svcctl(const std::string &arguments) {
        return run(std::string(SVCCTL_TOOL) + " --dir " + mTemp.path() + " " + arguments);
    }
    ToolResult run(const std::string &command) { return dvrtest::runCommand(command); }

    dvrtest::TempDir mTemp;
};

}  // namespace

TEST_F(SvcctlTest, SetThenGetAndList) {
    EXPECT_EQ(0, svcctl("set enc_service stopped").status);
    EXPECT_EQ(0, svcctl("set cam_service restarting").status);
    const ToolResult get = svcctl("get enc_service");
    EXPECT_EQ(0, get.status);
    EXPECT_EQ("stopped\n", get.out);
    const ToolResult list = svcctl("list");
    EXPECT_EQ(0, list.status);
    EXPECT_EQ("cam_service restarting\nenc_service stopped\n(others) running\n", list.out);
    EXPECT_EQ("", list.err);
}

TEST_F(SvcctlTest, UnknownServiceReadsRunning) {
    const ToolResult get = svcctl("get audio_service");
    EXPECT_EQ(0, get.status);
    EXPECT_EQ("running\n", get.out);
}

TEST_F(SvcctlTest, UnsetAndDefaultFollowTheReadingRule) {
    EXPECT_EQ(0, svcctl("set enc stopped").status);
    EXPECT_EQ(0, svcctl("default restarting").status);
    EXPECT_EQ("restarting\n", svcctl("default").out);
    EXPECT_EQ("stopped\n", svcctl("get enc").out);
    EXPECT_EQ(0, svcctl("unset enc").status);
    EXPECT_EQ("restarting\n", svcctl("get enc").out);
    EXPECT_EQ("(others) restarting\n", svcctl("list").out);
    EXPECT_EQ(0, svcctl("default --clear").status);
    EXPECT_EQ("running\n", svcctl("get enc").out);
}

TEST_F(SvcctlTest, StartSetsRunning) {
    EXPECT_EQ(0, svcctl("set enc stopped").status);
    EXPECT_EQ(0, svcctl("start enc").status);
    EXPECT_EQ("running\n", svcctl("get enc").out);
}

TEST_F(SvcctlTest, WaitReturnsOnceTheStateIsReached) {
    EXPECT_EQ(0, svcctl("set enc running").status);
    EXPECT_EQ(0, svcctl("wait enc running").status);
    const ToolResult late = svcctl("wait enc stopped --timeout 50");
    EXPECT_EQ(1, late.status);
    EXPECT_EQ("svcctl: enc still reads \"running\" after 50 ms\n", late.err);
}

TEST_F(SvcctlTest, BadInputIsRefusedAndChangesNothing) {
    ToolResult bad = svcctl("set ../enc stopped");
    EXPECT_EQ(1, bad.status);
    EXPECT_EQ("svcctl: bad service name '../enc'\n", bad.err);
    bad = svcctl("set enc 'two words'");
    EXPECT_EQ(1, bad.status);
    EXPECT_EQ(
        "svcctl: bad state 'two words' (1 to 31 printable characters without blanks "
        "expected)\n",
        bad.err);
    EXPECT_EQ("(others) running\n", svcctl("list").out);
    mTemp.write("broken", "no good");
    bad = svcctl("list");
    EXPECT_EQ(1, bad.status);
    EXPECT_EQ("(others) running\n", bad.out);
    EXPECT_EQ("svcctl: malformed state in " + mTemp.file("broken") +
                  " (1 to 31 printable characters without blanks expected)\n",
              bad.err);
}

TEST_F(SvcctlTest, BadUsageExitsWithTwo) {
    EXPECT_EQ(2, svcctl("").status);
    EXPECT_EQ(2, svcctl("set enc").status);
    EXPECT_EQ(2, svcctl("frobnicate").status);
    EXPECT_EQ(2, svcctl("wait enc running --timeout soon").status);
    const ToolResult unknown = run(std::string(SVCCTL_TOOL) + " --verbose list");
    EXPECT_EQ(2, unknown.status);
    EXPECT_EQ("svcctl: unknown option --verbose\nTry 'svcctl --help'.\n", unknown.err);
}

TEST_F(SvcctlTest, HelpDescribesEveryCommand) {
    const ToolResult help = run(std::string(SVCCTL_TOOL) + " --help");
    EXPECT_EQ(0, help.status);
    for (const char *text : {"Usage: svcctl", "set SERVICE STATE", "get SERVICE", "list",
                             "unset SERVICE", "default [STATE|--clear]", "start SERVICE",
                             "wait SERVICE STATE", "DVR_SVC_DIR", "/tmp/dvr_svc"}) {
        EXPECT_NE(std::string::npos, help.out.find(text)) << text;
    }
}

TEST_F(SvcctlTest, UsesDvrSvcDirWithoutDirOption) {
    const ToolResult set =
        run("DVR_SVC_DIR=" + mTemp.path() + " " + SVCCTL_TOOL + " set cam stopped");
    EXPECT_EQ(0, set.status);
    EXPECT_EQ("stopped", dvrtest::ServiceStates(mTemp.path()).get("cam"));
}

namespace {

void recordLast(const char *, const svc_state_t *states, int count, void *context) {
    auto *seen = static_cast<std::promise<std::string> *>(context);
    if (std::string(states[count - 1].key) == "enc") {
        seen->set_value(states[count - 1].value);
    }
}

}  // namespace

TEST_F(SvcctlTest, MonitorReportsWhatSvcctlSets) {
    dvrtest::ServiceStates(mTemp.path()).watchedByMonitors();
    svc_mon_handle_t monitor = svc_mon_create();
    ASSERT_NE(nullptr, monitor);
    std::promise<std::string> seen;
    std::future<std::string> reported = seen.get_future();
    ASSERT_NE(nullptr, svc_mon_notify_add(monitor, "init", &recordLast, &seen));
    ASSERT_EQ(SVC_MON_NOERROR, svc_mon_notify_start(monitor));
    EXPECT_EQ(0, svcctl("set enc stopped").status);
    ASSERT_EQ(std::future_status::ready, reported.wait_for(std::chrono::seconds(20)));
    EXPECT_EQ("stopped", reported.get());
    svc_mon_destroy(monitor);
}
