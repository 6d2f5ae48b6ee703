// What an install gives the console: its systemd unit, filled in with the
// prefix's paths and accepted by systemd, and the page's files beside the
// program.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "CommandResult.h"
#include "TempDir.h"

namespace {

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST(WebUnit, InstalledUnitRunsTheInstalledConsoleOnLoopbackWithTheKeepersCatalog) {
    dvrtest::TempDir dir;
    const std::string prefix = dir.file("prefix");
    const dvrtest::CommandResult install = dvrtest::runCommand(
        std::string(DVR_CMAKE_COMMAND) + " --install " + DVR_BINARY_DIR + " --prefix " + prefix);
    ASSERT_EQ(0, install.status) << install.out << install.err;
    const std::string unit = prefix + "/lib/systemd/system/dvr-web.service";
    const std::string text = readFile(unit);
    for (const std::string &line : std::vector<std::string>{
             "Wants=dvr.service dvr-keeper.service\n",
             "After=dvr.service dvr-keeper.service network.target\n", "Type=simple\n",
             "Restart=on-failure\n", "KillSignal=SIGTERM\n", "NoNewPrivileges=yes\n", "User=dvr\n",
             "Group=dvr\n", "Environment=DVR_BINDER_DIR=/run/dvr-binder\n",
             "ProtectSystem=strict\n", "CapabilityBoundingSet=\n",
             "ExecStart=" + prefix + "/bin/dvr-web $DVR_WEB_OPTIONS\n",
             "Environment=\"DVR_WEB_OPTIONS=--db /var/lib/dvr-keeper/catalog.db\"\n",
             "EnvironmentFile=-" + prefix + "/etc/default/dvr-web\n"}) {
        EXPECT_NE(std::string::npos, text.find("\n" + line)) << line << text;
    }
    const dvrtest::CommandResult verify = dvrtest::runCommand("systemd-analyze verify " + unit);
    EXPECT_EQ(0, verify.status) << verify.err;
    EXPECT_EQ("", verify.err);
    // systemd's score of the hardening: exposure at most 4.0 of 10, as the
    // service's and the keeper's units.
    const dvrtest::CommandResult security =
        dvrtest::runCommand("systemd-analyze security --offline=true --threshold=40 " + unit);
    EXPECT_EQ(0, security.status) << security.out << security.err;
    EXPECT_NE(std::string::npos, security.out.find("Overall exposure level for dvr-web.service: "));
    for (const char *file : {"index.html", "console.css", "console.js"}) {
        const std::string installed = readFile(prefix + "/share/dvr/web/" + file);
        EXPECT_FALSE(installed.empty()) << file;
        EXPECT_EQ(readFile(std::string(DVR_SOURCE_DIR) + "/tools/dvr_web/web/" + file), installed);
    }
}

}  // namespace
