// A service of this process receives hostile messages on raw sockets; it
// closes or refuses only the offending connection or call and keeps serving
// other clients (a peer process).
#include "BinderTestDirectory.h"
#include "LogCapture.h"
#include "PeerProcess.h"
#include "TestService.h"
#include "WireHeader.h"

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>

namespace dvrtest {
namespace {

using android::defaultServiceManager;
using android::OK;
using android::Parcel;
using android::String16;
using android::binder_internal::WireHeader;

constexpr int kWaitMs = 20000;

// A client that speaks the wire format by hand.
class RawClient {
public:
    explicit RawClient(const std::string &path) {
        mFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        mConnected = connect(mFd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
        const int buffer = 1024 * 1024;
        setsockopt(mFd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof(buffer));
    }
    ~RawClient() { close(mFd); }

    bool connected() const { return mConnected; }

    bool send(const std::vector<uint8_t> &message, int flags = 0) {
        return ::send(mFd, message.data(), message.size(), MSG_NOSIGNAL | flags) ==
               static_cast<ssize_t>(message.size());
    }

    // The next message, empty when the service closed the connection or
    // nothing came within `timeoutMs`.
    std::vector<uint8_t> receive(int timeoutMs = kWaitMs) {
        pollfd readable{mFd, POLLIN, 0};
        if (poll(&readable, 1, timeoutMs) <= 0) {
            return {};
        }
        std::vector<uint8_t> message(WireHeader::kMaxMessageSize);
        const ssize_t got = recv(mFd, message.data(), message.size(), 0);
        message.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return message;
    }

    bool closedByService(int timeoutMs = kWaitMs) {
        pollfd readable{mFd, POLLIN, 0};
        if (poll(&readable, 1, timeoutMs) <= 0) {
            return false;
        }
        char byte;
        return recv(mFd, &byte, 1, MSG_DONTWAIT) == 0;
    }

private:
    int mFd = -1;
    bool mConnected = false;
};

WireHeader transactionHeader(uint64_t target, uint32_t code) {
    WireHeader header{};
    header.magic = WireHeader::kMagic;
    header.kind = WireHeader::kTransaction;
    header.id = 1;
    header.target = target;
    header.code = code;
    return header;
}

// Header, the parcel's bytes, then the object offsets.
std::vector<uint8_t> message(WireHeader header, const Parcel &data,
                             const std::vector<uint32_t> &offsets = {}) {
    header.dataSize = static_cast<uint32_t>(data.dataSize());
    header.objectCount = static_cast<uint32_t>(offsets.size());
    std::vector<uint8_t> bytes(sizeof(header) + data.dataSize() + offsets.size() * 4);
    std::memcpy(bytes.data(), &header, sizeof(header));
    if (data.dataSize() != 0) {
        std::memcpy(bytes.data() + sizeof(header), data.data(), data.dataSize());
    }
    if (!offsets.empty()) {
        std::memcpy(bytes.data() + sizeof(header) + data.dataSize(), offsets.data(),
                    offsets.size() * 4);
    }
    return bytes;
}

std::vector<uint8_t> addCall(uint64_t target) {
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    data.writeInt32(2);
    data.writeInt32(3);
    return message(transactionHeader(target, ITestService::ADD), data);
}

// Status of a reply message, and its data after the header.
android::status_t replyStatus(const std::vector<uint8_t> &reply) {
    WireHeader header{};
    if (reply.size() < sizeof(header)) {
        return android::UNKNOWN_ERROR;
    }
    std::memcpy(&header, reply.data(), sizeof(header));
    return header.kind == WireHeader::kReply ? static_cast<android::status_t>(header.code)
                                             : android::UNKNOWN_ERROR;
}

int32_t replyInt(const std::vector<uint8_t> &reply) {
    int32_t value = 0;
    if (reply.size() >= sizeof(WireHeader) + sizeof(value)) {
        std::memcpy(&value, reply.data() + sizeof(WireHeader), sizeof(value));
    }
    return value;
}

class BinderHostileInput : public BinderTestDirectory {
protected:
    void SetUp() override {
        BinderTestDirectory::SetUp();
        ASSERT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()),
                  OK);
    }

    void expectClosedWith(const std::vector<uint8_t> &bytes, const std::string &problem) {
        RawClient client(socketPath(kServiceName));
        ASSERT_TRUE(client.connected());
        ASSERT_TRUE(client.send(bytes));
        EXPECT_TRUE(client.closedByService());
        EXPECT_TRUE(
            log.contains(ANDROID_LOG_ERROR, "DVRBinder",
                         "Closing connection to pid " + std::to_string(getpid()) + ": " + problem))
            << problem;
        expectOthersServed();
    }

    void expectOthersServed() {
        PeerProcess other("call", kServiceName);
        EXPECT_EQ(other.wait(), 0);
    }

