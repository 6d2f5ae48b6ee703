// Where published services' sockets live: $DVR_BINDER_DIR, or by default
// /run/dvr-binder for root, $XDG_RUNTIME_DIR/dvr-binder or
// /tmp/dvr-binder-<uid> for other users. Read on every use, so a process
// may change the variable before it publishes or looks up a service.
#ifndef DVR_BINDER_SERVICE_DIRECTORY_H
#define DVR_BINDER_SERVICE_DIRECTORY_H

#include <utils/Errors.h>
#include <utils/String16.h>

#include <string>

namespace android {
namespace binder_internal {

class ServiceDirectory {
public:
    static std::string path();
    // The socket path of service `name`; BAD_VALUE for a name that is empty,
    // ".", "..", holds '/' or does not fit a socket address.
    static status_t socketPath(const String16 &name, std::string *out);
    // Creates the directory (mode 0755) when missing. PERMISSION_DENIED when
    // it is not a directory, or others than its owner, this user or root
    // could replace sockets in it.
    static status_t prepare(const std::string &directory);
};

}  // namespace binder_internal
}  // namespace android

#endif  // DVR_BINDER_SERVICE_DIRECTORY_H
