// svcctl: plays the system's service manager on a PC. It writes and shows the
// service states that the service monitor watches, so an operator or a test
// can take a service down and bring it up again.
#include <getopt.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "SvcStateDir.h"
#include "ToolVersion.h"
#include "svc_mon.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kDefaultWaitMs = 10000;
constexpr int kWaitPollMs = 10;

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: svcctl [-d|--dir DIR] COMMAND [ARGUMENTS]\n"
            "       svcctl -h|--help | --version\n"
            "\n"
            "Plays the service manager: sets and shows the states of services as the\n"
            "service monitor reports them. Each state is a file named after its service\n"
            "in DIR (default: $%s, or %s when that is unset).\n"
            "A service without a file reads as the default state, which is \"%s\"\n"
            "unless set with 'svcctl default STATE'.\n"
            "\n"
            "Commands:\n"
            "  set SERVICE STATE        set the state (running, stopped, restarting, ...)\n"
            "  get SERVICE              print the state SERVICE reads as\n"
            "  list                     print \"SERVICE STATE\" for every service with a\n"
            "                           file, then \"(others) STATE\" for the default\n"
            "  unset SERVICE            remove the file: SERVICE reads as the default\n"
            "  default [STATE|--clear]  print, set or clear the default state\n"
            "  start SERVICE            set \"running\" and wait until it reads so\n"
            "  wait SERVICE STATE [--timeout MS]\n"
            "                           wait until SERVICE reads STATE (default %d ms)\n"
            "\n"
            "Exit status: 0 on success, 1 on failure or time-out, 2 on bad usage.\n",
            SvcStateDir::kPathVariable, SvcStateDir::kDefaultPath, SvcStateDir::kImplicitState,
            kDefaultWaitMs);
}

int usageError(const char *message) {
    fprintf(stderr, "svcctl: %s\nTry 'svcctl --help'.\n", message);
    return kUsageError;
}

int failure(const std::string &message) {
    fprintf(stderr, "svcctl: %s\n", message.c_str());
    return 1;
}

int printState(const SvcStateDir &dir, const std::string &service) {
    std::string state;
    std::string error;
    if (!dir.read(service, &state, &error)) {
        return failure(error);
    }
    printf("%s\n", state.c_str());
    return 0;
}

int list(const SvcStateDir &dir) {
    std::vector<std::string> problems;
    for (const auto &entry : dir.list(&problems)) {
        printf("%s %s\n", entry.first.c_str(), entry.second.c_str());
    }
    std::string fallback;
    std::string error;
    if (!dir.readDefault(&fallback, &error)) {
        problems.push_back(error);
    } else {
        printf("(others) %s\n", fallback.c_str());
    }
    for (const std::string &problem : problems) {
        fprintf(stderr, "svcctl: %s\n", problem.c_str());
    }
    return problems.empty() ? 0 : 1;
}

int defaultState(const SvcStateDir &dir, const std::vector<std::string> &args) {
    std::string error;
    if (args.empty()) {
        std::string state;
        if (!dir.readDefault(&state, &error)) {
            return failure(error);
        }
        printf("%s\n", state.c_str());
        return 0;
    }
    const bool done =
        args[0] == "--clear" ? dir.removeDefault(&error) : dir.writeDefault(args[0], &error);
    return done ? 0 : failure(error);
}

int waitFor(const SvcStateDir &dir, const std::vector<std::string> &args) {
    int timeoutMs = kDefaultWaitMs;
    if (args.size() == 4 && args[2] == "--timeout") {
        char *end = nullptr;
        const long value = strtol(args[3].c_str(), &end, 10);
        if (*end != '\0' || value < 0 || value > 3600000) {
            return usageError("--timeout needs milliseconds from 0 to 3600000");
        }
        timeoutMs = static_cast<int>(value);
    } else if (args.size() != 2) {
        return usageError("wait needs SERVICE STATE [--timeout MS]");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string state;
    std::string error;
    for (;;) {
        if (!dir.read(args[0], &state, &error)) {
            return failure(error);
        }
        if (state == args[1]) {
            return 0;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return failure(args[0] + " still reads \"" + state + "\" after " +
                           std::to_string(timeoutMs) + " ms");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kWaitPollMs));
    }
}

int run(const SvcStateDir &dir, const std::string &command, const std::vector<std::string> &args) {
    std::string error;
    if (command == "set" && args.size() == 2) {
        return dir.write(args[0], args[1], &error) ? 0 : failure(error);
    }
    if (command == "get" && args.size() == 1) {
        return printState(dir, args[0]);
    }
    if (command == "list" && args.empty()) {
        return list(dir);
    }
    if (command == "unset" && args.size() == 1) {
        return dir.remove(args[0], &error) ? 0 : failure(error);
    }
    if (command == "default" && args.size() <= 1) {
        return defaultState(dir, args);
    }
    if (command == "start" && args.size() == 1) {
        // startServiceAndWait finds the directory through the environment.
        setenv(SvcStateDir::kPathVariable, dir.path().c_str(), 1);
        return startServiceAndWait(args[0].c_str()) == SVC_MON_NOERROR
                   ? 0
                   : failure("cannot start " + args[0] + " (see the log above)");
    }
    if (command == "wait") {
        return waitFor(dir, args);
    }
    return usageError(("bad command or arguments: " + command).c_str());
}

}  // namespace

int main(int argc, char **argv) {
    SvcStateDir dir = SvcStateDir::fromEnvironment();
    enum { kVersion = 1000 };
    static const option kOptions[] = {{"dir", required_argument, nullptr, 'd'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, kVersion},
                                      {nullptr, 0, nullptr, 0}};
    opterr = 0;
    // "+": the options end at COMMAND, whose own words ("--clear",
    // "--timeout") follow it.
    int option = 0;
    while ((option = getopt_long(argc, argv, "+:d:h", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'd':
                dir = SvcStateDir(optarg);
                break;
            case 'h':
                printUsage(stdout);
                return 0;
            case kVersion:
                dvrtools::printToolVersion("svcctl");
                return 0;
            case ':':
                return usageError((std::string(argv[optind - 1]) + " needs a value").c_str());
            default:
                return usageError((std::string("unknown option ") + argv[optind - 1]).c_str());
        }
    }
    const int next = optind;
    if (next >= argc) {
        return usageError("no command given");
    }
    const std::string command = argv[next];
    return run(dir, command, std::vector<std::string>(argv + next + 1, argv + argc));
}
