// A datagram socket bound to a path in the runtime directory. The path is
// removed again when the socket goes, unless another socket has replaced it.
#ifndef SYSTEM_EXTENSION_BOUND_SOCKET_H
#define SYSTEM_EXTENSION_BOUND_SOCKET_H

#include <sys/types.h>

#include <memory>
#include <string>

namespace system_extension {

class BoundSocket {
public:
    // Binds a non-blocking socket at path. A socket file left by a process
    // that died is replaced; one in use by a live process is an error, as is
    // any other file at path. Null with *error set on failure.
    static std::unique_ptr<BoundSocket> bind(const std::string &path, std::string *error);
    ~BoundSocket();
    BoundSocket(const BoundSocket &) = delete;
    BoundSocket &operator=(const BoundSocket &) = delete;

    int fd() const { return mFd; }
    const std::string &path() const { return mPath; }
    // Takes the next waiting datagram; false when none waits.
    bool receive(std::string *datagram);

private:
    BoundSocket(int fd, std::string path, dev_t device, ino_t inode);

    const int mFd;
    const std::string mPath;
    // Identity of the socket file, to leave a successor's file alone.
    const dev_t mDevice;
    const ino_t mInode;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_BOUND_SOCKET_H