    LogCapture log;
};

TEST_F(BinderHostileInput, WellFormedCallIsAnswered) {
    RawClient client(socketPath(kServiceName));
    ASSERT_TRUE(client.send(addCall(0)));
    const std::vector<uint8_t> reply = client.receive();
    EXPECT_EQ(replyStatus(reply), OK);
    EXPECT_EQ(replyInt(reply), 5);
}

TEST_F(BinderHostileInput, TruncatedHeaderClosesOnlyThatConnection) {
    const std::vector<uint8_t> whole = addCall(0);
    expectClosedWith(std::vector<uint8_t>(whole.begin(), whole.begin() + 10), "truncated header");
}

TEST_F(BinderHostileInput, TruncatedPayloadClosesTheConnection) {
    std::vector<uint8_t> cut = addCall(0);
    cut.resize(cut.size() - 4);
    expectClosedWith(cut, "size does not match header");
}

TEST_F(BinderHostileInput, OversizedMessageClosesTheConnection) {
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    std::vector<uint8_t> big(200 * 1024, 1);
    data.writeByteVector(big);
    expectClosedWith(message(transactionHeader(0, ITestService::ADD), data),
                     "message larger than 131072 bytes");
}

TEST_F(BinderHostileInput, BadMagicClosesTheConnection) {
    std::vector<uint8_t> bytes = addCall(0);
    bytes[0] ^= 0xff;
    expectClosedWith(bytes, "bad magic");
}

TEST_F(BinderHostileInput, UnknownMessageKindClosesTheConnection) {
    WireHeader header = transactionHeader(0, ITestService::ADD);
    header.kind = 9;
    expectClosedWith(message(header, Parcel()), "unknown message kind");
}

TEST_F(BinderHostileInput, ObjectOffsetOutsideTheDataClosesTheConnection) {
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    expectClosedWith(message(transactionHeader(0, ITestService::ECHO_BINDER), data, {4096}),
                     "bad object offset");
}

TEST_F(BinderHostileInput, UnknownObjectTypeClosesTheConnection) {
    Parcel data;
    const uint32_t record[4] = {7, 0, 0, 0};
    data.write(record, sizeof(record));
    expectClosedWith(message(transactionHeader(0, ITestService::ECHO_BINDER), data, {0}),
                     "bad object type");
}

TEST_F(BinderHostileInput, ReplyToNoPendingCallClosesTheConnection) {
    WireHeader header{};
    header.magic = WireHeader::kMagic;
    header.kind = WireHeader::kReply;
    header.id = 12345;
    expectClosedWith(message(header, Parcel()), "reply to no pending call");
}

TEST_F(BinderHostileInput, UnknownTargetHandleRefusesOnlyThatCall) {
    RawClient client(socketPath(kServiceName));
    ASSERT_TRUE(client.send(addCall(77)));
    EXPECT_EQ(replyStatus(client.receive()), android::BAD_VALUE);
    EXPECT_TRUE(log.contains(
        ANDROID_LOG_WARN, "DVRBinder",
        "Refused call 1 from pid " + std::to_string(getpid()) + ": unknown object handle 77"));
    ASSERT_TRUE(client.send(addCall(0)));
    const std::vector<uint8_t> reply = client.receive();
    EXPECT_EQ(replyStatus(reply), OK);
    EXPECT_EQ(replyInt(reply), 5);
}

TEST_F(BinderHostileInput, UnknownObjectHandleInArgumentsRefusesTheCall) {
    RawClient client(socketPath(kServiceName));
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    const size_t offset = data.dataPosition();
    const uint32_t record[4] = {WireHeader::kReceiverObject, 0, 99, 0};
    data.write(record, sizeof(record));
    ASSERT_TRUE(client.send(message(transactionHeader(0, ITestService::ECHO_BINDER), data,
                                    {static_cast<uint32_t>(offset)})));
    EXPECT_EQ(replyStatus(client.receive()), android::BAD_VALUE);
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, "DVRBinder",
                             "Refused call 8 from pid " + std::to_string(getpid()) +
                                 ": unknown object handle in arguments"));
    ASSERT_TRUE(client.send(addCall(0)));
    EXPECT_EQ(replyInt(client.receive()), 5);
}

TEST_F(BinderHostileInput, WrongInterfaceTokenRefusesTheCall) {
    RawClient client(socketPath(kServiceName));
    Parcel data;
    data.writeInterfaceToken(String16("dvrtest.IWrong"));
    data.writeInt32(2);
    data.writeInt32(3);
    ASSERT_TRUE(client.send(message(transactionHeader(0, ITestService::ADD), data)));
    EXPECT_EQ(replyStatus(client.receive()), android::PERMISSION_DENIED);
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, "DVRBinder",
                             "Refused call: interface token 'dvrtest.IWrong', expected "
                             "'dvrtest.ITestService'"));
    ASSERT_TRUE(client.send(addCall(0)));
    EXPECT_EQ(replyInt(client.receive()), 5);
}

