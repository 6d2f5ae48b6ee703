#include "CommandResult.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace dvrtest {

CommandResult runCommand(const std::string &command) {
    CommandResult result{-1, "", ""};
    char errPath[] = "/tmp/dvr-test-stderr-XXXXXX";
    const int errFd = mkstemp(errPath);
    if (errFd < 0) {
        ADD_FAILURE() << "cannot create a file for the standard error of " << command;
        return result;
    }
    close(errFd);
    FILE *pipe = popen((command + " 2>" + errPath).c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        unlink(errPath);
        return result;
    }
    std::array<char, 4096> chunk{};
    while (fgets(chunk.data(), chunk.size(), pipe) != nullptr) {
        result.out += chunk.data();
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::stringstream err;
    err << std::ifstream(errPath).rdbuf();
    result.err = err.str();
    unlink(errPath);
    return result;
}

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace dvrtest
