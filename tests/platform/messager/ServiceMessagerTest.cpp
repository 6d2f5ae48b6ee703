// The message channel on real sockets in a per-test runtime directory, with
// SystemMessenger as the system side.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "MessageSocketDir.h"
#include "ServiceMessage.h"
#include "ServiceMessager.h"
#include "SystemMessenger.h"
#include "TempDir.h"

using dvrtest::LogCapture;
using system_extension::MessageSocketDir;
using system_extension::ServiceMessage;
using system_extension::ServiceMessager;
using system_extension::ServiceMessageReceiver;
using system_extension::SystemMessenger;

namespace {

constexpr auto kPatience = std::chrono::seconds(20);
constexpr int kPatienceMs = 20000;

struct Received {
    std::string name;
    std::string message;
    std::string value;
    std::thread::id thread;

    bool operator==(const Received &other) const {
        return name == other.name && message == other.message && value == other.value;
    }
};

// Records every message it receives.
class Inbox : public ServiceMessageReceiver {
public:
    void onMessageReceived(const std::string &name, const std::string &message,
                           const std::string &value) override {
        std::lock_guard<std::mutex> lock(mLock);
        mReceived.push_back({name, message, value, std::this_thread::get_id()});
        mChanged.notify_all();
    }
    // Everything received once count messages have come (or the patience ran out).
    std::vector<Received> waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, kPatience, [&] { return mReceived.size() >= count; });
        return mReceived;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Received> mReceived;
};

// Answers "suspendbegin" as a service does, through its messager.
class Replier : public ServiceMessageReceiver {
public:
    explicit Replier(ServiceMessager *messager) : mMessager(messager) {}
    void onMessageReceived(const std::string &name, const std::string &message,
                           const std::string &value) override {
        if (value == "suspendbegin") {
            sendResult = mMessager->sendMessage(name, message, "suspendsuccess");
        }
    }
    std::atomic<int> sendResult{1};

private:
    ServiceMessager *mMessager;
};

class ServiceMessagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DVR_MSG_DIR", mTemp.path().c_str(), 1);
        mMessager = ServiceMessager::create();
        ASSERT_NE(nullptr, mMessager);
    }
    void TearDown() override { ServiceMessager::destroy(mMessager); }

    std::unique_ptr<SystemMessenger> openSystem() {
        std::string error;
        std::unique_ptr<SystemMessenger> system = SystemMessenger::open(mDir, &error);
        EXPECT_NE(nullptr, system) << error;
        return system;
    }
    bool exists(const std::string &name) { return access(mTemp.file(name).c_str(), F_OK) == 0; }

    dvrtest::TempDir mTemp;
    MessageSocketDir mDir{mTemp.path()};
    ServiceMessager *mMessager = nullptr;
};

}  // namespace

TEST_F(ServiceMessagerTest, DeliversToTheRegisteredReceiverOnTheChannelThread) {
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    EXPECT_TRUE(exists("svc-dvr_server"));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "suspendbegin"}));
    const std::vector<Received> received = inbox.waitFor(1);
    ASSERT_EQ(1u, received.size());
    EXPECT_EQ((Received{"dvr_server", "hibernationstate", "suspendbegin", {}}), received[0]);
    EXPECT_NE(std::this_thread::get_id(), received[0].thread);
}

TEST_F(ServiceMessagerTest, MessagesKeepTheirOrder) {
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    auto system = openSystem();
    for (const char *value : {"suspendbegin", "resumebegin", "resumesuccess"}) {
        ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", value}));
    }
    const std::vector<Received> received = inbox.waitFor(3);
    ASSERT_EQ(3u, received.size());
    EXPECT_EQ("suspendbegin", received[0].value);
    EXPECT_EQ("resumebegin", received[1].value);
    EXPECT_EQ("resumesuccess", received[2].value);
}