TEST_F(BinderHostileInput, MissingArgumentsDoNotCrashTheService) {
    RawClient client(socketPath(kServiceName));
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    ASSERT_TRUE(client.send(message(transactionHeader(0, ITestService::REGISTER_CALLBACK), data)));
    EXPECT_EQ(replyStatus(client.receive()), android::NOT_ENOUGH_DATA);
    expectOthersServed();
}

TEST_F(BinderHostileInput, UnknownCodeIsRefused) {
    RawClient client(socketPath(kServiceName));
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    ASSERT_TRUE(client.send(message(transactionHeader(0, 0x00abcdef), data)));
    EXPECT_EQ(replyStatus(client.receive()), android::UNKNOWN_TRANSACTION);
}

TEST_F(BinderHostileInput, RandomMessagesNeverStopTheService) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 300; ++round) {
        RawClient client(socketPath(kServiceName));
        ASSERT_TRUE(client.connected());
        std::vector<uint8_t> bytes(random() % 256);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        // Half of them pass the first checks, to reach the deeper ones.
        if (round % 2 == 0 && bytes.size() >= sizeof(WireHeader)) {
            WireHeader header;
            std::memcpy(&header, bytes.data(), sizeof(header));
            header.magic = WireHeader::kMagic;
            header.kind = 1 + random() % 3;
            header.dataSize = static_cast<uint32_t>((bytes.size() - sizeof(header)) & ~size_t(3));
            header.objectCount = 0;
            header.target = random() % 2;
            bytes.resize(sizeof(header) + header.dataSize);
            std::memcpy(bytes.data(), &header, sizeof(header));
        }
        client.send(bytes);
    }
    expectOthersServed();
}

// Holds its first one-way call until released, so later ones queue up.
class SlowOneWayService : public android::BBinder {
public:
    void release() {
        std::lock_guard<std::mutex> lock(mLock);
        mReleased = true;
        mChanged.notify_all();
    }

protected:
    android::status_t onTransact(uint32_t, const Parcel &, Parcel *, uint32_t) override {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mReleased; });
        return OK;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mReleased = false;
};

TEST_F(BinderHostileInput, FloodOfOneWayCallsClosesTheConnection) {
    android::sp<SlowOneWayService> slow = new SlowOneWayService();
    ASSERT_EQ(defaultServiceManager()->addService(String16("slow.service"), slow), OK);
    RawClient client(socketPath("slow.service"));
    WireHeader header = transactionHeader(0, 1);
    header.id = 0;
    header.flags = android::IBinder::FLAG_ONEWAY;
    const std::vector<uint8_t> call = message(header, Parcel());
    // The first call runs (and waits); the limit's worth queue behind it.
    for (size_t i = 0; i < 1 + 1024 + 1; ++i) {
        if (!client.send(call)) {
            break;
        }
    }
    EXPECT_TRUE(client.closedByService());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, "DVRBinder",
                             "Closing connection to pid " + std::to_string(getpid()) +
                                 ": more than 1024 queued one-way calls"));
    slow->release();
    expectOthersServed();
}

TEST_F(BinderHostileInput, ClientThatStopsReadingIsDroppedWhileOthersAreServed) {
    RawClient client(socketPath(kServiceName));
    // Large replies fill the socket's buffer after a few calls.
    Parcel data;
    data.writeInterfaceToken(ITestService::descriptor);
    data.writeString16(String16("x"));
    data.writeString16(std::unique_ptr<String16>());
    data.writeCString("x");
    data.writeCString(nullptr);
    data.writeByteVector(std::vector<uint8_t>(100 * 1024, 1));
    data.writeByteArray(0, nullptr);
    data.writeInt64(1);
    data.writeUint64(2);
    data.writeFloat(3);
    data.writeDouble(4);
    data.writeBool(true);
    for (int i = 0; i < 40; ++i) {
        WireHeader header = transactionHeader(0, ITestService::ECHO_VALUES);
        header.id = static_cast<uint64_t>(i + 1);
        if (!client.send(message(header, data), MSG_DONTWAIT)) {
            break;
        }
    }
    expectOthersServed();
    const std::string dropped =
        "Closing connection to pid " + std::to_string(getpid()) + ": peer stopped reading";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (!log.contains(ANDROID_LOG_ERROR, "DVRBinder", dropped) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, "DVRBinder", dropped));
    // The replies queued before that still arrive; then the connection ends.
    bool closed = false;
    for (int i = 0; i < 40 && !closed; ++i) {
        closed = client.receive().empty();
    }
    EXPECT_TRUE(closed);
}

}  // namespace
}  // namespace dvrtest
