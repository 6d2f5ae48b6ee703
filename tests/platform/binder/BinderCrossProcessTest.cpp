// Calls between two processes: the test is the client, binder_test_peer the
// service (or a second client).
#include "BinderTestDirectory.h"
#include "PeerProcess.h"
#include "TestCallback.h"

#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace dvrtest {
namespace {

using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::IBinder;
using android::IInterface;
using android::interface_cast;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::wp;

constexpr int kWaitMs = 20000;

class DeathWatcher : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder> &who) override {
        std::lock_guard<std::mutex> lock(mLock);
        ++mDeaths;
        mWho = who;
        mChanged.notify_all();
    }
    int waitDeaths(int count, int timeoutMs) {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                          [&] { return mDeaths >= count; });
        return mDeaths;
    }
    wp<IBinder> who() {
        std::lock_guard<std::mutex> lock(mLock);
        return mWho;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int mDeaths = 0;
    wp<IBinder> mWho;
};

class BinderCrossProcess : public BinderTestDirectory {
protected:
    void SetUp() override {
        BinderTestDirectory::SetUp();
        startService();
    }

    void startService() {
        mServiceProcess = std::make_unique<PeerProcess>("service", kServiceName);
        ASSERT_TRUE(mServiceProcess->waitReady());
        mService = interface_cast<ITestService>(
            defaultServiceManager()->getService(String16(kServiceName)));
        ASSERT_NE(mService, nullptr);
    }

    std::unique_ptr<PeerProcess> mServiceProcess;
    sp<ITestService> mService;
};

TEST_F(BinderCrossProcess, SynchronousCallReturnsTheServiceResult) {
    EXPECT_EQ(mService->add(2, 40), 42);
    EXPECT_EQ(mService->add(-7, 3), -4);
    sp<IBinder> binder = IInterface::asBinder(mService);
    EXPECT_EQ(binder->localBinder(), nullptr);
    EXPECT_EQ(static_cast<IBinder *>(binder->remoteBinder()), binder.get());
}

TEST_F(BinderCrossProcess, ProxyReportsTheRemoteInterfaceDescriptorAndAnswersPing) {
    sp<IBinder> binder = IInterface::asBinder(mService);
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("dvrtest.ITestService"));
    EXPECT_EQ(binder->pingBinder(), OK);
    EXPECT_TRUE(binder->isBinderAlive());
}

TEST_F(BinderCrossProcess, ValuesAndNullsSurviveTheRoundTrip) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ITestService::descriptor);
    data.writeString16(String16("caf\xc3\xa9 \xe2\x82\xac"));
    data.writeString16(std::unique_ptr<String16>());
    data.writeCString("plain text");
    data.writeCString(nullptr);
    const std::vector<uint8_t> bytes = {0, 1, 2, 255, 7};
    data.writeByteVector(bytes);
    data.writeByteArray(0, nullptr);
    data.writeInt64(-1234567890123LL);
    data.writeUint64(0xfedcba9876543210ULL);
    data.writeFloat(1.5f);
    data.writeDouble(-2.25);
    data.writeBool(true);
    ASSERT_EQ(IInterface::asBinder(mService)->transact(ITestService::ECHO_VALUES, data, &reply),
              OK);

    std::unique_ptr<String16> text;
    ASSERT_EQ(reply.readString16(&text), OK);
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, String16("caf\xc3\xa9 \xe2\x82\xac"));
    std::unique_ptr<String16> nullText(new String16("x"));
    ASSERT_EQ(reply.readString16(&nullText), OK);
    EXPECT_FALSE(nullText);
    EXPECT_STREQ(reply.readCString(), "plain text");
    EXPECT_EQ(reply.readCString(), nullptr);
    std::unique_ptr<std::vector<uint8_t>> echoed;
    ASSERT_EQ(reply.readByteVector(&echoed), OK);
    ASSERT_TRUE(echoed);
    EXPECT_EQ(*echoed, bytes);
    ASSERT_EQ(reply.readByteVector(&echoed), OK);
    EXPECT_FALSE(echoed);
    EXPECT_EQ(reply.readInt64(), -1234567890123LL);
    EXPECT_EQ(reply.readUint64(), 0xfedcba9876543210ULL);
    EXPECT_EQ(reply.readFloat(), 1.5f);
    EXPECT_EQ(reply.readDouble(), -2.25);
    EXPECT_TRUE(reply.readBool());
    EXPECT_EQ(reply.dataAvail(), 0u);
}

TEST_F(BinderCrossProcess, CallerIdentityComesFromTheSocket) {
    EXPECT_EQ(mService->callerPid(), getpid());
    EXPECT_EQ(mService->callerUid(), static_cast<int32_t>(getuid()));
}

