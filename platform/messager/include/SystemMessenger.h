// The system's end of the message channel on a PC, as the power manager holds
// it on the device: sends (name, message, value) to a registered service, such
// as ("dvr_server", "hibernationstate", "suspendbegin"), and collects what the
// services send back. One per runtime directory at a time. Not part of the
// device's interface. One thread at a time.
#ifndef SYSTEM_EXTENSION_SYSTEM_MESSENGER_H
#define SYSTEM_EXTENSION_SYSTEM_MESSENGER_H

#include <memory>
#include <string>

#include "MessageSocketDir.h"
#include "ServiceMessage.h"

namespace system_extension {

class BoundSocket;

class SystemMessenger {
public:
    // Takes the system socket in dir (creating dir when missing). Null with
    // *error set when another system side holds it or the socket fails.
    static std::unique_ptr<SystemMessenger> open(const MessageSocketDir &dir, std::string *error);
    ~SystemMessenger();
    SystemMessenger(const SystemMessenger &) = delete;
    SystemMessenger &operator=(const SystemMessenger &) = delete;

    // Sends message to the socket of the service registered as service: 0, or
    // -errno (-ENOENT or -ECONNREFUSED when no such service listens, -EINVAL
    // for a malformed message or service name).
    int send(const std::string &service, const ServiceMessage &message);
    // Waits up to timeoutMs for the next message a service sent; false when
    // none came. Malformed datagrams are skipped.
    bool receive(ServiceMessage *message, int timeoutMs);

private:
    SystemMessenger(MessageSocketDir dir, std::unique_ptr<BoundSocket> socket);

    const MessageSocketDir mDir;
    const std::unique_ptr<BoundSocket> mSocket;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_SYSTEM_MESSENGER_H
