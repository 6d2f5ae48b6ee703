#include "BoundSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace system_extension {

namespace {

// Larger than any valid message, so an oversized one arrives truncated and
// is then rejected as malformed.
constexpr size_t kDatagramMax = 2048;

bool addressOf(const std::string &path, struct sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->sun_path)) {
        return false;
    }
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// True when a socket file at address has no live socket behind it.
bool isStale(const struct sockaddr_un &address) {
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return false;
    }
    const bool refused =
        connect(probe, reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) != 0 &&
        errno == ECONNREFUSED;
    close(probe);
    return refused;
}

}  // namespace

std::unique_ptr<BoundSocket> BoundSocket::bind(const std::string &path, std::string *error) {
    struct sockaddr_un address {};
    if (!addressOf(path, &address)) {
        *error = "socket path too long: " + path;
        return nullptr;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("socket failed: ") + strerror(errno);
        return nullptr;
    }
    const auto *generic = reinterpret_cast<const struct sockaddr *>(&address);
    int bound = ::bind(fd, generic, sizeof(address));
    if (bound != 0 && errno == EADDRINUSE) {
        struct stat info {};
        if (lstat(path.c_str(), &info) == 0 && !S_ISSOCK(info.st_mode)) {
            *error = path + " exists and is not a socket";
        } else if (!isStale(address)) {
            *error = path + " is in use by a running process";
        } else {
            unlink(path.c_str());
            bound = ::bind(fd, generic, sizeof(address));
        }
    }
    if (bound != 0) {
        if (error->empty()) {
            *error = "cannot bind " + path + ": " + strerror(errno);
        }
        close(fd);
        return nullptr;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        *error = "cannot stat " + path + ": " + strerror(errno);
        close(fd);
        return nullptr;
    }
    return std::unique_ptr<BoundSocket>(new BoundSocket(fd, path, info.st_dev, info.st_ino));
}

BoundSocket::BoundSocket(int fd, std::string path, dev_t device, ino_t inode)
    : mFd(fd), mPath(std::move(path)), mDevice(device), mInode(inode) {}

BoundSocket::~BoundSocket() {
    struct stat info {};
    if (stat(mPath.c_str(), &info) == 0 && info.st_dev == mDevice && info.st_ino == mInode) {
        unlink(mPath.c_str());
    }
    close(mFd);
}

bool BoundSocket::receive(std::string *datagram) {
    char buffer[kDatagramMax];
    const ssize_t length = recv(mFd, buffer, sizeof(buffer), 0);
    if (length < 0) {
        return false;
    }
    datagram->assign(buffer, static_cast<size_t>(length));
    return true;
}

}  // namespace system_extension
