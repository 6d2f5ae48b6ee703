#define LOG_TAG "DVRBinder"

#include "ServiceDirectory.h"

#include <log/log.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utils/String8.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace android {
namespace binder_internal {

std::string ServiceDirectory::path() {
    const char *configured = getenv("DVR_BINDER_DIR");
    if (configured != nullptr && configured[0] != '\0') {
        return configured;
    }
    if (getuid() == 0) {
        return "/run/dvr-binder";
    }
    const char *runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] != '\0') {
        return std::string(runtime) + "/dvr-binder";
    }
    return "/tmp/dvr-binder-" + std::to_string(getuid());
}

status_t ServiceDirectory::socketPath(const String16 &name, std::string *out) {
    const std::string plain(String8(name).string());
    if (plain.empty() || plain == "." || plain == ".." || plain.find('/') != std::string::npos ||
        plain.size() != strlen(plain.c_str())) {
        return BAD_VALUE;
    }
    std::string full = path() + "/" + plain;
    if (full.size() >= sizeof(sockaddr_un{}.sun_path)) {
        return BAD_VALUE;
    }
    *out = std::move(full);
    return OK;
}

status_t ServiceDirectory::prepare(const std::string &directory) {
    if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
        const int error = errno;
        ALOGE("Cannot create %s: %s", directory.c_str(), strerror(error));
        return -error;
    }
    struct stat status {};
    if (lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        (status.st_uid != getuid() && status.st_uid != 0) || (status.st_mode & S_IWOTH) != 0) {
        ALOGE("Refusing %s: not a directory owned by this user or root, or writable by others",
              directory.c_str());
        return PERMISSION_DENIED;
    }
    return OK;
}

}  // namespace binder_internal
}  // namespace android
