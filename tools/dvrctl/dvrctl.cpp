// dvrctl: the recording service's command-line client, for people and
// scripts. One subcommand per IDVR operation plus watch, status and snapshot;
// see docs/dvrctl.md.
#include <binder/IServiceManager.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "CallDeadline.h"
#include "Command.h"
#include "Refused.h"
#include "StopSignals.h"
#include "ToolVersion.h"
#include "UsageError.h"

using namespace dvrctl;

namespace {

constexpr int kUsageErrorStatus = 2;
constexpr int kRefusedStatus = 2;
constexpr int kNoServiceStatus = 3;
constexpr int kDefaultWaitMs = 5000;
constexpr double kDefaultTimeoutS = 10;
const char *const kDefaultService = "dvr";

struct GlobalOptions {
    bool json = false;
    bool force = false;
    std::string service = kDefaultService;
    int waitMs = kDefaultWaitMs;
    double timeoutS = kDefaultTimeoutS;
};

const std::vector<Command> &allCommands() {
    static const std::vector<Command> commands = [] {
        std::vector<Command> all = operationCommands();
        all.push_back(watchCommand());
        all.push_back(statusCommand());
        all.push_back(snapshotCommand());
        return all;
    }();
    return commands;
}

void printUsage() {
    printf(
        "Usage: dvrctl [OPTIONS] COMMAND [ARGS...]\n"
        "       dvrctl -h|--help | --version | COMMAND --help\n"
        "\n"
        "Talks to the recording service published as NAME (default \"%s\") in the\n"
        "binder directory ($DVR_BINDER_DIR).\n"
        "\n"
        "Options (before COMMAND):\n"
        "  -j, --json           print one JSON document per command, errors included\n"
        "  -s, --service NAME   the service's name (default \"%s\")\n"
        "  -w, --wait MS        wait up to MS ms for the service to appear (default %d)\n"
        "  -t, --timeout S      give up when the service has not answered within S\n"
        "                       seconds (default %g; 0: wait for ever)\n"
        "  -f, --force          send a request that dvrctl refuses (also after COMMAND)\n"
        "  -h, --help           print this help\n"
        "      --version        print dvrctl's version\n"
        "\n"
        "Commands:\n",
        kDefaultService, kDefaultService, kDefaultWaitMs, kDefaultTimeoutS);
    for (const Command &command : allCommands()) {
        const std::string usage =
            command.synopsis.empty() ? command.name : command.name + " " + command.synopsis;
        printf("  %s\n      %s\n", usage.c_str(), command.summary.c_str());
    }
    printf(
        "\n"
        "Enumerations take a number or a name; booleans on|off|true|false|1|0.\n"
        "Requests whose documented outcome wedges a channel or aborts the service are\n"
        "refused with the reason (exit status 2) unless --force is given; a negative\n"
        "result is explained on stderr (in \"error\" with --json).\n"
        "Exit status: 0 on success (a non-negative result), 1 on a negative result or\n"
        "failure, 2 on bad usage or a refused request, 3 when the service cannot be\n"
        "reached or dies, 4 when it does not answer within --timeout.\n");
}

int usageError(const GlobalOptions &options, const std::string &message,
               const std::string &command) {
    const std::string hint = command.empty() ? "dvrctl --help" : "dvrctl " + command + " --help";
    Report::printError(stdout, options.json, command, "usage",
                       message + (options.json ? "" : "\nTry '" + hint + "'."), kUsageErrorStatus);
    return kUsageErrorStatus;
}

const Command *findCommand(const std::string &name) {
    for (const Command &command : allCommands()) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

double parseSeconds(const char *text) {
    char *end = nullptr;
    errno = 0;
    const double value = std::strtod(text, &end);
    if (*text == '\0' || *end != '\0' || errno == ERANGE || !(value >= 0) || value > 1e6) {
        throw UsageError(std::string("--timeout must be seconds from 0 to 1000000, not '") + text +
                         "'");
    }
    return value;
}

// Reads the options before COMMAND; returns the index of COMMAND in argv, or
// -1 after printing help or the version (exit 0).
int readGlobalOptions(int argc, char **argv, GlobalOptions *options) {
    enum { kVersion = 1000 };
    static const option kOptions[] = {
        {"json", no_argument, nullptr, 'j'},         {"service", required_argument, nullptr, 's'},
        {"wait", required_argument, nullptr, 'w'},   {"timeout", required_argument, nullptr, 't'},
        {"force", no_argument, nullptr, 'f'},        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, kVersion}, {nullptr, 0, nullptr, 0}};
    opterr = 0;
    // "+": stop at COMMAND, whose words (negative numbers among them) are
    // the command's own.
    int option = 0;
    // ":" first: a missing value is told apart from an unknown option.
    while ((option = getopt_long(argc, argv, "+:js:w:t:fh", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'j':
                options->json = true;
                break;
            case 's':
                options->service = optarg;
                break;
            case 'w':
                options->waitMs = CommandLine::parseInteger("--wait", optarg, 0, INT_MAX);
                break;
            case 't':
                options->timeoutS = parseSeconds(optarg);
                break;
            case 'f':
                options->force = true;
                break;
            case 'h':
                printUsage();
                return -1;
            case kVersion:
                dvrtools::printToolVersion("dvrctl");
                return -1;
            case ':':
                throw UsageError(std::string(argv[optind - 1]) + " needs a value");
            default:
                throw UsageError(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    return optind;
}

}  // namespace

int main(int argc, char **argv) {
    GlobalOptions options;
    // --json must hold for the errors of the other options too: a first look
    // at the options before COMMAND.
    for (int i = 1; i < argc && argv[i][0] == '-'; ++i) {
        const std::string word = argv[i];
        options.json = options.json || word == "--json" || word == "-j";
        if (word == "-s" || word == "-w" || word == "-t" || word == "--service" ||
            word == "--wait" || word == "--timeout") {
            ++i;  // its value
        }
    }
    int next = 0;
    try {
        next = readGlobalOptions(argc, argv, &options);
    } catch (const UsageError &error) {
        return usageError(options, error.what(), "");
    }
    if (next < 0) {
        return 0;
    }
    if (next >= argc) {
        return usageError(options, "no command given", "");
    }
    const std::string name = argv[next];
    const Command *command = findCommand(name);
    if (command == nullptr) {
        return usageError(options, "unknown command '" + name + "'", "");
    }
    CommandLine line(std::vector<std::string>(argv + next + 1, argv + argc), options.force);
    if (line.wantsHelp()) {
        printf("%s", command->help().c_str());
        return 0;
    }
    Call call;
    try {
        call = command->prepare(line);
    } catch (const UsageError &error) {
        return usageError(options, error.what(), name);
    } catch (const Refused &refusal) {
        Report::printError(stdout, options.json, name, "refused", refusal.what(), kRefusedStatus);
        return kRefusedStatus;
    }

    if (command->waitsForSignals) {
        // Before the binder library starts threads, which inherit the mask.
        dvrtools::blockStopSignals();
    }
    const android::sp<android::IBinder> binder = android::defaultServiceManager()->waitForService(
        android::String16(options.service.c_str()), options.waitMs);
    const android::sp<dvrspace::IDVR> service = android::interface_cast<dvrspace::IDVR>(binder);
    if (service == nullptr) {
        Report::printError(stdout, options.json, name, "unreachable",
                           "service \"" + options.service + "\" not reachable within " +
                               std::to_string(options.waitMs) + " ms",
                           kNoServiceStatus);
        return kNoServiceStatus;
    }
    char seconds[32];
    snprintf(seconds, sizeof(seconds), "%g", options.timeoutS);
    CallDeadline::arm(
        options.timeoutS,
        Report::errorText(options.json, name, "timeout",
                          "no answer from the service within " + std::string(seconds) +
                              " s: a channel may be wedged (a settings lock left "
                              "held by setResolution) or the service is busy; see "
                              "its log",
                          CallDeadline::kTimeoutStatus),
        options.json ? STDOUT_FILENO : STDERR_FILENO);
    Report report(name, options.json);
    int status = 0;
    try {
        status = call(service, report);
    } catch (const Refused &refusal) {
        CallDeadline::disarm();
        Report::printError(stdout, options.json, name, "refused", refusal.what(), kRefusedStatus);
        return kRefusedStatus;
    }
    CallDeadline::disarm();
    if (status != kNoServiceStatus && !binder->isBinderAlive()) {
        Report::printError(stdout, options.json, name, "unreachable",
                           "lost the service \"" + options.service + "\"", kNoServiceStatus);
        return kNoServiceStatus;
    }
    if (report.hasResult()) {
        report.print(stdout);
    }
    return status;
}
