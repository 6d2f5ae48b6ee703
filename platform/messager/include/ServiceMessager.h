// System message channel: services exchange (name, message, value) triples,
// e.g. ("dvr_server", "hibernationstate", "suspendbegin"). Receivers are called
// on the channel's own delivery thread.
#ifndef SYSTEM_EXTENSION_SERVICE_MESSAGER_H
#define SYSTEM_EXTENSION_SERVICE_MESSAGER_H

#include <string>

namespace system_extension {

class ServiceMessageReceiver {
public:
    virtual ~ServiceMessageReceiver() = default;
    // Delivery thread only.
    virtual void onMessageReceived(const std::string &name, const std::string &message,
                                   const std::string &value) = 0;
};

class ServiceMessager {
public:
    // Null when the channel cannot be opened.
    static ServiceMessager *create();
    static void destroy(ServiceMessager *messager);

    // Delivers every message addressed to name to receiver (not owned; it must
    // outlive the messager or be unregistered by destroy).
    virtual int registerReceiver(const std::string &name, ServiceMessageReceiver *receiver) = 0;
    // Sends a message to the system side; 0 on success.
    virtual int sendMessage(const std::string &name, const std::string &message,
                            const std::string &value) = 0;

protected:
    virtual ~ServiceMessager() = default;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_SERVICE_MESSAGER_H
