// sysmsg as an operator uses it: a process playing the system side against a
// service whose receiver answers as the recording service does.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "CommandResult.h"
#include "ServiceMessager.h"
#include "TempDir.h"

using system_extension::ServiceMessager;
using system_extension::ServiceMessageReceiver;

namespace {

using ToolResult = dvrtest::CommandResult;

// Answers suspend and resume like the recording service; records every value.
class HibernationReceiver : public ServiceMessageReceiver {
public:
    HibernationReceiver(ServiceMessager *messager, std::string resumeReply)
        : mMessager(messager), mResumeReply(std::move(resumeReply)) {}

    void onMessageReceived(const std::string &name, const std::string &message,
                           const std::string &value) override {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mValues.push_back(value);
            mChanged.notify_all();
        }
        if (name != "dvr_server" || message != "hibernationstate" || mResumeReply.empty()) {
            return;
        }
        if (value == "suspendbegin") {
            mMessager->sendMessage(name, message, "suspendsuccess");
        } else if (value == "resumebegin") {
            mMessager->sendMessage(name, message, mResumeReply);
        }
    }
    std::vector<std::string> waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return mValues.size() >= count; });
        return mValues;
    }

private:
    ServiceMessager *mMessager;
    const std::string mResumeReply;  // empty: never answers
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<std::string> mValues;
};

class SysmsgTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DVR_MSG_DIR", mTemp.path().c_str(), 1);
        mMessager = ServiceMessager::create();
        ASSERT_NE(nullptr, mMessager);
    }
    // The receiver goes after the messager, which may still be delivering.
    void TearDown() override { ServiceMessager::destroy(mMessager); }

    // Registers as "dvr_server" a receiver answering resumebegin with
    // resumeReply (never answering anything when it is empty).
    HibernationReceiver &serve(const std::string &resumeReply) {
        mReceiver = std::make_unique<HibernationReceiver>(mMessager, resumeReply);
        EXPECT_EQ(0, mMessager->registerReceiver("dvr_server", mReceiver.get()));
        return *mReceiver;
    }

    // Runs sysmsg --dir <temp> <arguments>.
    ToolResult sysmsg(const std::string &arguments) {
        return run(std::string(SYSMSG_TOOL) + " --dir " + mTemp.path() + " " + arguments);
    }
    ToolResult run(const std::string &command) { return dvrtest::runCommand(command); }

    dvrtest::TempDir mTemp;
    ServiceMessager *mMessager = nullptr;
    std::unique_ptr<HibernationReceiver> mReceiver;
};

}  // namespace

TEST_F(SysmsgTest, PrintsTheReplyToSuspendBegin) {
    HibernationReceiver &receiver = serve("resumesuccess");
    const ToolResult result = sysmsg("dvr_server suspendbegin");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("dvr_server hibernationstate suspendsuccess\n", result.out);
    EXPECT_EQ((std::vector<std::string>{"suspendbegin"}), receiver.waitFor(1));
}

TEST_F(SysmsgTest, PrintsTheReplyToResumeBegin) {
    serve("resumeignored");
    const ToolResult result = sysmsg("dvr_server resumebegin");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("dvr_server hibernationstate resumeignored\n", result.out);
}

TEST_F(SysmsgTest, ConfirmationIsSentWithoutWaiting) {
    HibernationReceiver &receiver = serve("resumesuccess");
    const ToolResult result = sysmsg("dvr_server resumesuccess");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ("", result.out);
    EXPECT_EQ((std::vector<std::string>{"resumesuccess"}), receiver.waitFor(1));
}

TEST_F(SysmsgTest, SaysSoWhenNoReplyComesInTime) {
    serve("");
    ToolResult result = sysmsg("--timeout 300 dvr_server suspendbegin");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("sysmsg: no reply from dvr_server within 300 ms\n", result.err);
    result = sysmsg("--timeout 100 --wait dvr_server resumesuccess");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("sysmsg: no reply from dvr_server within 100 ms\n", result.err);
}

TEST_F(SysmsgTest, MessageForAnotherNameGetsNoReply) {
    HibernationReceiver &receiver = serve("resumesuccess");
    ToolResult result = sysmsg("--timeout 300 --name other_server dvr_server suspendbegin");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("sysmsg: no reply from dvr_server within 300 ms\n", result.err);
    result = sysmsg("--timeout 300 --message powerstate dvr_server suspendbegin");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ((std::vector<std::string>{"suspendbegin", "suspendbegin"}), receiver.waitFor(2));
}

TEST_F(SysmsgTest, CycleRunsSuspendResumeAndConfirms) {
    HibernationReceiver &receiver = serve("resumeignored");
    const ToolResult result = sysmsg("cycle dvr_server");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(
        "dvr_server hibernationstate suspendsuccess\n"
        "dvr_server hibernationstate resumeignored\n",
        result.out);
    EXPECT_EQ((std::vector<std::string>{"suspendbegin", "resumebegin", "resumeignored"}),
              receiver.waitFor(3));
}

TEST_F(SysmsgTest, UnknownServiceIsNotSent) {
    const ToolResult result = sysmsg("nobody suspendbegin");
    EXPECT_EQ(3, result.status);
    EXPECT_EQ("sysmsg: cannot send to nobody in " + mTemp.path() + ": no such service listens\n",
              result.err);
}

TEST_F(SysmsgTest, BadUsageExitsWithTwo) {
    EXPECT_EQ(2, sysmsg("").status);
    EXPECT_EQ(2, sysmsg("dvr_server").status);
    EXPECT_EQ(2, sysmsg("--timeout soon dvr_server suspendbegin").status);
    const ToolResult bad = sysmsg("../x suspendbegin");
    EXPECT_EQ(2, bad.status);
    EXPECT_EQ("sysmsg: bad service name '../x'\nTry 'sysmsg --help'.\n", bad.err);
}

TEST_F(SysmsgTest, HelpDescribesTheUse) {
    const ToolResult help = run(std::string(SYSMSG_TOOL) + " --help");
    EXPECT_EQ(0, help.status);
    for (const char *text : {"Usage: sysmsg", "suspendbegin", "resumebegin", "resumesuccess",
                             "cycle SERVICE", "--timeout MS", "DVR_MSG_DIR", "/tmp/dvr_msg"}) {
        EXPECT_NE(std::string::npos, help.out.find(text)) << text;
    }
}
