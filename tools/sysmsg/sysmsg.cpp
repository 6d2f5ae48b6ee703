// sysmsg: plays the system side of the message channel on a PC. It announces
// suspend and resume to a service, as the power manager does on the device,
// and prints the reply the service sends back.
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MessageSocketDir.h"
#include "ServiceMessage.h"
#include "SystemMessenger.h"
#include "ToolVersion.h"

using system_extension::MessageSocketDir;
using system_extension::ServiceMessage;
using system_extension::SystemMessenger;

namespace {

constexpr int kNoReply = 1;
constexpr int kUsageError = 2;
constexpr int kNotSent = 3;
constexpr int kDefaultTimeoutMs = 15000;
constexpr const char *kHibernation = "hibernationstate";

struct Options {
    MessageSocketDir dir = MessageSocketDir::fromEnvironment();
    int timeoutMs = kDefaultTimeoutMs;
    std::string message = kHibernation;
    std::string name;  // defaults to the service
    // -1: by value (confirmations expect no reply), 0: never, 1: always.
    int wait = -1;
};

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: sysmsg [OPTIONS] SERVICE VALUE\n"
            "       sysmsg [OPTIONS] cycle SERVICE\n"
            "       sysmsg -h|--help | --version\n"
            "\n"
            "Plays the system side of the message channel: sends (NAME, MESSAGE, VALUE)\n"
            "to the service registered as SERVICE and prints the reply it sends back as\n"
            "\"NAME MESSAGE VALUE\". Values: suspendbegin and resumebegin expect a reply;\n"
            "resumesuccess and resumeignored confirm a finished resume and expect none.\n"
            "'cycle' runs a whole suspend and resume: suspendbegin, resumebegin, then the\n"
            "resume reply as confirmation when it is resumesuccess or resumeignored.\n"
            "\n"
            "Options:\n"
            "  --dir DIR          runtime directory (default: $%s, or %s)\n"
            "  --timeout MS       how long to wait for a reply (default %d)\n"
            "  --message MESSAGE  message name (default %s)\n"
            "  --name NAME        name field, when it should differ from SERVICE\n"
            "  --wait             wait for a reply even to a confirmation\n"
            "  --no-wait          only send\n"
            "  -h, --help         print this help\n"
            "  --version          print the version\n"
            "\n"
            "Exit status: 0 reply printed (or sent when none is awaited), 1 no reply\n"
            "within the time limit, 2 bad usage, 3 not sent (no such service, or\n"
            "another system side holds DIR).\n",
            MessageSocketDir::kPathVariable, MessageSocketDir::kDefaultPath, kDefaultTimeoutMs,
            kHibernation);
}

int usageError(const std::string &message) {
    fprintf(stderr, "sysmsg: %s\nTry 'sysmsg --help'.\n", message.c_str());
    return kUsageError;
}

bool expectsReply(const Options &options, const std::string &value) {
    if (options.wait >= 0) {
        return options.wait == 1;
    }
    return value != "resumesuccess" && value != "resumeignored";
}

// Sends one message and waits for its reply as the options say; the reply's
// value goes to *reply.
int exchange(SystemMessenger *messenger, const Options &options, const std::string &service,
             const std::string &value, std::string *reply) {
    const std::string name = options.name.empty() ? service : options.name;
    const ServiceMessage outgoing{name, options.message, value};
    if (!outgoing.isValid()) {
        return usageError("malformed message");
    }
    const int sent = messenger->send(service, outgoing);
    if (sent != 0) {
        fprintf(
            stderr, "sysmsg: cannot send to %s in %s: %s\n", service.c_str(),
            options.dir.path().c_str(),
            sent == -ENOENT || sent == -ECONNREFUSED ? "no such service listens" : strerror(-sent));
        return kNotSent;
    }
    if (!expectsReply(options, value)) {
        return 0;
    }
    ServiceMessage incoming;
    while (messenger->receive(&incoming, options.timeoutMs)) {
        if (incoming.name == name && incoming.message == options.message) {
            printf("%s %s %s\n", incoming.name.c_str(), incoming.message.c_str(),
                   incoming.value.c_str());
            fflush(stdout);
            *reply = incoming.value;
            return 0;
        }
        fprintf(stderr, "sysmsg: ignored %s %s %s\n", incoming.name.c_str(),
                incoming.message.c_str(), incoming.value.c_str());
    }
    fprintf(stderr, "sysmsg: no reply from %s within %d ms\n", service.c_str(), options.timeoutMs);
    return kNoReply;
}

int cycle(SystemMessenger *messenger, Options options, const std::string &service) {
    options.wait = 1;
    std::string reply;
    int result = exchange(messenger, options, service, "suspendbegin", &reply);
    if (result != 0) {
        return result;
    }
    // The resume runs whatever the suspend answered: it also undoes a
    // half-done suspend.
    result = exchange(messenger, options, service, "resumebegin", &reply);
    if (result != 0 || (reply != "resumesuccess" && reply != "resumeignored")) {
        return result;
    }
    options.wait = 0;
    return exchange(messenger, options, service, reply, &reply);
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    enum { kDir = 1000, kTimeout, kMessage, kName, kWait, kNoWait, kVersion };
    static const option kOptions[] = {{"dir", required_argument, nullptr, kDir},
                                      {"timeout", required_argument, nullptr, kTimeout},
                                      {"message", required_argument, nullptr, kMessage},
                                      {"name", required_argument, nullptr, kName},
                                      {"wait", no_argument, nullptr, kWait},
                                      {"no-wait", no_argument, nullptr, kNoWait},
                                      {"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, kVersion},
                                      {nullptr, 0, nullptr, 0}};
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, ":h", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'h':
                printUsage(stdout);
                return 0;
            case kVersion:
                dvrtools::printToolVersion("sysmsg");
                return 0;
            case kDir:
                options.dir = MessageSocketDir(optarg);
                break;
            case kTimeout: {
                char *end = nullptr;
                const long value = strtol(optarg, &end, 10);
                if (*optarg == '\0' || *end != '\0' || value < 0 || value > 3600000) {
                    return usageError("--timeout needs milliseconds from 0 to 3600000");
                }
                options.timeoutMs = static_cast<int>(value);
                break;
            }
            case kMessage:
                options.message = optarg;
                break;
            case kName:
                options.name = optarg;
                break;
            case kWait:
                options.wait = 1;
                break;
            case kNoWait:
                options.wait = 0;
                break;
            case ':':
                return usageError(std::string(argv[optind - 1]) + " needs a value");
            default:
                return usageError(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    const std::vector<std::string> operands(argv + optind, argv + argc);
    if (operands.size() != 2) {
        return usageError("needs SERVICE VALUE, or cycle SERVICE");
    }
    const bool isCycle = operands[0] == "cycle";
    const std::string &service = isCycle ? operands[1] : operands[0];
    if (!MessageSocketDir::isValidName(service)) {
        return usageError("bad service name '" + service + "'");
    }
    std::string error;
    std::unique_ptr<SystemMessenger> messenger = SystemMessenger::open(options.dir, &error);
    if (messenger == nullptr) {
        fprintf(stderr, "sysmsg: %s\n", error.c_str());
        return kNotSent;
    }
    std::string reply;
    return isCycle ? cycle(messenger.get(), options, service)
                   : exchange(messenger.get(), options, service, operands[1], &reply);
}
