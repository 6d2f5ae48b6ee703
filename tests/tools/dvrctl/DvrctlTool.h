// Runs the built dvrctl against the test service of ServiceProcess (whose
// binder directory the test process's environment names).
#ifndef DVR_TEST_DVRCTL_TOOL_H
#define DVR_TEST_DVRCTL_TOOL_H

#include <string>
#include <vector>

#include "CommandResult.h"

namespace dvrtest {

// The shell command: dvrctl --service <test service> <arguments>.
std::string dvrctlCommand(const std::string &arguments);
CommandResult runDvrctl(const std::string &arguments);
// text split at line feeds, without them.
std::vector<std::string> lines(const std::string &text);
// Whether dvrctl --help's output has a line for command.
bool listsCommand(const std::string &help, const std::string &command);

}  // namespace dvrtest

#endif  // DVR_TEST_DVRCTL_TOOL_H
