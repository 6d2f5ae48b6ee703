// The command line of dvr-web: where it listens, the token that guards a
// listener beyond the loopback interface, the keeper's catalog, the service
// and the simulator's frame memory. Main thread.
#ifndef DVR_WEB_WEB_OPTIONS_H
#define DVR_WEB_WEB_OPTIONS_H

#include <optional>
#include <string>

namespace dvrweb {

struct WebOptions {
    static constexpr const char *kDefaultHost = "127.0.0.1";
    static constexpr int kDefaultPort = 8088;

    std::string host = kDefaultHost;
    int port = kDefaultPort;
    // Read from --token-file; empty: no token asked (loopback only).
    std::string token;
    std::string catalog = "/var/lib/dvr-keeper/catalog.db";
    std::string service = "dvr";
    // Where the console names the files of a channel it starts; empty: it
    // names none and a channel without a next file name is refused.
    std::string storage;
    std::optional<std::string> arena;
    std::string webRoot;
    bool help = false;
    bool version = false;
};

// What went wrong with the command line (exit status 2).
struct UsageError {
    std::string message;
};

class WebOptionsParser {
public:
    // Throws UsageError; reads the token file.
    static WebOptions parse(int argc, char **argv);
    static const char *usage();
    // Whether host is an address of the loopback interface.
    static bool isLoopback(const std::string &host);
};

}  // namespace dvrweb

#endif  // DVR_WEB_WEB_OPTIONS_H
