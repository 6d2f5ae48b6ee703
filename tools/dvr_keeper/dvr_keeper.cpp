// dvr-keeper: loop recording for the recording service. `run` is the daemon
// (a client of the service that catalogs every recording in SQLite and makes
// room before it is needed); lock, unlock, list and stats work on the
// catalog. See docs/keeper.md.
#include <dlfcn.h>
#include <getopt.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Catalog.h"
#include "KeeperCommands.h"
#include "KeeperConfig.h"
#include "KeeperDaemonModule.h"
#include "StopSignals.h"
#include "ToolVersion.h"

using namespace dvrkeeper;

namespace {

constexpr int kUsageStatus = 2;
constexpr int kNoCatalogStatus = 3;
const char *const kDefaultConfig = "/etc/dvr/keeper.conf";

void printUsage() {
    std::printf(
        "Usage: dvr-keeper [--config FILE] [--db FILE] COMMAND [OPTIONS]\n"
        "       dvr-keeper --help | --version\n"
        "\n"
        "Loop recording for the recording service: a catalog of every recording\n"
        "(SQLite, FILE, default %s) and room made before it is needed\n"
        "by deleting the oldest unlocked, finished recordings.\n"
        "\n"
        "Commands:\n"
        "  run [--dir PATH[,free-mb=F][,total-gb=S][,age-days=D]]... [--service NAME]\n"
        "      [--server-dir DIR] [--interval S] [--settle S] [--verify on|off]\n"
        "      The daemon: follows the service, catalogs its files, keeps every PATH\n"
        "      within its policy (default free space: three files' worth of each\n"
        "      channel writing there), reconnects when the service restarts.\n"
        "  lock FILE... | lock --last N --channel ENC\n"
        "      Protects recordings: they are never deleted (their write bits are\n"
        "      cleared too). --last locks the channel's newest N, the current one\n"
        "      included.\n"
        "  unlock FILE... | unlock --last N --channel ENC\n"
        "  list [--channel ENC] [--since TIME] [--json]\n"
        "      The catalog, oldest first. TIME: seconds since the epoch, or local\n"
        "      \"YYYY-MM-DD[ HH:MM[:SS]]\".\n"
        "  stats [--json]\n"
        "      Space per channel, locked files, free space and hours left per\n"
        "      directory, and health: 0 fine, 1 only locked files left while the\n"
        "      disk fills, 2 a directory cannot be read or a file not deleted.\n"
        "\n"
        "--config FILE holds the same settings, one \"NAME VALUE\" a line (db, dir,\n"
        "service, server-dir, interval, settle, verify); read from %s\n"
        "when present and not given. Options on the command line win.\n"
        "Exit status: 0 done, 1 failed, 2 bad usage, 3 the catalog cannot be opened.\n",
        KeeperConfig::kDefaultDatabase, kDefaultConfig);
}

struct UsageError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

int usageError(const std::string &message) {
    std::fprintf(stderr, "dvr-keeper: %s\nTry 'dvr-keeper --help'.\n", message.c_str());
    return kUsageStatus;
}

int64_t integerArgument(const char *name, const char *text, int64_t low, int64_t high) {
    char *end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (*text == '\0' || *end != '\0' || errno != 0 || value < low || value > high) {
        throw UsageError(std::string("--") + name + " needs a whole number from " +
                         std::to_string(low) + " to " + std::to_string(high) + ", not '" + text +
                         "'");
    }
    return value;
}

std::string longName(const option *options, int value) {
    for (; options->name != nullptr; ++options) {
        if (options->val == value) {
            return options->name;
        }
    }
    return "";
}

// Loads the daemon's module, from next to this program (the build tree) or
// from its installed directory, and runs the daemon; 1 when it cannot.
int runDaemon(const KeeperConfig &config) {
    char program[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    const std::string self(program, length > 0 ? static_cast<size_t>(length) : 0);
    const std::string here = self.substr(0, self.rfind('/'));
    const std::string installed = DVR_KEEPER_MODULE_DIR[0] == '/'
                                      ? DVR_KEEPER_MODULE_DIR
                                      : here + "/" + DVR_KEEPER_MODULE_DIR;
    for (const std::string &directory : {here, installed}) {
        const std::string path = directory + "/" + kDaemonModuleFile;
        if (access(path.c_str(), F_OK) != 0) {
            continue;
        }
        // Never closed: the daemon's threads may run until the process ends.
        void *module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto entry =
            module != nullptr ? reinterpret_cast<DaemonEntryPoint>(dlsym(module, kDaemonEntryPoint))
                              : nullptr;
        if (entry == nullptr) {
            std::fprintf(stderr, "dvr-keeper: cannot load the daemon from %s: %s\n", path.c_str(),
                         dlerror());
            return 1;
        }
        const int status = entry(&config);
        // The binder pool's threads are never joined: leave without running
        // static destructors (the module's among them) under their feet.
        std::fflush(nullptr);
        _exit(status);
    }
    std::fprintf(stderr, "dvr-keeper: the daemon's module %s is neither in %s nor in %s\n",
                 kDaemonModuleFile, here.c_str(), installed.c_str());
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    enum { kJson = 1000, kLast, kChannel, kSince, kVersion };
    static const option kOptions[] = {
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, kVersion},
        {"config", required_argument, nullptr, 'c'},
        {"db", required_argument, nullptr, 'd'},
        {"dir", required_argument, nullptr, 'D'},
        {"service", required_argument, nullptr, 's'},
        {"server-dir", required_argument, nullptr, 'S'},
        {"interval", required_argument, nullptr, 'i'},
        {"settle", required_argument, nullptr, 't'},
        {"verify", required_argument, nullptr, 'v'},
        {"json", no_argument, nullptr, kJson},
        {"last", required_argument, nullptr, kLast},
        {"channel", required_argument, nullptr, kChannel},
        {"since", required_argument, nullptr, kSince},
        {nullptr, 0, nullptr, 0},
    };
    std::string configFile;
    std::vector<std::pair<std::string, std::string>> settings;  // by long name
    std::vector<std::string> daemonOnly;
    CommandOptions command;
    bool anyCommandOption = false;
    opterr = 0;
    try {
        int option = 0;
        while ((option = getopt_long(argc, argv, "+h", kOptions, nullptr)) != -1) {
            switch (option) {
                case 'h':
                    printUsage();
                    return 0;
                case kVersion:
                    dvrtools::printToolVersion("dvr-keeper");
                    return 0;
                case 'c':
                    configFile = optarg;
                    break;
                case 'd':
                    settings.emplace_back("db", optarg);
                    break;
                case 'D':
                case 's':
                case 'S':
                case 'i':
                case 't':
                case 'v': {
                    const std::string name = longName(kOptions, option);
                    settings.emplace_back(name, optarg);
                    daemonOnly.push_back("--" + name);
                    break;
                }
                case kJson:
                    command.json = true;
                    anyCommandOption = true;
                    break;
                case kLast:
                    command.last = static_cast<int>(integerArgument("last", optarg, 1, INT_MAX));
                    anyCommandOption = true;
                    break;
                case kChannel:
                    command.channel = integerArgument("channel", optarg, INT_MIN, INT_MAX);
                    anyCommandOption = true;
                    break;
                case kSince:
                    command.sinceMs = parseTimeMs(optarg);
                    if (!command.sinceMs) {
                        throw UsageError(std::string("--since needs a time, not '") + optarg + "'");
                    }
                    anyCommandOption = true;
                    break;
                default:
                    throw UsageError(optopt != 0
                                         ? std::string("option needs a value or is unknown: -") +
                                               static_cast<char>(optopt)
                                         : std::string("unknown option ") + argv[optind - 1]);
            }
            // Options may follow the command word: skip it and go on.
            while (optind < argc && argv[optind][0] != '-') {
                command.files.push_back(argv[optind++]);
            }
        }
        for (; optind < argc; ++optind) {
            command.files.push_back(argv[optind]);
        }
    } catch (const UsageError &error) {
        return usageError(error.what());
    }
    if (command.files.empty()) {
        return usageError("no command given");
    }
    const std::string name = command.files.front();
    command.files.erase(command.files.begin());

    KeeperConfig config;
    try {
        if (!configFile.empty()) {
            config.load(configFile);
        } else if (access(kDefaultConfig, F_OK) == 0) {
            config.load(kDefaultConfig);
        }
        bool dirsGiven = false;
        for (const auto &setting : settings) {
            if (setting.first == "dir" && !dirsGiven) {
                // Directories on the command line replace those of the file.
                config.directories.clear();
                dirsGiven = true;
            }
            config.set(setting.first, setting.second);
        }
    } catch (const std::invalid_argument &error) {
        return usageError(error.what());
    }

    if (name == "run") {
        if (anyCommandOption || !command.files.empty()) {
            return usageError("run takes only daemon options");
        }
        if (config.directories.empty()) {
            return usageError("run needs at least one --dir (or dir in the configuration)");
        }
        // Before the binder library starts threads, which inherit the mask.
        dvrtools::blockStopSignals();
        return runDaemon(config);
    }
    if (!daemonOnly.empty()) {
        return usageError(daemonOnly.front() + " belongs to run, not to " + name);
    }
    const bool lockCommand = name == "lock" || name == "unlock";
    if (lockCommand) {
        if (command.json || command.sinceMs) {
            return usageError(name + " takes FILE... or --last N --channel ENC");
        }
        if (command.last.has_value() != command.channel.has_value() ||
            command.last.has_value() == !command.files.empty()) {
            return usageError(name + " takes FILE... or --last N --channel ENC");
        }
    } else if (name == "list") {
        if (command.last || !command.files.empty()) {
            return usageError("list takes [--channel ENC] [--since TIME] [--json]");
        }
    } else if (name == "stats") {
        if (command.last || command.channel || command.sinceMs || !command.files.empty()) {
            return usageError("stats takes only --json");
        }
    } else {
        return usageError("unknown command '" + name + "'");
    }
    std::unique_ptr<Catalog> catalog;
    try {
        catalog = Catalog::open(config.database, Catalog::Damaged::kFail);
    } catch (const CatalogError &error) {
        std::fprintf(stderr, "dvr-keeper: cannot open the catalog: %s\n", error.what());
        return kNoCatalogStatus;
    }
    try {
        if (lockCommand) {
            return setLockCommand(*catalog, command, name == "lock", stdout);
        }
        if (name == "list") {
            return listCommand(*catalog, command, stdout);
        }
        return statsCommand(*catalog, command, stdout);
    } catch (const CatalogError &error) {
        std::fprintf(stderr, "dvr-keeper: %s\n", error.what());
        return 1;
    }
}
