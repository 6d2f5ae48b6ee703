// Runs a shell command and collects what it printed, for tests of the
// project's command-line tools.
#ifndef DVR_TEST_COMMAND_RESULT_H
#define DVR_TEST_COMMAND_RESULT_H

#include <string>
#include <vector>

namespace dvrtest {

struct CommandResult {
    int status;       // exit status, -1 when it did not exit normally
    std::string out;  // standard output
    std::string err;  // standard error
};

// Runs command through /bin/sh and waits for it.
CommandResult runCommand(const std::string &command);

// The lines of text (what a command or a server printed), without their line
// feeds.
std::vector<std::string> linesOf(const std::string &text);

}  // namespace dvrtest

#endif  // DVR_TEST_COMMAND_RESULT_H