TEST_F(ServiceMessagerTest, EachNameHasItsOwnSocketAndReceiver) {
    Inbox first;
    Inbox second;
    ASSERT_EQ(0, mMessager->registerReceiver("first", &first));
    ASSERT_EQ(0, mMessager->registerReceiver("second", &second));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("second", {"second", "hibernationstate", "resumebegin"}));
    ASSERT_EQ(0, system->send("first", {"first", "hibernationstate", "suspendbegin"}));
    EXPECT_EQ((std::vector<Received>{{"second", "hibernationstate", "resumebegin", {}}}),
              second.waitFor(1));
    EXPECT_EQ((std::vector<Received>{{"first", "hibernationstate", "suspendbegin", {}}}),
              first.waitFor(1));
}

TEST_F(ServiceMessagerTest, ReceiverSeesTheFieldsAsSent) {
    // The receiver, not the channel, decides what a name it does not own means.
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"other_server", "powerstate", "suspendbegin"}));
    EXPECT_EQ((std::vector<Received>{{"other_server", "powerstate", "suspendbegin", {}}}),
              inbox.waitFor(1));
}

TEST_F(ServiceMessagerTest, SendMessageReachesTheSystemSide) {
    auto system = openSystem();
    EXPECT_EQ(0, mMessager->sendMessage("dvr_server", "hibernationstate", "suspendsuccess"));
    ServiceMessage reply;
    ASSERT_TRUE(system->receive(&reply, kPatienceMs));
    EXPECT_EQ("dvr_server", reply.name);
    EXPECT_EQ("hibernationstate", reply.message);
    EXPECT_EQ("suspendsuccess", reply.value);
}

TEST_F(ServiceMessagerTest, ReceiverRepliesThroughItsMessager) {
    Replier replier(mMessager);
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &replier));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "suspendbegin"}));
    ServiceMessage reply;
    ASSERT_TRUE(system->receive(&reply, kPatienceMs));
    EXPECT_EQ("suspendsuccess", reply.value);
    // Once destroy returns the receiver has finished.
    ServiceMessager::destroy(mMessager);
    mMessager = nullptr;
    EXPECT_EQ(0, replier.sendResult);
}

TEST_F(ServiceMessagerTest, SendMessageWithoutASystemSideFailsAndSaysWhy) {
    LogCapture capture;
    EXPECT_EQ(-ENOENT, mMessager->sendMessage("dvr_server", "hibernationstate", "resumefailed"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMsgr",
                                 "sendMessage(dvr_server, hibernationstate, resumefailed) to " +
                                     mTemp.file("system") + ": No such file or directory"));
}

TEST_F(ServiceMessagerTest, SendMessageNeverBlocksOnAFullQueue) {
    auto system = openSystem();
    int result = 0;
    for (int i = 0; i < 10000 && result == 0; ++i) {
        result = mMessager->sendMessage("dvr_server", "hibernationstate", "suspendsuccess");
    }
    EXPECT_EQ(-EAGAIN, result);
}

TEST_F(ServiceMessagerTest, SendMessageRefusesMalformedMessages) {
    LogCapture capture;
    EXPECT_EQ(-EINVAL, mMessager->sendMessage("", "hibernationstate", "suspendsuccess"));
    EXPECT_EQ(-EINVAL, mMessager->sendMessage("dvr_server", "", "suspendsuccess"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMsgr",
                                 "sendMessage: malformed message (, hibernationstate, "
                                 "suspendsuccess)"));
}

TEST_F(ServiceMessagerTest, MalformedDatagramIsDroppedAndLogged) {
    LogCapture capture;
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    const int raw = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_GE(raw, 0);
    ASSERT_EQ(0, MessageSocketDir::sendTo(raw, mDir.serviceSocket("dvr_server"), "garbage"));
    close(raw);
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "resumebegin"}));
    EXPECT_EQ((std::vector<Received>{{"dvr_server", "hibernationstate", "resumebegin", {}}}),
              inbox.waitFor(1));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_WARN, "SvcMsgr",
                                 "dropped a malformed message of 7 bytes for dvr_server"));
}

