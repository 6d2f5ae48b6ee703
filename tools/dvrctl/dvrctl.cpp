// dvrctl: the recording service's command-line client, for people and
// scripts. One subcommand per IDVR operation plus watch, status and snapshot;
// see docs/dvrctl.md.
#include <binder/IServiceManager.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Command.h"
#include "UsageError.h"

using namespace dvrctl;

namespace {

constexpr int kUsageErrorStatus = 2;
constexpr int kNoServiceStatus = 3;
constexpr int kDefaultWaitMs = 5000;
const char *const kDefaultService = "dvr";

struct GlobalOptions {
    bool json = false;
    std::string service = kDefaultService;
    int waitMs = kDefaultWaitMs;
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
        "Usage: dvrctl [--json] [--service NAME] [--wait MS] COMMAND [ARGS...]\n"
        "       dvrctl --help | dvrctl COMMAND --help\n"
        "\n"
        "Talks to the recording service published as NAME (default \"%s\") in the\n"
        "binder directory ($DVR_BINDER_DIR), waiting up to MS ms for it (default %d).\n"
        "--json prints one JSON object per command instead of plain text.\n"
        "\n"
        "Commands:\n",
        kDefaultService, kDefaultWaitMs);
    for (const Command &command : allCommands()) {
        const std::string usage =
            command.synopsis.empty() ? command.name : command.name + " " + command.synopsis;
        printf("  %s\n      %s\n", usage.c_str(), command.summary.c_str());
    }
    printf(
        "\n"
        "Enumerations take a number or a name; booleans on|off|true|false|1|0.\n"
        "Exit status: 0 on success (a non-negative result), 1 on a negative result or\n"
        "failure, 2 on bad usage, 3 when the service cannot be reached or dies.\n");
}

int usageError(const std::string &message, const std::string &command) {
    const std::string prefix = command.empty() ? "" : command + ": ";
    const std::string hint = command.empty() ? "dvrctl --help" : "dvrctl " + command + " --help";
    fprintf(stderr, "dvrctl: %s%s\nTry '%s'.\n", prefix.c_str(), message.c_str(), hint.c_str());
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

void blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    GlobalOptions options;
    size_t next = 0;
    try {
        for (; next < words.size() && words[next].compare(0, 2, "--") == 0; ++next) {
            const std::string &word = words[next];
            if (word == "--help") {
                printUsage();
                return 0;
            }
            if (word == "--json") {
                options.json = true;
                continue;
            }
            if ((word == "--service" || word == "--wait") && next + 1 >= words.size()) {
                throw UsageError(word + " needs a value");
            }
            if (word == "--service") {
                options.service = words[++next];
            } else if (word == "--wait") {
                options.waitMs = CommandLine::parseInteger("--wait", words[++next], 0, INT_MAX);
            } else {
                throw UsageError("unknown option " + word);
            }
        }
    } catch (const UsageError &error) {
        return usageError(error.what(), "");
    }
    if (next >= words.size()) {
        return usageError("no command given", "");
    }
    const std::string &name = words[next];
    const Command *command = findCommand(name);
    if (command == nullptr) {
        return usageError("unknown command '" + name + "'", "");
    }
    CommandLine line(std::vector<std::string>(words.begin() + next + 1, words.end()));
    if (line.wantsHelp()) {
        printf("%s", command->help().c_str());
        return 0;
    }
    Call call;
    try {
        call = command->prepare(line);
    } catch (const UsageError &error) {
        return usageError(error.what(), name);
    }

    if (command->waitsForSignals) {
        // Before the binder library starts threads, which inherit the mask.
        blockStopSignals();
    }
    const android::sp<android::IBinder> binder = android::defaultServiceManager()->waitForService(
        android::String16(options.service.c_str()), options.waitMs);
    const android::sp<dvrspace::IDVR> service = android::interface_cast<dvrspace::IDVR>(binder);
    if (service == nullptr) {
        fprintf(stderr, "dvrctl: service \"%s\" not reachable within %d ms\n",
                options.service.c_str(), options.waitMs);
        return kNoServiceStatus;
    }
    Report report(name, options.json);
    const int status = call(service, report);
    if (status != kNoServiceStatus && !binder->isBinderAlive()) {
        fprintf(stderr, "dvrctl: lost the service \"%s\"\n", options.service.c_str());
        return kNoServiceStatus;
    }
    if (report.hasResult()) {
        report.print(stdout);
    }
    return status;
}
