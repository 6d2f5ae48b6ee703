// A request that a guard rail refuses before it is sent: its reason says
// what the service would do and what to do instead. dvrctl answers it with
// exit status 2, like a usage error, and --force sends the request anyway.
#ifndef DVRCTL_REFUSED_H
#define DVRCTL_REFUSED_H

#include <optional>
#include <stdexcept>
#include <string>

namespace dvrctl {

class Refused : public std::runtime_error {
public:
    explicit Refused(const std::string &reason) : std::runtime_error(reason) {}
};

// Throws Refused with the reason, unless there is none or the user forced it.
inline void refuseUnlessForced(const std::optional<std::string> &reason, bool forced) {
    if (reason && !forced) {
        throw Refused(*reason);
    }
}

}  // namespace dvrctl

#endif  // DVRCTL_REFUSED_H