TEST_F(ServiceMessagerTest, RegisteringAgainReplacesTheReceiver) {
    Inbox old;
    Inbox replacement;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &old));
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &replacement));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "resumebegin"}));
    EXPECT_EQ(1u, replacement.waitFor(1).size());
    EXPECT_TRUE(old.waitFor(0).empty());
}

TEST_F(ServiceMessagerTest, BadNamesAndNullReceiversAreRefused) {
    LogCapture capture;
    Inbox inbox;
    EXPECT_EQ(-1, mMessager->registerReceiver("dvr_server", nullptr));
    for (const std::string &name :
         std::vector<std::string>{"", "..", "a/b", "with space", std::string(65, 'n')}) {
        EXPECT_EQ(-1, mMessager->registerReceiver(name, &inbox)) << name;
    }
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMsgr",
                                 "registerReceiver(a/b): needs a receiver and a name of 1 to 64 "
                                 "letters, digits, '_', '-' or '.'"));
    EXPECT_EQ(0, mMessager->registerReceiver(std::string(64, 'n'), &inbox));
}

TEST_F(ServiceMessagerTest, NameHeldByAnotherMessagerIsRefused) {
    LogCapture capture;
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    ServiceMessager *other = ServiceMessager::create();
    ASSERT_NE(nullptr, other);
    EXPECT_EQ(-1, other->registerReceiver("dvr_server", &inbox));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMsgr",
                                 "registerReceiver(dvr_server): " + mTemp.file("svc-dvr_server") +
                                     " is in use by a running process"));
    ServiceMessager::destroy(other);
    EXPECT_TRUE(exists("svc-dvr_server")) << "the loser must not remove the owner's socket";
}

TEST_F(ServiceMessagerTest, SocketLeftByADeadProcessIsReplaced) {
    const int dead = socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, mDir.serviceSocket("dvr_server").c_str());
    ASSERT_EQ(0, bind(dead, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)));
    close(dead);
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &inbox));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "resumebegin"}));
    EXPECT_EQ(1u, inbox.waitFor(1).size());
}

TEST_F(ServiceMessagerTest, OtherFileInTheWayIsNotRemoved) {
    LogCapture capture;
    mTemp.write("svc-dvr_server", "precious");
    Inbox inbox;
    EXPECT_EQ(-1, mMessager->registerReceiver("dvr_server", &inbox));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "SvcMsgr",
                                 "registerReceiver(dvr_server): " + mTemp.file("svc-dvr_server") +
                                     " exists and is not a socket"));
    EXPECT_TRUE(exists("svc-dvr_server"));
}

namespace {

// Destroys its messager on "resumesuccess", as a service ending its
// suspend handling does from inside its receiver.
class SelfDestroyer : public ServiceMessageReceiver {
public:
    void onMessageReceived(const std::string &, const std::string &,
                           const std::string &value) override {
        ++calls;
        if (value == "resumesuccess") {
            ServiceMessager::destroy(messager);
        }
    }
    ServiceMessager *messager = nullptr;
    std::atomic<int> calls{0};
};

}  // namespace

