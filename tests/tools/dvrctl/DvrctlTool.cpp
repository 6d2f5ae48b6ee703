#include "DvrctlTool.h"

#include "ServiceProcess.h"

namespace dvrtest {

std::string dvrctlCommand(const std::string &arguments) {
    return std::string(DVRCTL_TOOL) + " --service " + ServiceProcess::kServiceName + " " +
           arguments;
}

CommandResult runDvrctl(const std::string &arguments) {
    return runCommand(dvrctlCommand(arguments));
}

std::vector<std::string> lines(const std::string &text) {
    std::vector<std::string> result;
    size_t start = 0;
    size_t end = 0;
    while ((end = text.find('\n', start)) != std::string::npos) {
        result.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    if (start < text.size()) {
        result.push_back(text.substr(start));
    }
    return result;
}

bool listsCommand(const std::string &help, const std::string &command) {
    for (const std::string &line : lines(help)) {
        if (line == "  " + command || line.rfind("  " + command + " ", 0) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace dvrtest
