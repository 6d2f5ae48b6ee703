// Everything the console's tests run against: dvr_server on two small
// simulated real-time cameras (ServerProcess) with its frame memory at a
// known place, channel 100 on camera 10 with audio input 20 attached,
// channel 101 on camera 11 without, audio recording off, both storing into
// the storage directory; the
// keeper cataloguing that directory; dvr-web on a free loopback port naming
// files there. This process is a client of the service too.
#ifndef DVR_TEST_CONSOLE_RIG_H
#define DVR_TEST_CONSOLE_RIG_H

#include <httplib.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "IDVR.h"
#include "KeeperProcess.h"
#include "ServerProcess.h"
#include "WebProcess.h"

namespace dvrtest {

class ConsoleRig {
public:
    static constexpr int kChannels[2] = {100, 101};

    ConsoleRig();

    // Starts the server (its files fileSeconds long), the keeper and the
    // console (with webOptions added). Fatal failures end the calling test.
    void start(int fileSeconds, const std::vector<std::string> &webOptions = {});
    // Starts only the console, with exactly these options.
    bool startWeb(const std::vector<std::string> &options);

    httplib::Client client() const;
    // GET path, the body parsed; a failed parse or transport fails the test.
    nlohmann::json getJson(const std::string &path, int expectedStatus = 200) const;
    // Polls /api/recordings (every 250 ms, up to timeout) until accept
    // likes one of them; null when none did.
    nlohmann::json waitForRecording(const std::function<bool(const nlohmann::json &)> &accept,
                                    std::chrono::seconds timeout) const;

    ServerProcess server;
    android::sp<dvrspace::IDVR> dvr;
    std::string storage;   // absolute, as every process sees it
    std::string database;  // the keeper's catalog
    std::string arena;     // the simulator's frame memory
    std::unique_ptr<KeeperProcess> keeper;
    std::unique_ptr<WebProcess> web;
};

}  // namespace dvrtest

#endif  // DVR_TEST_CONSOLE_RIG_H
