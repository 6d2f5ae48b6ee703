// One dvrctl subcommand: its usage text and how it turns its arguments into a
// call on the service. prepare() reads the whole command line (throwing
// UsageError) before dvrctl connects, so a usage error never reaches the
// service; the Call it returns runs once, on the main thread, and returns the
// exit status after filling the report.
#ifndef DVRCTL_COMMAND_H
#define DVRCTL_COMMAND_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DVRClient.h"
#include "IDVR.h"
#include "Report.h"

namespace dvrctl {

// A call with the process's connection to the service (watch listens
// through it).
using Call = std::function<int(dvrspace::DVRClient &client, Report &report)>;
// A call that needs the service object only.
using ServiceCall = std::function<int(const android::sp<dvrspace::IDVR> &service, Report &report)>;

Call onService(ServiceCall call);

struct Command {
    std::string name;
    std::string synopsis;  // the arguments after the name
    std::string summary;   // one line
    std::string details;   // more lines for "dvrctl NAME --help", may be empty
    std::function<Call(CommandLine &)> prepare;
    // SIGINT and SIGTERM are blocked in every thread before dvrctl connects,
    // for a call that waits for them with sigtimedwait().
    bool waitsForSignals = false;

    // The usage of this command alone.
    std::string help() const;
    // The same as JSON: {"command", "usage", "summary", "details"}.
    nlohmann::json helpJson() const;
};

// Every IDVR operation, in interface order.
const std::vector<Command> &operationCommands();
// The commands made of several operations.
Command watchCommand();
Command statusCommand();
Command snapshotCommand();

}  // namespace dvrctl

#endif  // DVRCTL_COMMAND_H
