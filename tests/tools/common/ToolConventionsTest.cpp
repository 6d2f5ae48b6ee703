// Every tool answers --version, -h and --help the same way and refuses an
// unknown option with exit status 2, its name on stderr.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CommandResult.h"
#include "DVRVersion.h"

namespace {

struct Tool {
    std::string name;
    std::string path;
};

std::vector<Tool> tools() {
    return {{"dvrctl", DVRCTL_TOOL},
            {"svcctl", SVCCTL_TOOL},
            {"sysmsg", SYSMSG_TOOL},
            {"rtcfg-image", RTCFG_IMAGE_TOOL},
            {"rtcfg-dump", RTCFG_DUMP_TOOL}};
}

}  // namespace

TEST(ToolConventions, EveryToolPrintsItsVersion) {
    for (const Tool &tool : tools()) {
        const dvrtest::CommandResult result = dvrtest::runCommand(tool.path + " --version");
        EXPECT_EQ(0, result.status) << tool.name;
        EXPECT_EQ(tool.name + " (dvr) " + DVR_VERSION + "\n", result.out);
        EXPECT_EQ("", result.err) << tool.name;
    }
}

TEST(ToolConventions, EveryToolAnswersShortAndLongHelp) {
    for (const Tool &tool : tools()) {
        for (const std::string option : {" -h", " --help"}) {
            const dvrtest::CommandResult result = dvrtest::runCommand(tool.path + option);
            EXPECT_EQ(0, result.status) << tool.name << option;
            EXPECT_EQ(1u, result.out.find("sage: " + tool.name)) << tool.name << option;
            EXPECT_NE(std::string::npos, result.out.find("--version")) << tool.name << option;
            EXPECT_EQ("", result.err) << tool.name << option;
        }
    }
}

TEST(ToolConventions, EveryToolRefusesAnUnknownOptionWithTwo) {
    for (const Tool &tool : tools()) {
        const dvrtest::CommandResult result = dvrtest::runCommand(tool.path + " --bogus");
        EXPECT_EQ(2, result.status) << tool.name;
        EXPECT_EQ(0u, result.err.find(tool.name + ": unknown option --bogus\n")) << result.err;
    }
}
