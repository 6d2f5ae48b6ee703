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
    // Null when the channel cannot be opened. On a PC the channel lives in the
    // directory named by DVR_MSG_DIR (default "/tmp/dvr_msg").
    static ServiceMessager *create();
    // Ends delivery and frees the messager; null is ignored. From another
    // thread it returns once no receiver runs. From a receiver it returns at
    // once, nothing more is delivered, and the messager is freed when that
    // receiver returns.
    static void destroy(ServiceMessager *messager);

    // Delivers every message addressed to name to receiver (not owned; it must
    // outlive the messager or be unregistered by destroy); 0 on success, -1
    // for a bad name, a null receiver or a name another process holds.
    // Registering a name again replaces its receiver. Any thread.
    virtual int registerReceiver(const std::string &name, ServiceMessageReceiver *receiver) = 0;
    // Sends a message to the system side without blocking; 0 on success,
    // -errno when nobody listens or the message cannot be sent. Any thread.
    virtual int sendMessage(const std::string &name, const std::string &message,
                            const std::string &value) = 0;

protected:
    virtual ~ServiceMessager() = default;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_SERVICE_MESSAGER_H
