#include "WebOptions.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <fstream>
#include <sstream>

namespace dvrweb {

namespace {

constexpr size_t kMinTokenLength = 16;
constexpr size_t kMaxTokenLength = 4096;

std::string readToken(const std::string &path) {
    std::ifstream in(path);
    if (!in) {
        throw UsageError{"cannot read the token file '" + path + "'"};
    }
    std::stringstream text;
    text << in.rdbuf();
    std::string token = text.str();
    while (!token.empty() &&
           (token.back() == '\n' || token.back() == '\r' || token.back() == ' ')) {
        token.pop_back();
    }
    if (token.size() < kMinTokenLength || token.size() > kMaxTokenLength) {
        throw UsageError{"the token in '" + path + "' must be " + std::to_string(kMinTokenLength) +
                         " to " + std::to_string(kMaxTokenLength) + " characters"};
    }
    for (char c : token) {
        if (c <= ' ' || c > '~') {
            throw UsageError{"the token in '" + path + "' must be printable ASCII without spaces"};
        }
    }
    return token;
}

void parseListen(const std::string &text, WebOptions &options) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        throw UsageError{"--listen takes ADDR:PORT, not '" + text + "'"};
    }
    std::string host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    in6_addr address6{};
    in_addr address4{};
    if (inet_pton(AF_INET, host.c_str(), &address4) != 1 &&
        inet_pton(AF_INET6, host.c_str(), &address6) != 1) {
        throw UsageError{"--listen takes a numeric address, not '" + host + "'"};
    }
    const std::string port = text.substr(colon + 1);
    if (port.find_first_not_of("0123456789") != std::string::npos || port.size() > 5 ||
        std::stoi(port) > 65535) {
        throw UsageError{"--listen takes a port of 0 to 65535, not '" + port + "'"};
    }
    options.host = host;
    options.port = std::stoi(port);
}

}  // namespace

const char *WebOptionsParser::usage() {
    return "Usage: dvr-web [OPTIONS]\n"
           "The recorder's web console: channels live, recordings browsable and playable.\n"
           "\n"
           "  --listen ADDR:PORT  where to listen (default 127.0.0.1:8088); an address\n"
           "                      beyond the loopback interface needs --token-file\n"
           "  --token-file FILE   a token (16 or more printable characters) every\n"
           "                      request must carry: 'Authorization: Bearer TOKEN' or\n"
           "                      '?token=TOKEN' (the page passes on its own ?token=)\n"
           "  --db FILE           the keeper's catalog (default\n"
           "                      /var/lib/dvr-keeper/catalog.db)\n"
           "  --service NAME      the recording service's binder name (default dvr)\n"
           "  --storage DIR       where the console names the files of a channel it\n"
           "                      starts or rolls over (absolute, as the service sees it)\n"
           "  --arena PATH        the simulator's frame memory for snapshots (default\n"
           "                      $DVR_ARENA, else the one live arena in /dev/shm)\n"
           "  --web-root DIR      the page's files (default: the installed ones)\n"
           "  -h, --help          this text\n"
           "      --version       the version\n"
           "\n"
           "Exit status: 0 stopped by SIGINT or SIGTERM, 1 cannot listen or serve,\n"
           "2 bad usage.\n";
}

bool WebOptionsParser::isLoopback(const std::string &host) {
    in_addr address4{};
    if (inet_pton(AF_INET, host.c_str(), &address4) == 1) {
        return (ntohl(address4.s_addr) >> 24) == 127;
    }
    return host == "::1";
}

WebOptions WebOptionsParser::parse(int argc, char **argv) {
    enum { kListen = 256, kTokenFile, kDb, kService, kStorage, kArena, kWebRoot, kVersion };
    static const option longOptions[] = {
        {"listen", required_argument, nullptr, kListen},
        {"token-file", required_argument, nullptr, kTokenFile},
        {"db", required_argument, nullptr, kDb},
        {"service", required_argument, nullptr, kService},
        {"storage", required_argument, nullptr, kStorage},
        {"arena", required_argument, nullptr, kArena},
        {"web-root", required_argument, nullptr, kWebRoot},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, kVersion},
        {nullptr, 0, nullptr, 0},
    };
    WebOptions options;
    std::optional<std::string> tokenFile;
    optind = 1;
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, "h", longOptions, nullptr)) != -1) {
        switch (option) {
            case kListen:
                parseListen(optarg, options);
                break;
            case kTokenFile:
                tokenFile = optarg;
                break;
            case kDb:
                options.catalog = optarg;
                break;
            case kService:
                options.service = optarg;
                break;
            case kStorage:
                options.storage = optarg;
                if (options.storage.empty() || options.storage.front() != '/') {
                    throw UsageError{"--storage takes an absolute directory, not '" +
                                     options.storage + "'"};
                }
                break;
            case kArena:
                options.arena = optarg;
                break;
            case kWebRoot:
                options.webRoot = optarg;
                break;
            case 'h':
                options.help = true;
                return options;
            case kVersion:
                options.version = true;
                return options;
            default:
                throw UsageError{std::string("unknown or incomplete option '") + argv[optind - 1] +
                                 "'"};
        }
    }
    if (optind < argc) {
        throw UsageError{std::string("unexpected argument '") + argv[optind] + "'"};
    }
    if (tokenFile) {
        options.token = readToken(*tokenFile);
    } else if (!isLoopback(options.host)) {
        throw UsageError{"listening on " + options.host +
                         " opens the console beyond this machine: give --token-file"};
    }
    return options;
}

}  // namespace dvrweb
