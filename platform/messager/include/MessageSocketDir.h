// Where the message channel's sockets live on a PC: the runtime directory
// named by DVR_MSG_DIR (default "/tmp/dvr_msg"). Every name registered with a
// ServiceMessager has the datagram socket "svc-<name>" there; the system side
// listens on "system". Not part of the device's interface.
#ifndef SYSTEM_EXTENSION_MESSAGE_SOCKET_DIR_H
#define SYSTEM_EXTENSION_MESSAGE_SOCKET_DIR_H

#include <string>

namespace system_extension {

class MessageSocketDir {
public:
    static constexpr const char *kDefaultPath = "/tmp/dvr_msg";
    static constexpr const char *kPathVariable = "DVR_MSG_DIR";
    static constexpr const char *kSystemSocket = "system";
    static constexpr const char *kServicePrefix = "svc-";

    // The directory named by DVR_MSG_DIR, or kDefaultPath.
    static MessageSocketDir fromEnvironment();
    explicit MessageSocketDir(std::string path);

    const std::string &path() const { return mPath; }
    // A name may be registered when it is 1 to 64 bytes of letters, digits,
    // '_', '-' and '.', so its socket path is a plain file name.
    static bool isValidName(const std::string &name);
    std::string serviceSocket(const std::string &name) const;
    std::string systemSocket() const;
    // Creates the directory and its parents when missing.
    bool create(std::string *error) const;

    // Sends one datagram to the socket at path from fd without blocking:
    // 0, or -errno (-ENOENT or -ECONNREFUSED when nobody listens there,
    // -EAGAIN when the listener's queue is full).
    static int sendTo(int fd, const std::string &path, const std::string &datagram);

private:
    std::string mPath;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_MESSAGE_SOCKET_DIR_H
