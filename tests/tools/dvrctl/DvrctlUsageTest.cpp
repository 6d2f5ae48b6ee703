// dvrctl's own checks of its command line: help texts and usage errors, which
// it answers before it looks for the service.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "DvrctlTool.h"
#include "IDVROperations.h"
#include "TempDir.h"

namespace {

// Every operation's command, then the composite ones.
std::vector<std::string> allCommands() {
    std::vector<std::string> commands = dvrtest::idvrOperations();
    commands.insert(commands.end(), {"watch", "status", "snapshot"});
    return commands;
}

// dvrctl with a binder directory where no service ever appears: a usage error
// must be reported before dvrctl would wait for one.
class DvrctlUsage : public ::testing::Test {
protected:
    dvrtest::CommandResult dvrctl(const std::string &arguments) {
        return dvrtest::runCommand("DVR_BINDER_DIR=" + mNoService.path() + " " +
                                   std::string(DVRCTL_TOOL) + " --wait 0 " + arguments);
    }

    void expectUsageError(const std::string &arguments, const std::string &message,
                          const std::string &hint) {
        const dvrtest::CommandResult result = dvrctl(arguments);
        EXPECT_EQ(2, result.status) << arguments;
        EXPECT_EQ("", result.out) << arguments;
        EXPECT_EQ("dvrctl: " + message + "\nTry '" + hint + "'.\n", result.err) << arguments;
    }

    dvrtest::TempDir mNoService;
};

}  // namespace

TEST(DvrctlCommandHelp, EveryCommandPrintsItsUsage) {
    for (const std::string &command : allCommands()) {
        const dvrtest::CommandResult result =
            dvrtest::runCommand(std::string(DVRCTL_TOOL) + " " + command + " --help");
        EXPECT_EQ(0, result.status) << command;
        EXPECT_EQ(0u, result.out.find("Usage: dvrctl [OPTIONS] " + command)) << result.out;
        EXPECT_EQ("", result.err) << command;
    }
}

TEST(DvrctlCommandHelp, EveryCommandPrintsItsUsageAsOneJsonDocumentUnderJson) {
    for (const std::string &command : allCommands()) {
        const dvrtest::CommandResult result =
            dvrtest::runCommand(std::string(DVRCTL_TOOL) + " --json " + command + " --help");
        EXPECT_EQ(0, result.status) << command;
        EXPECT_EQ("", result.err) << command;
        const nlohmann::json help = nlohmann::json::parse(result.out, nullptr, false);
        ASSERT_TRUE(help.is_object()) << result.out;
        EXPECT_EQ(command, help.value("command", "")) << result.out;
        EXPECT_EQ(0u, help.value("usage", "").find("dvrctl [OPTIONS] " + command)) << result.out;
        EXPECT_NE("", help.value("summary", "")) << result.out;
        EXPECT_TRUE(help.contains("details")) << result.out;
    }
    const dvrtest::CommandResult attach =
        dvrtest::runCommand(std::string(DVRCTL_TOOL) + " -j attachCamera -h");
    EXPECT_EQ(nlohmann::json::parse(attach.out, nullptr, false).value("usage", ""),
              "dvrctl [OPTIONS] attachCamera ENC_ID CAM_ID");
}

TEST_F(DvrctlUsage, HelpUnderJsonIsOneJsonDocumentWithEveryCommandAndOption) {
    const dvrtest::CommandResult result = dvrctl("--json --help");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    const nlohmann::json help = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(help.is_object()) << result.out;
    EXPECT_EQ("dvrctl [OPTIONS] COMMAND [ARGS...]", help.value("usage", ""));
    std::vector<std::string> commands;
    for (const nlohmann::json &command : help["commands"]) {
        commands.push_back(command.value("command", ""));
        EXPECT_NE("", command.value("summary", "")) << command.dump();
    }
    EXPECT_EQ(allCommands(), commands);
    const nlohmann::json timeout = {{"short", "-t"},
                                    {"long", "--timeout"},
                                    {"argument", "S"},
                                    {"description",
                                     "give up when the service has not answered within S "
                                     "seconds (default 10; 0: wait for ever)"}};
    EXPECT_EQ(timeout, help["options"][3]);
    const nlohmann::json version = {{"short", nullptr},
                                    {"long", "--version"},
                                    {"argument", nullptr},
                                    {"description", "print dvrctl's version"}};
    EXPECT_EQ(version, help["options"][6]);
    EXPECT_EQ("the service does not answer within --timeout", help["exitStatus"].value("4", ""));
    // The same help, the options in either order.
    EXPECT_EQ(result.out, dvrctl("-h -j").out);
}

