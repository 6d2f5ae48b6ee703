#include "SmallFilesystem.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>

namespace dvrtest {

SmallFilesystem::SmallFilesystem(const std::string &directory, int megabytes,
                                 const std::string &options)
    : mPath(directory) {
    mkdir(directory.c_str(), 0755);
    const std::string data = "size=" + std::to_string(megabytes) + "m,mode=0755";
    unsigned long flags = MS_NOSUID | MS_NODEV;
    if (options == "ro") {
        flags |= MS_RDONLY;
    }
    if (mount("tmpfs", directory.c_str(), "tmpfs", flags, data.c_str()) == 0) {
        mMounted = true;
    } else {
        mWhy = "cannot mount a " + std::to_string(megabytes) + " MB tmpfs at " + directory + ": " +
               std::strerror(errno) + " (the test needs CAP_SYS_ADMIN)";
    }
}

SmallFilesystem::~SmallFilesystem() {
    if (mMounted) {
        // Lazily: a process of the test may still hold a file open there.
        umount2(mPath.c_str(), MNT_DETACH);
    }
}

long long SmallFilesystem::freeBytes() const {
    struct statvfs space {};
    if (statvfs(mPath.c_str(), &space) != 0) {
        return -1;
    }
    return static_cast<long long>(space.f_bavail) * static_cast<long long>(space.f_frsize);
}

}  // namespace dvrtest
