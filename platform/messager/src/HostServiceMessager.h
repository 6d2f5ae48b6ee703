// The PC's message channel: one datagram socket per registered name in the
// runtime directory, read by one delivery thread that calls the receivers.
#ifndef SYSTEM_EXTENSION_HOST_SERVICE_MESSAGER_H
#define SYSTEM_EXTENSION_HOST_SERVICE_MESSAGER_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "BoundSocket.h"
#include "MessageSocketDir.h"
#include "ServiceMessager.h"

namespace system_extension {

class HostServiceMessager : public ServiceMessager {
public:
    // Uses the directory named by DVR_MSG_DIR, creating it when missing; null
    // (logged) when that or the delivery thread fails.
    static HostServiceMessager *create();

    int registerReceiver(const std::string &name, ServiceMessageReceiver *receiver) override;
    int sendMessage(const std::string &name, const std::string &message,
                    const std::string &value) override;
    // Ends delivery and frees the messager. Elsewhere it returns once no
    // receiver runs; on the delivery thread (a receiver destroying its own
    // channel) nothing more is delivered and the thread frees the messager
    // when the receiver returns.
    void destroy();

protected:
    ~HostServiceMessager() override;

private:
    struct Registration {
        std::unique_ptr<BoundSocket> socket;
        ServiceMessageReceiver *receiver;
    };

    HostServiceMessager(MessageSocketDir dir, int wakeFd, int sendFd);
    void run();
    // Delivers every datagram waiting on the socket of name; false once
    // delivery must end.
    bool deliverWaiting(const std::string &name, BoundSocket *socket);
    bool stopping();
    void wake();

    const MessageSocketDir mDir;
    const int mWakeFd;
    const int mSendFd;
    std::thread mThread;

    // Guards everything below. Sockets are only added while the thread runs,
    // so it may use a socket it has seen without the lock.
    std::mutex mLock;
    std::map<std::string, Registration> mRegistrations;
    std::thread::id mThreadId;
    bool mStopping = false;
    bool mFreeOnExit = false;
};

}  // namespace system_extension

#endif  // SYSTEM_EXTENSION_HOST_SERVICE_MESSAGER_H
