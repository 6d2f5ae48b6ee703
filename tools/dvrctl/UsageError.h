// A command line dvrctl cannot run: the message names what is wrong, and
// dvrctl answers it with exit status 2 and a hint to --help.
#ifndef DVRCTL_USAGE_ERROR_H
#define DVRCTL_USAGE_ERROR_H

#include <stdexcept>
#include <string>

namespace dvrctl {

class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string &message) : std::runtime_error(message) {}
};

}  // namespace dvrctl

#endif  // DVRCTL_USAGE_ERROR_H
