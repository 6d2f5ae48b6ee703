// watch: attaches dvrctl as a client and prints every notification as it
// arrives, one line each, until a count, a time limit, a signal or the death
// of the service ends it; then it detaches again.
#include <binder/IInterface.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <mutex>

#include "CallDeadline.h"
#include "Command.h"
#include "StopSignals.h"
#include "WatchingCallback.h"

using android::sp;
using dvrspace::IDVR;

namespace dvrctl {

namespace {

constexpr long kPollNs = 20 * 1000 * 1000;

// Shared with the callback object, which may outlive the call.
struct Printer {
    bool json;
    int limit;  // 0: none
    std::mutex lock;
    int printed = 0;

    void print(const WatchingCallback::Notification &notification) {
        std::lock_guard<std::mutex> guard(lock);
        if (limit > 0 && printed >= limit) {
            return;
        }
        const std::string type = EnumNames::callbackTypes().name(notification.type);
        const std::string cmd = EnumNames::callbackCommands().name(notification.cmd);
        if (json) {
            nlohmann::json line = {{"command", "watch"},
                                   {"type", type},
                                   {"event", cmd},
                                   {"encId", notification.encId},
                                   {"cbkId", notification.cbkId}};
            if (notification.fileName) {
                line["file"] = *notification.fileName;
            } else if (notification.type == dvrspace::DVR_CBK_OBJ_ERROR) {
                line["errorCode"] = notification.value;
            } else {
                line["value"] = notification.value;
            }
            printf("%s\n", line.dump().c_str());
        } else {
            printf("%s enc=%d %s %s\n", type.c_str(), notification.encId, cmd.c_str(),
                   notification.fileName ? notification.fileName->c_str()
                                         : std::to_string(notification.value).c_str());
        }
        fflush(stdout);
        ++printed;
    }

    bool done() {
        std::lock_guard<std::mutex> guard(lock);
        return limit > 0 && printed >= limit;
    }
};

enum class Ending { kCount, kTime, kSignal, kServiceDied };

Ending waitForTheEnd(const sp<IDVR> &service, Printer &printer, int seconds) {
    const sigset_t signals = dvrtools::stopSignals();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    const timespec poll{0, kPollNs};
    for (;;) {
        if (sigtimedwait(&signals, nullptr, &poll) > 0) {
            return Ending::kSignal;
        }
        if (printer.done()) {
            return Ending::kCount;
        }
        if (!android::IInterface::asBinder(service)->isBinderAlive()) {
            return Ending::kServiceDied;
        }
        if (seconds > 0 && std::chrono::steady_clock::now() >= deadline) {
            return Ending::kTime;
        }
    }
}

int watch(dvrspace::DVRClient &client, Report &report, WatchingCallback::Answers answers, int count,
          int seconds) {
    auto printer = std::make_shared<Printer>();
    printer->json = report.json();
    printer->limit = count;
    const sp<WatchingCallback> callback = new WatchingCallback(
        std::move(answers), [printer](const WatchingCallback::Notification &notification) {
            printer->print(notification);
        });
    // Every type, each with its value as the cbkId. The client detaches
    // again when dvrctl ends, unless the service died.
    if (client.listen(callback, {dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_OBJ_ERROR,
                                 dvrspace::DVR_CBK_OBJ_ABNORMAL, dvrspace::DVR_CBK_OBJ_STAMP,
                                 dvrspace::DVR_CBK_OBJ_FILENAME}) != dvrspace::DVR_SUCCESS) {
        Report::printError(stdout, report.json(), "watch", "failed", client.error(), 1);
        return 1;
    }
    // Watching lasts as long as --count and --seconds say, not --timeout.
    CallDeadline::disarm();
    fprintf(stderr, "dvrctl: watching as client %d\n", client.pid());
    if (waitForTheEnd(client.service(), *printer, seconds) == Ending::kServiceDied) {
        Report::printError(stdout, report.json(), "watch", "unreachable", "the service died", 3);
        return 3;
    }
    return 0;
}

}  // namespace

Command watchCommand() {
    Command command{
        "watch", "[--count N] [--seconds S] [--stamp TEXT] [--file-name NAME]",
        "Subscribes to every notification and prints each on one line as it arrives.",
        "Plain lines read \"TYPE enc=ENC_ID CMD FILE|VALUE\", for example\n"
        "\"record enc=3 start /rec/a.ts\" or \"error enc=3 severe 4\"; --json prints one\n"
        "object a line: {\"command\": \"watch\", \"type\", \"event\", \"encId\", \"cbkId\"} and\n"
        "\"file\" (record), \"errorCode\" (error) or \"value\" (abnormal).\n"
        "Ends after N notifications, after S seconds, on SIGINT or SIGTERM (exit 0), or\n"
        "when the service dies (exit 3), and detaches before it exits.\n"
        "--stamp answers the service's user-stamp queries with TEXT, --file-name its\n"
        "file-name queries with NAME. Both are strftime formats of the local time at\n"
        "the query (\"%H:%M:%S\"); in NAME, %i is the number of names answered so far,\n"
        "starting at 1. Without them the service's buffers stay untouched.\n",
        [](CommandLine &args) -> Call {
            const int count = args.integerOption("count", 1, INT_MAX).value_or(0);
            const int seconds = args.integerOption("seconds", 1, INT_MAX).value_or(0);
            WatchingCallback::Answers answers;
            answers.stamp = args.option("stamp");
            answers.fileName = args.option("file-name");
            args.finish();
            return [=](dvrspace::DVRClient &client, Report &report) {
                return watch(client, report, answers, count, seconds);
            };
        }};
    command.waitsForSignals = true;
    return command;
}

}  // namespace dvrctl