TEST_F(BinderCrossProcess, OneWayCallsArriveInOrder) {
    for (int32_t i = 0; i < 200; ++i) {
        mService->notify(i);
    }
    std::vector<int32_t> expected(200);
    for (int32_t i = 0; i < 200; ++i) {
        expected[i] = i;
    }
    EXPECT_EQ(mService->waitNotified(200, kWaitMs), expected);
}

TEST_F(BinderCrossProcess, ClientObjectReachesTheServiceAsAProxyAndIsCalledBack) {
    sp<TestCallback> callback = new TestCallback();
    ASSERT_EQ(mService->registerCallback(callback), OK);
    EXPECT_EQ(mService->callBack(21), 42);
    EXPECT_EQ(callback->lastCallingPid(), mServiceProcess->pid());
}

TEST_F(BinderCrossProcess, CallbackDuringACallMayCallTheServiceAgain) {
    sp<TestCallback> callback = new TestCallback(mService);
    ASSERT_EQ(mService->registerCallback(callback), OK);
    // client -> service.callBack -> client.onValue -> service.add, all nested.
    EXPECT_EQ(mService->callBack(5), 1005);
}

TEST_F(BinderCrossProcess, ConcurrentCallsEachGetTheirOwnCallbackAnswer) {
    // Each nested callback must reach the thread whose call it serves.
    sp<TestCallback> callback = new TestCallback();
    ASSERT_EQ(mService->registerCallback(callback), OK);
    std::vector<std::future<int32_t>> calls;
    for (int32_t i = 0; i < 6; ++i) {
        calls.push_back(
            std::async(std::launch::async, [this, i] { return mService->callBack(i); }));
    }
    for (int32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(calls[i].get(), 2 * i);
    }
}

TEST_F(BinderCrossProcess, OneWayCallbacksFromTheServiceArriveInOrder) {
    sp<TestCallback> callback = new TestCallback();
    ASSERT_EQ(mService->registerCallback(callback), OK);
    ASSERT_EQ(mService->sendEvents(100), OK);
    std::vector<int32_t> expected(100);
    for (int32_t i = 0; i < 100; ++i) {
        expected[i] = i;
    }
    EXPECT_EQ(callback->waitEvents(100, kWaitMs), expected);
}

TEST_F(BinderCrossProcess, ServiceObjectReachesTheClientAndLivesUntilReleased) {
    sp<ITestCallback> counter = mService->makeCounter();
    ASSERT_NE(counter, nullptr);
    EXPECT_NE(IInterface::asBinder(counter)->remoteBinder(), nullptr);
    EXPECT_EQ(counter->onValue(3), 3);
    EXPECT_EQ(counter->onValue(4), 7);
    EXPECT_EQ(mService->liveCounters(), 1);
    counter.clear();
    // The release travels one-way: poll until the service dropped it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (mService->liveCounters() != 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(mService->liveCounters(), 0);
}

TEST_F(BinderCrossProcess, ObjectSentBackArrivesAsTheSameObject) {
    sp<TestCallback> callback = new TestCallback();
    sp<IBinder> local = IInterface::asBinder(callback);
    EXPECT_EQ(mService->echoBinder(local), local);
    sp<IBinder> remote = IInterface::asBinder(mService);
    EXPECT_EQ(mService->echoBinder(remote), remote);
    sp<ITestCallback> counter = mService->makeCounter();
    EXPECT_EQ(mService->echoBinder(IInterface::asBinder(counter)), IInterface::asBinder(counter));
    EXPECT_EQ(mService->echoBinder(nullptr), nullptr);
}

TEST_F(BinderCrossProcess, ManyClientThreadsAtOnce) {
    sp<TestCallback> callback = new TestCallback();
    ASSERT_EQ(mService->registerCallback(callback), OK);
    constexpr int kThreads = 8;
    constexpr int kCalls = 150;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCalls; ++i) {
                if (mService->add(t, i) != t + i) {
                    ++wrong;
                }
                if (i % 10 == 0 && mService->callBack(i) != 2 * i) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(BinderCrossProcess, UnknownTransactionCodeIsRefused) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ITestService::descriptor);
    EXPECT_EQ(IInterface::asBinder(mService)->transact(IBinder::FIRST_CALL_TRANSACTION + 500, data,
                                                       &reply),
              android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(mService->add(1, 1), 2);
}

TEST_F(BinderCrossProcess, WrongInterfaceTokenIsRefused) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(String16("dvrtest.ISomethingElse"));
    data.writeInt32(1);
    data.writeInt32(2);
    EXPECT_EQ(IInterface::asBinder(mService)->transact(ITestService::ADD, data, &reply),
              android::PERMISSION_DENIED);
    EXPECT_EQ(mService->add(1, 2), 3);
}

TEST_F(BinderCrossProcess, OversizedTransactionFailsAndTheConnectionStaysUsable) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ITestService::descriptor);
    std::vector<uint8_t> big(200 * 1024, 7);
    data.writeByteVector(big);
    EXPECT_EQ(IInterface::asBinder(mService)->transact(ITestService::ADD, data, &reply),
              android::FAILED_TRANSACTION);
    EXPECT_EQ(mService->add(20, 22), 42);
}

