// dvr-web: the recorder's web console (docs/web.md).
#include <csignal>
#include <cstdio>
#include <thread>

#include "ConsoleServer.h"
#include "StopSignals.h"
#include "ToolVersion.h"
#include "WebOptions.h"

namespace {

constexpr int kFailedStatus = 1;
constexpr int kUsageStatus = 2;

}  // namespace

int main(int argc, char **argv) {
    dvrweb::WebOptions options;
    try {
        options = dvrweb::WebOptionsParser::parse(argc, argv);
    } catch (const dvrweb::UsageError &error) {
        std::fprintf(stderr, "dvr-web: %s\nTry 'dvr-web --help'.\n", error.message.c_str());
        return kUsageStatus;
    }
    if (options.help) {
        std::fputs(dvrweb::WebOptionsParser::usage(), stdout);
        return 0;
    }
    if (options.version) {
        dvrtools::printToolVersion("dvr-web");
        return 0;
    }
    // Before any thread starts, so that only sigwait below takes them.
    dvrtools::blockStopSignals();
    // A page that goes away mid-answer must not end the console.
    std::signal(SIGPIPE, SIG_IGN);
    dvrweb::ConsoleServer server(options);
    std::string error;
    if (!server.bind(&error)) {
        std::fprintf(stderr, "dvr-web: %s\n", error.c_str());
        return kFailedStatus;
    }
    const bool bracket = options.host.find(':') != std::string::npos;
    std::printf("dvr-web: listening on http://%s%s%s:%d/\n", bracket ? "[" : "",
                options.host.c_str(), bracket ? "]" : "", server.port());
    std::fflush(stdout);
    std::thread serving([&server] { server.listen(); });
    const sigset_t signals = dvrtools::stopSignals();
    int received = 0;
    sigwait(&signals, &received);
    server.stop();
    serving.join();
    return 0;
}
