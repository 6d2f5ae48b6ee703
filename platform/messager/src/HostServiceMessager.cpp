#include "HostServiceMessager.h"

#define LOG_TAG "SvcMsgr"
#include <log/log.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "ServiceMessage.h"

namespace system_extension {

HostServiceMessager *HostServiceMessager::create() {
    MessageSocketDir dir = MessageSocketDir::fromEnvironment();
    std::string error;
    if (!dir.create(&error)) {
        ALOGE("%s", error.c_str());
        return nullptr;
    }
    const int wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    const int sendFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (wakeFd < 0 || sendFd < 0) {
        ALOGE("cannot open the channel: %s", strerror(errno));
        if (wakeFd >= 0) {
            close(wakeFd);
        }
        if (sendFd >= 0) {
            close(sendFd);
        }
        return nullptr;
    }
    auto *messager = new HostServiceMessager(std::move(dir), wakeFd, sendFd);
    try {
        messager->mThread = std::thread(&HostServiceMessager::run, messager);
    } catch (const std::system_error &failure) {
        ALOGE("cannot start the delivery thread: %s", failure.what());
        delete messager;
        return nullptr;
    }
    return messager;
}

HostServiceMessager::HostServiceMessager(MessageSocketDir dir, int wakeFd, int sendFd)
    : mDir(std::move(dir)), mWakeFd(wakeFd), mSendFd(sendFd) {}

HostServiceMessager::~HostServiceMessager() {
    close(mWakeFd);
    close(mSendFd);
}

int HostServiceMessager::registerReceiver(const std::string &name,
                                          ServiceMessageReceiver *receiver) {
    if (receiver == nullptr || !MessageSocketDir::isValidName(name)) {
        ALOGE(
            "registerReceiver(%s): needs a receiver and a name of 1 to 64 letters, digits, "
            "'_', '-' or '.'",
            name.c_str());
        return -1;
    }
    std::lock_guard<std::mutex> lock(mLock);
    auto known = mRegistrations.find(name);
    if (known != mRegistrations.end()) {
        known->second.receiver = receiver;
        return 0;
    }
    std::string error;
    std::unique_ptr<BoundSocket> socket = BoundSocket::bind(mDir.serviceSocket(name), &error);
    if (socket == nullptr) {
        ALOGE("registerReceiver(%s): %s", name.c_str(), error.c_str());
        return -1;
    }
    mRegistrations.emplace(name, Registration{std::move(socket), receiver});
    // The thread polls a fixed set of sockets; make it pick up the new one.
    wake();
    return 0;
}

int HostServiceMessager::sendMessage(const std::string &name, const std::string &message,
                                     const std::string &value) {
    const ServiceMessage outgoing{name, message, value};
    if (!outgoing.isValid()) {
        ALOGE("sendMessage: malformed message (%s, %s, %s)", name.c_str(), message.c_str(),
              value.c_str());
        return -EINVAL;
    }
    const int result = MessageSocketDir::sendTo(mSendFd, mDir.systemSocket(), outgoing.encode());
    if (result != 0) {
        ALOGE("sendMessage(%s, %s, %s) to %s: %s", name.c_str(), message.c_str(), value.c_str(),
              mDir.systemSocket().c_str(), strerror(-result));
    }
    return result;
}

void HostServiceMessager::destroy() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        if (std::this_thread::get_id() == mThreadId) {
            mFreeOnExit = true;
            return;
        }
    }
    wake();
    mThread.join();
    delete this;
}

void HostServiceMessager::run() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mThreadId = std::this_thread::get_id();
    }
    std::vector<std::string> names;
    std::vector<struct pollfd> fds;
    std::vector<BoundSocket *> sockets;
    while (!stopping()) {
        names.clear();
        fds.assign(1, {mWakeFd, POLLIN, 0});
        sockets.clear();
        {
            std::lock_guard<std::mutex> lock(mLock);
            for (const auto &registration : mRegistrations) {
                names.push_back(registration.first);
                sockets.push_back(registration.second.socket.get());
                fds.push_back({registration.second.socket->fd(), POLLIN, 0});
            }
        }
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) {
            ALOGE("poll failed: %s", strerror(errno));
            break;
        }
        uint64_t drained = 0;
        while (read(mWakeFd, &drained, sizeof(drained)) > 0) {
        }
        bool going = true;
        for (size_t i = 0; going && i < sockets.size(); ++i) {
            if (fds[i + 1].revents & POLLIN) {
                going = deliverWaiting(names[i], sockets[i]);
            }
        }
    }
    bool freeOnExit = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        freeOnExit = mFreeOnExit;
        // Close the sockets now: nothing more is delivered, and senders learn
        // at once that nobody listens.
        mRegistrations.clear();
    }
    if (freeOnExit) {
        mThread.detach();
        delete this;
    }
}

bool HostServiceMessager::deliverWaiting(const std::string &name, BoundSocket *socket) {
    std::string datagram;
    while (socket->receive(&datagram)) {
        ServiceMessage incoming;
        if (!ServiceMessage::decode(datagram.data(), datagram.size(), &incoming)) {
            ALOGW("dropped a malformed message of %zu bytes for %s", datagram.size(), name.c_str());
            continue;
        }
        ServiceMessageReceiver *receiver = nullptr;
        {
            std::lock_guard<std::mutex> lock(mLock);
            if (mStopping) {
                return false;
            }
            receiver = mRegistrations.at(name).receiver;
        }
        receiver->onMessageReceived(incoming.name, incoming.message, incoming.value);
    }
    return !stopping();
}

bool HostServiceMessager::stopping() {
    std::lock_guard<std::mutex> lock(mLock);
    return mStopping;
}

void HostServiceMessager::wake() {
    const uint64_t one = 1;
    if (write(mWakeFd, &one, sizeof(one)) != sizeof(one)) {
        // Only a full counter fails, and a full counter wakes the thread too.
        ALOGW("eventfd write failed: %s", strerror(errno));
    }
}

}  // namespace system_extension