TEST_F(BinderCrossProcess, ProxyOfAnotherConnectionCannotBeSent) {
    PeerProcess second("service", "second.service");
    ASSERT_TRUE(second.waitReady());
    sp<IBinder> other = defaultServiceManager()->getService(String16("second.service"));
    ASSERT_NE(other, nullptr);
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ITestService::descriptor);
    data.writeStrongBinder(other);
    EXPECT_EQ(IInterface::asBinder(mService)->transact(ITestService::ECHO_BINDER, data, &reply),
              android::INVALID_OPERATION);
    EXPECT_EQ(mService->add(1, 2), 3);
}

TEST_F(BinderCrossProcess, ServiceDeathIsNotifiedOnceAndLaterCallsFail) {
    sp<DeathWatcher> watcher = new DeathWatcher();
    sp<IBinder> binder = IInterface::asBinder(mService);
    ASSERT_EQ(binder->linkToDeath(watcher), OK);
    mServiceProcess->kill();
    EXPECT_EQ(watcher->waitDeaths(1, kWaitMs), 1);
    EXPECT_EQ(watcher->who().promote(), binder);
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(mService->block(), DEAD_OBJECT);
    EXPECT_EQ(binder->linkToDeath(watcher), DEAD_OBJECT);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(watcher->waitDeaths(2, 0), 1);
}

TEST_F(BinderCrossProcess, UnlinkedRecipientIsNotNotified) {
    sp<DeathWatcher> kept = new DeathWatcher();
    sp<DeathWatcher> unlinked = new DeathWatcher();
    sp<IBinder> binder = IInterface::asBinder(mService);
    ASSERT_EQ(binder->linkToDeath(kept), OK);
    ASSERT_EQ(binder->linkToDeath(unlinked), OK);
    wp<IBinder::DeathRecipient> removed;
    EXPECT_EQ(binder->unlinkToDeath(unlinked, nullptr, 0, &removed), OK);
    EXPECT_EQ(removed.promote(), unlinked);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), android::NAME_NOT_FOUND);
    mServiceProcess->kill();
    EXPECT_EQ(kept->waitDeaths(1, kWaitMs), 1);
    EXPECT_EQ(unlinked->waitDeaths(1, 200), 0);
}

TEST_F(BinderCrossProcess, PendingCallFailsWithDeadObjectWhenTheServiceDies) {
    auto pending = std::async(std::launch::async, [&] { return mService->block(); });
    EXPECT_EQ(pending.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    mServiceProcess->kill();
    ASSERT_EQ(pending.wait_for(std::chrono::milliseconds(kWaitMs)), std::future_status::ready);
    EXPECT_EQ(pending.get(), DEAD_OBJECT);
}

TEST_F(BinderCrossProcess, ClientReconnectsAfterTheServiceRestarts) {
    mServiceProcess->kill();
    EXPECT_EQ(mService->add(1, 2), -1);
    startService();
    EXPECT_EQ(mService->add(1, 2), 3);
    EXPECT_EQ(mService->callerPid(), getpid());
}

TEST_F(BinderCrossProcess, ServiceIsToldWhenAClientIsKilled) {
    PeerProcess client("client", kServiceName);
    ASSERT_TRUE(client.waitReady());
    EXPECT_EQ(mService->waitClientDeaths(1, 0), 0);
    client.kill();
    EXPECT_EQ(mService->waitClientDeaths(1, kWaitMs), 1);
    EXPECT_EQ(mService->add(3, 4), 7);
    // The service's proxy of the dead client's callback fails.
    EXPECT_EQ(mService->callBack(1), -1);
}

TEST_F(BinderCrossProcess, ServiceCallIntoAClientFailsWhenTheClientIsKilled) {
    PeerProcess client("client", kServiceName);
    ASSERT_TRUE(client.waitReady());
    auto pending = std::async(std::launch::async,
                              [&] { return mService->callBack(TestCallback::kNeverAnswer); });
    EXPECT_EQ(pending.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    client.kill();
    ASSERT_EQ(pending.wait_for(std::chrono::milliseconds(kWaitMs)), std::future_status::ready);
    // The service's call into the client returned DEAD_OBJECT, which the
    // test interface's proxy turns into -1.
    EXPECT_EQ(pending.get(), -1);
    EXPECT_EQ(mService->add(1, 1), 2);
}

TEST_F(BinderCrossProcess, AnotherClientProcessIsServedAlongside) {
    PeerProcess caller("call", kServiceName);
    EXPECT_EQ(caller.wait(), 0);
    EXPECT_EQ(mService->add(5, 6), 11);
}

}  // namespace
}  // namespace dvrtest
