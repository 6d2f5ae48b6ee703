#include "DvrctlServer.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace dvrtest {

void DvrctlServer::SetUp() {
    ASSERT_EQ(0, mkdir(mServer.storageDir().c_str(), 0755));
    // The server's own simulator configuration, with the frame memory at a
    // known place for the snapshot.
    mArena = mServer.dir().file("arena");
    std::ifstream file(mServer.dir().file("sim.json"));
    nlohmann::json config = nlohmann::json::parse(file);
    config["arena"] = {{"path", mArena}, {"bytes", 16777216}};
    mServer.dir().write("sim.json", config.dump());
    mServer.start();
    ASSERT_NE(nullptr, mServer.connect()) << mServer.log();
}

CommandResult DvrctlServer::dvrctl(const std::string &words) {
    return runCommand("cd '" + mServer.dir().path() + "' && " + DVRCTL_TOOL + " " + words);
}

std::vector<std::string> DvrctlServer::filesIn(const std::string &relative) const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(mServer.dir().file(relative))) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace dvrtest
