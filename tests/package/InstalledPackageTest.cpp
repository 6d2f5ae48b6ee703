// Installs the build tree into a scratch prefix and builds a small client
// against it with find_package(dvr CONFIG), as an integrator would.
#include <gtest/gtest.h>

#include <string>

#include "CommandResult.h"
#include "TempDir.h"

namespace {

std::string run(const std::string &command, int &status) {
    const dvrtest::CommandResult result = dvrtest::runCommand(command);
    status = result.status;
    return result.out + result.err;
}

}  // namespace

TEST(InstalledPackage, ClientBuildsAndLinksAgainstTheInstalledService) {
    dvrtest::TempDir dir;
    const std::string cmake = DVR_CMAKE_COMMAND;
    const std::string prefix = dir.file("prefix");
    int status = 0;
    std::string output =
        run(cmake + " --install " + DVR_BINARY_DIR + " --prefix " + prefix, status);
    ASSERT_EQ(0, status) << output;

    output = run(cmake + " -S " + DVR_CLIENT_SOURCE_DIR + " -B " + dir.file("client") +
                     " -G Ninja -DCMAKE_PREFIX_PATH=" + prefix +
                     " \"-DCMAKE_CXX_FLAGS=" + DVR_CLIENT_FLAGS + "\"",
                 status);
    ASSERT_EQ(0, status) << output;
    output = run(cmake + " --build " + dir.file("client"), status);
    ASSERT_EQ(0, status) << output;

    output = run(dir.file("client") + "/dvr_package_client", status);
    ASSERT_EQ(0, status) << output;
    EXPECT_EQ(
        "DVR_STM_READY camera 0 not ready -3 camera_server dvrspace.IDVR\n"
        "cannot read /nonexistent/runtime.cfg: No such file or directory; cannot stat: No such "
        "file or directory\n",
        output);
}
