#include "ConsoleRig.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <thread>

#include "KeeperTestPaths.h"

namespace dvrtest {

ConsoleRig::ConsoleRig() {
    arena = server.dir().file("arena");
    std::ifstream in(server.dir().file("sim.json"));
    std::string config((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string key = "\"arena\": {";
    const size_t at = config.find(key);
    EXPECT_NE(std::string::npos, at) << config;
    if (at != std::string::npos) {
        config.insert(at + key.size(), "\"path\": \"" + arena + "\", ");
    }
    server.dir().write("sim.json", config);
    mkdir(server.storageDir().c_str(), 0755);
    storage = resolvedPath(server.storageDir());
    database = server.dir().file("catalog.db");
}

void ConsoleRig::start(int fileSeconds, const std::vector<std::string> &webOptions) {
    server.start();
    dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    for (int channel = 0; channel < 2; ++channel) {
        const int encId = kChannels[channel];
        ASSERT_EQ(0, dvr->attachCamera(encId, ServerProcess::kCameraIds[channel]));
        ASSERT_EQ(0, dvr->setFileLength(encId, fileSeconds));
        ASSERT_EQ(0, dvr->setStoragePath(encId, ServerProcess::kStorage));
    }
    ASSERT_EQ(0, dvr->attachAudio(kChannels[0], ServerProcess::kAudioId));
    // getAudioRecording reports the first channel's setting for every
    // channel, and the guard rails go by it: audio is off everywhere until a
    // test turns it on for all (and records on channel 100 only).
    ASSERT_EQ(0, dvr->setAudioRecording(-1, false));
    keeper = std::make_unique<KeeperProcess>(server.dir().file("keeper.log"));
    keeper->start({"--db", database, "run", "--dir", storage, "--server-dir", server.dir().path(),
                   "--interval", "1", "--settle", "1"});
    std::vector<std::string> options = {"--listen",  "127.0.0.1:0", "--db",    database,
                                        "--storage", storage,       "--arena", arena};
    options.insert(options.end(), webOptions.begin(), webOptions.end());
    ASSERT_TRUE(startWeb(options)) << web->log();
    // Up once the console reaches the service and the keeper made its catalog.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        struct stat status {};
        const httplib::Result result = client().Get("/api/channels");
        if (result && result->status == 200 && stat(database.c_str(), &status) == 0) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    FAIL() << "the console did not reach the service: " << web->log();
}

bool ConsoleRig::startWeb(const std::vector<std::string> &options) {
    web = std::make_unique<WebProcess>(server.dir().path());
    return web->start(options);
}

httplib::Client ConsoleRig::client() const {
    httplib::Client client("127.0.0.1", web->port());
    client.set_connection_timeout(5);
    client.set_read_timeout(30);
    return client;
}

nlohmann::json ConsoleRig::getJson(const std::string &path, int expectedStatus) const {
    const httplib::Result result = client().Get(path.c_str());
    if (!result) {
        ADD_FAILURE() << "GET " << path << " failed: " << httplib::to_string(result.error());
        return nullptr;
    }
    EXPECT_EQ(expectedStatus, result->status) << path << ": " << result->body;
    EXPECT_EQ("application/json", result->get_header_value("Content-Type")) << path;
    const nlohmann::json body = nlohmann::json::parse(result->body, nullptr, false);
    EXPECT_FALSE(body.is_discarded()) << path << ": " << result->body;
    return body;
}

nlohmann::json ConsoleRig::waitForRecording(
    const std::function<bool(const nlohmann::json &)> &accept, std::chrono::seconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const httplib::Result result = client().Get("/api/recordings");
        if (result && result->status == 200) {
            const nlohmann::json answer = nlohmann::json::parse(result->body);
            for (const nlohmann::json &recording : answer["recordings"]) {
                if (accept(recording)) {
                    return recording;
                }
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    return nullptr;
}

}  // namespace dvrtest