TEST_F(ServiceMessagerTest, DestroyInsideTheReceiverEndsDelivery) {
    SelfDestroyer receiver;
    receiver.messager = mMessager;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &receiver));
    mMessager = nullptr;  // the receiver destroys it
    auto system = openSystem();
    const ServiceMessage confirmation{"dvr_server", "hibernationstate", "resumesuccess"};
    ASSERT_EQ(0, system->send("dvr_server", confirmation));
    const int second = system->send("dvr_server", confirmation);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (exists("svc-dvr_server") && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(exists("svc-dvr_server"));
    EXPECT_EQ(1, receiver.calls);
    EXPECT_TRUE(second == 0 || second == -ECONNREFUSED || second == -ENOENT) << second;
    EXPECT_EQ(-ENOENT, system->send("dvr_server", confirmation));
    // Let the delivery thread finish freeing the messager before the process
    // ends, so the leak checker sees it freed.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

namespace {

// Blocks in its first call until released.
class BlockingReceiver : public ServiceMessageReceiver {
public:
    void onMessageReceived(const std::string &, const std::string &, const std::string &) override {
        entered.set_value();
        released.get_future().wait();
    }
    std::promise<void> entered;
    std::promise<void> released;
};

}  // namespace

TEST_F(ServiceMessagerTest, DestroyFromAnotherThreadWaitsForTheRunningReceiver) {
    BlockingReceiver receiver;
    ASSERT_EQ(0, mMessager->registerReceiver("dvr_server", &receiver));
    auto system = openSystem();
    ASSERT_EQ(0, system->send("dvr_server", {"dvr_server", "hibernationstate", "resumebegin"}));
    receiver.entered.get_future().wait();
    std::atomic<bool> destroyed{false};
    ServiceMessager *messager = mMessager;
    mMessager = nullptr;
    std::thread destroyer([&] {
        ServiceMessager::destroy(messager);
        destroyed = true;
    });
    // The receiver still runs, so destroy must still be waiting.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(destroyed);
    receiver.released.set_value();
    destroyer.join();
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(exists("svc-dvr_server"));
}

TEST_F(ServiceMessagerTest, DestroyRemovesTheSockets) {
    Inbox inbox;
    ASSERT_EQ(0, mMessager->registerReceiver("first", &inbox));
    ASSERT_EQ(0, mMessager->registerReceiver("second", &inbox));
    ServiceMessager::destroy(mMessager);
    mMessager = nullptr;
    EXPECT_FALSE(exists("svc-first"));
    EXPECT_FALSE(exists("svc-second"));
}

TEST_F(ServiceMessagerTest, SystemSideIsOnePerDirectory) {
    auto system = openSystem();
    std::string error;
    EXPECT_EQ(nullptr, SystemMessenger::open(mDir, &error));
    EXPECT_EQ(mTemp.file("system") + " is in use by a running process", error);
    system.reset();
    EXPECT_FALSE(exists("system"));
    EXPECT_NE(nullptr, openSystem());
}

TEST_F(ServiceMessagerTest, SystemSideReceiveTimesOut) {
    auto system = openSystem();
    ServiceMessage reply{"kept", "kept", "kept"};
    EXPECT_FALSE(system->receive(&reply, 50));
    EXPECT_EQ("kept", reply.value);
}

TEST_F(ServiceMessagerTest, SystemSideSendToAnUnknownServiceFails) {
    auto system = openSystem();
    EXPECT_EQ(-ENOENT, system->send("nobody", {"nobody", "hibernationstate", "suspendbegin"}));
    EXPECT_EQ(-EINVAL, system->send("../x", {"x", "hibernationstate", "suspendbegin"}));
    EXPECT_EQ(-EINVAL, system->send("nobody", {"", "hibernationstate", "suspendbegin"}));
}

TEST(ServiceMessagerCreate, FailsWhenTheDirectoryCannotBeMade) {
    LogCapture capture;
    dvrtest::TempDir temp;
    const std::string blocker = temp.write("file", "x");
    setenv("DVR_MSG_DIR", (blocker + "/msg").c_str(), 1);
    EXPECT_EQ(nullptr, ServiceMessager::create());
    EXPECT_EQ(1u, capture.messagesContaining("cannot use " + blocker + "/msg: ").size());
    ServiceMessager::destroy(nullptr);
}

TEST(ServiceMessagerCreate, DefaultDirectoryIsUsedWhenTheVariableIsUnset) {
    unsetenv("DVR_MSG_DIR");
    EXPECT_EQ("/tmp/dvr_msg", MessageSocketDir::fromEnvironment().path());
    setenv("DVR_MSG_DIR", "", 1);
    EXPECT_EQ("/tmp/dvr_msg", MessageSocketDir::fromEnvironment().path());
}
