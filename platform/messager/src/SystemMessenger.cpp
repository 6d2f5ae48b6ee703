#include "SystemMessenger.h"

#define LOG_TAG "SvcMsgr"
#include <log/log.h>

#include <poll.h>

#include <cerrno>
#include <chrono>

#include "BoundSocket.h"

namespace system_extension {

std::unique_ptr<SystemMessenger> SystemMessenger::open(const MessageSocketDir &dir,
                                                       std::string *error) {
    if (!dir.create(error)) {
        return nullptr;
    }
    std::unique_ptr<BoundSocket> socket = BoundSocket::bind(dir.systemSocket(), error);
    if (socket == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<SystemMessenger>(new SystemMessenger(dir, std::move(socket)));
}

SystemMessenger::SystemMessenger(MessageSocketDir dir, std::unique_ptr<BoundSocket> socket)
    : mDir(std::move(dir)), mSocket(std::move(socket)) {}

SystemMessenger::~SystemMessenger() = default;

int SystemMessenger::send(const std::string &service, const ServiceMessage &message) {
    if (!MessageSocketDir::isValidName(service) || !message.isValid()) {
        return -EINVAL;
    }
    return MessageSocketDir::sendTo(mSocket->fd(), mDir.serviceSocket(service), message.encode());
}

bool SystemMessenger::receive(ServiceMessage *message, int timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string datagram;
    for (;;) {
        while (mSocket->receive(&datagram)) {
            if (ServiceMessage::decode(datagram.data(), datagram.size(), message)) {
                return true;
            }
            ALOGW("dropped a malformed message of %zu bytes", datagram.size());
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        struct pollfd ready = {mSocket->fd(), POLLIN, 0};
        poll(&ready, 1, static_cast<int>(left.count()));
    }
}

}  // namespace system_extension