TEST_F(DvrctlUsage, HelpListsEveryCommand) {
    const dvrtest::CommandResult result = dvrctl("--help");
    EXPECT_EQ(0, result.status);
    for (const std::string &command : allCommands()) {
        EXPECT_TRUE(dvrtest::listsCommand(result.out, command)) << command;
    }
}

TEST_F(DvrctlUsage, AnUnknownCommandIsAUsageError) {
    expectUsageError("startRecording 1", "unknown command 'startRecording'", "dvrctl --help");
}

TEST_F(DvrctlUsage, NoCommandIsAUsageError) {
    expectUsageError("", "no command given", "dvrctl --help");
}

TEST_F(DvrctlUsage, AnUnknownGlobalOptionIsAUsageError) {
    expectUsageError("--verbose getCameraCount", "unknown option --verbose", "dvrctl --help");
}

TEST_F(DvrctlUsage, AMissingArgumentIsAUsageError) {
    expectUsageError("startRecord", "startRecord: missing argument ENC_ID",
                     "dvrctl startRecord --help");
    expectUsageError("attachCamera 1", "attachCamera: missing argument CAM_ID",
                     "dvrctl attachCamera --help");
}

TEST_F(DvrctlUsage, AWronglyTypedArgumentIsAUsageError) {
    expectUsageError("setBitRate 1 fast", "setBitRate: MBPS must be a number, not 'fast'",
                     "dvrctl setBitRate --help");
    expectUsageError("setOutputFormat 1 mkv",
                     "setOutputFormat: FORMAT must be avi|ts or a number, not 'mkv'",
                     "dvrctl setOutputFormat --help");
    expectUsageError("autoNextFile 1 maybe",
                     "autoNextFile: ENABLE must be on|off|true|false|1|0, not 'maybe'",
                     "dvrctl autoNextFile --help");
    expectUsageError("setSamplingRate 0 -8000",
                     "setSamplingRate: RATE must lie between 0 and 4294967295, not -8000",
                     "dvrctl setSamplingRate --help");
    expectUsageError("getCamera 99999999999",
                     "getCamera: INDEX must lie between -2147483648 and 2147483647, not "
                     "99999999999",
                     "dvrctl getCamera --help");
}

TEST_F(DvrctlUsage, ExtraArgumentsAndUnknownOptionsAreUsageErrors) {
    expectUsageError("startRecord 1 2", "startRecord: unexpected argument '2'",
                     "dvrctl startRecord --help");
    expectUsageError("startRecord 1 --now", "startRecord: unknown option --now",
                     "dvrctl startRecord --help");
}

TEST_F(DvrctlUsage, CameraSourcesMustMatchTheirCount) {
    expectUsageError("setCameraSources 3 1 2", "setCameraSources: COUNT is 3 but 2 sources follow",
                     "dvrctl setCameraSources --help");
}

TEST_F(DvrctlUsage, StampSettersNeedAFieldAndValidValues) {
    expectUsageError("setTimestamp 1",
                     "setTimestamp: name at least one stamp field: [--enable on|off] [--x N] "
                     "[--y N] [--size SIZE] [--color N] [--interval MS]",
                     "dvrctl setTimestamp --help");
    expectUsageError("setTimestamp 1 --color 300",
                     "setTimestamp: --color must lie between 0 and 255, not 300",
                     "dvrctl setTimestamp --help");
    expectUsageError("setSelfDefinedStamp 1 --x", "setSelfDefinedStamp: --x needs a value",
                     "dvrctl setSelfDefinedStamp --help");
}

TEST_F(DvrctlUsage, WatchChecksItsLimits) {
    expectUsageError("watch --count 0", "watch: --count must lie between 1 and 2147483647, not 0",
                     "dvrctl watch --help");
}
