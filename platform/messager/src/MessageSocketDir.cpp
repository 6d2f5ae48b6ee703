#include "MessageSocketDir.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace system_extension {

namespace {

constexpr size_t kNameMax = 64;

}  // namespace

MessageSocketDir MessageSocketDir::fromEnvironment() {
    const char *path = getenv(kPathVariable);
    return MessageSocketDir(path != nullptr && path[0] != '\0' ? path : kDefaultPath);
}

MessageSocketDir::MessageSocketDir(std::string path) : mPath(std::move(path)) {}

bool MessageSocketDir::isValidName(const std::string &name) {
    if (name.empty() || name.size() > kNameMax) {
        return false;
    }
    for (char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        if (!plain) {
            return false;
        }
    }
    return name != "." && name != "..";
}

std::string MessageSocketDir::serviceSocket(const std::string &name) const {
    return mPath + "/" + kServicePrefix + name;
}

std::string MessageSocketDir::systemSocket() const {
    return mPath + "/" + kSystemSocket;
}

bool MessageSocketDir::create(std::string *error) const {
    std::error_code failed;
    std::filesystem::create_directories(mPath, failed);
    if (!failed && !std::filesystem::is_directory(mPath, failed)) {
        failed = std::make_error_code(std::errc::not_a_directory);
    }
    if (failed) {
        *error = "cannot use " + mPath + ": " + failed.message();
        return false;
    }
    return true;
}

int MessageSocketDir::sendTo(int fd, const std::string &path, const std::string &datagram) {
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return -ENAMETOOLONG;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const ssize_t sent =
        sendto(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<const struct sockaddr *>(&address), sizeof(address));
    if (sent < 0) {
        return -errno;
    }
    return sent == static_cast<ssize_t>(datagram.size()) ? 0 : -EMSGSIZE;
}

}  // namespace system_extension
