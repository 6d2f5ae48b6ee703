// dvrctl: the recording service's command-line client, for people and
// scripts. One subcommand per IDVR operation plus watch, status and snapshot;
// see docs/dvrctl.md.
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CallDeadline.h"
#include "Command.h"
#include "DVRClient.h"
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

struct OptionHelp {
    const char *shortName;  // empty when there is none
    const char *longName;
    const char *argument;  // empty for a flag
    std::string description;
};

std::vector<OptionHelp> optionHelp() {
    char timeout[96];
    snprintf(timeout, sizeof timeout,
             "give up when the service has not answered within S seconds (default %g; 0: wait "
             "for ever)",
             kDefaultTimeoutS);
    return {
        {"-j", "--json", "", "print one JSON document per command, errors included"},
        {"-s", "--service", "NAME",
         std::string("the service's name (default \"") + kDefaultService + "\")"},
        {"-w", "--wait", "MS",
         "wait up to MS ms for the service to appear (default " + std::to_string(kDefaultWaitMs) +
             ")"},
        {"-t", "--timeout", "S", timeout},
        {"-f", "--force", "", "send a request that dvrctl refuses (also after COMMAND)"},
        {"-h", "--help", "", "print this help"},
        {"", "--version", "", "print dvrctl's version"},
    };
}

const char *const kUsageLine = "dvrctl [OPTIONS] COMMAND [ARGS...]";
const char *const kNotes =
    "Enumerations take a number or a name; booleans on|off|true|false|1|0.\n"
    "Requests whose documented outcome wedges a channel or aborts the service are\n"
    "refused with the reason (exit status 2) unless --force is given; a negative\n"
    "result is explained on stderr (in \"error\" with --json).\n";
const std::pair<int, const char *> kExitStatuses[] = {
    {0, "success (a non-negative result)"},
    {1, "a negative result or a failure"},
    {2, "bad usage or a refused request"},
    {3, "the service cannot be reached or dies"},
    {4, "the service does not answer within --timeout"},
};

// The same help as one JSON document, for a script that reads --json output.
void printJsonUsage() {
    nlohmann::json options = nlohmann::json::array();
    for (const OptionHelp &option : optionHelp()) {
        options.push_back(
            {{"short", *option.shortName != '\0' ? nlohmann::json(option.shortName) : nullptr},
             {"long", option.longName},
             {"argument", *option.argument != '\0' ? nlohmann::json(option.argument) : nullptr},
             {"description", option.description}});
    }
    nlohmann::json commands = nlohmann::json::array();
    for (const Command &command : allCommands()) {
        commands.push_back(command.helpJson());
    }
    nlohmann::json statuses = nlohmann::json::object();
    for (const auto &status : kExitStatuses) {
        statuses[std::to_string(status.first)] = status.second;
    }
    const nlohmann::json help = {{"usage", kUsageLine},
                                 {"options", options},
                                 {"commands", commands},
                                 {"notes", kNotes},
                                 {"exitStatus", statuses}};
    printf("%s\n", help.dump().c_str());
}

void printUsage(bool json) {
    if (json) {
        printJsonUsage();
        return;
    }
    printf(
        "Usage: %s\n"
        "       dvrctl -h|--help | --version | COMMAND --help\n"
        "\n"
        "Talks to the recording service published as NAME (default \"%s\") in the\n"
        "binder directory ($DVR_BINDER_DIR).\n"
        "\n"
        "Options (before COMMAND):\n",
        kUsageLine, kDefaultService);
    for (const OptionHelp &option : optionHelp()) {
        const std::string names = std::string(*option.shortName != '\0' ? option.shortName : "  ") +
                                  (*option.shortName != '\0' ? ", " : "  ") + option.longName +
                                  (*option.argument != '\0' ? " " : "") + option.argument;
        // The description wrapped at 80 columns, continued under itself.
        std::string line;
        const char *prefix = names.c_str();
        std::istringstream words(option.description);
        for (std::string word; words >> word;) {
            if (!line.empty() && 23 + line.size() + 1 + word.size() > 80) {
                printf("  %-20s %s\n", prefix, line.c_str());
                prefix = "";
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        printf("  %-20s %s\n", prefix, line.c_str());
    }
    printf("\nCommands:\n");
    for (const Command &command : allCommands()) {
        const std::string usage =
            command.synopsis.empty() ? command.name : command.name + " " + command.synopsis;
        printf("  %s\n      %s\n", usage.c_str(), command.summary.c_str());
    }
    printf("\n%s\nExit status:\n", kNotes);
    for (const auto &status : kExitStatuses) {
        printf("  %d  %s\n", status.first, status.second);
    }
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
                printUsage(options->json);
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
        printf("%s", options.json ? (command->helpJson().dump() + "\n").c_str()
                                  : command->help().c_str());
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
    dvrspace::DVRClient client(options.service);
    if (!client.connect(options.waitMs)) {
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
        status = call(client, report);
    } catch (const Refused &refusal) {
        CallDeadline::disarm();
        Report::printError(stdout, options.json, name, "refused", refusal.what(), kRefusedStatus);
        return kRefusedStatus;
    }
    CallDeadline::disarm();
    if (status != kNoServiceStatus && !client.serviceAlive()) {
        Report::printError(stdout, options.json, name, "unreachable",
                           "lost the service \"" + options.service + "\"", kNoServiceStatus);
        return kNoServiceStatus;
    }
    if (report.hasResult()) {
        report.print(stdout);
    }
    return status;
}
