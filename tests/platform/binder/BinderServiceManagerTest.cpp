// Publishing and finding services, and calls that stay inside one process.
#include "BinderTestDirectory.h"
#include "LogCapture.h"
#include "PeerProcess.h"
#include "TestCallback.h"
#include "TestService.h"

#include "ServiceDirectory.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace dvrtest {
namespace {

using android::ALREADY_EXISTS;
using android::BAD_VALUE;
using android::defaultServiceManager;
using android::IBinder;
using android::IInterface;
using android::interface_cast;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;

class BinderServiceManager : public BinderTestDirectory {};

TEST_F(BinderServiceManager, PublishedSocketHasMode0660) {
    ASSERT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()), OK);
    struct stat status {};
    ASSERT_EQ(stat(socketPath(kServiceName).c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0660u);
}

TEST_F(BinderServiceManager, ServiceOfThisProcessIsHandedOutAsTheLocalObject) {
    sp<TestService> service = new TestService();
    ASSERT_EQ(defaultServiceManager()->addService(String16(kServiceName), service), OK);
    sp<IBinder> found = defaultServiceManager()->checkService(String16(kServiceName));
    EXPECT_EQ(found, sp<IBinder>(service));
    sp<ITestService> typed;
    EXPECT_EQ(android::getService(String16(kServiceName), &typed), OK);
    EXPECT_EQ(typed, sp<ITestService>(service));
    EXPECT_EQ(typed->add(1, 2), 3);
    EXPECT_EQ(typed->callerPid(), getpid());
}

TEST_F(BinderServiceManager, NameServedTwiceIsRefused) {
    ASSERT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()), OK);
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()),
              ALREADY_EXISTS);
}

TEST_F(BinderServiceManager, NameServedByAnotherLiveProcessIsRefused) {
    PeerProcess other("service", kServiceName);
    ASSERT_TRUE(other.waitReady());
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()),
              ALREADY_EXISTS);
}

TEST_F(BinderServiceManager, StaleSocketOfADeadServiceIsReplaced) {
    {
        PeerProcess old("service", kServiceName);
        ASSERT_TRUE(old.waitReady());
        old.kill();
    }
    struct stat status {};
    ASSERT_EQ(stat(socketPath(kServiceName).c_str(), &status), 0);
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()), OK);
    PeerProcess caller("call", kServiceName);
    EXPECT_EQ(caller.wait(), 0);
}

TEST_F(BinderServiceManager, BadNamesAndNullServicesAreRefused) {
    for (const char *name : {"", ".", "..", "a/b", "/abs"}) {
        EXPECT_EQ(defaultServiceManager()->addService(String16(name), new TestService()), BAD_VALUE)
            << name;
        EXPECT_EQ(defaultServiceManager()->checkService(String16(name)), nullptr) << name;
    }
    EXPECT_EQ(defaultServiceManager()->addService(String16(std::string(200, 'x').c_str()),
                                                  new TestService()),
              BAD_VALUE);
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), nullptr), BAD_VALUE);
}

TEST_F(BinderServiceManager, MissingServiceIsNotWaitedForByCheckService) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(defaultServiceManager()->checkService(String16("absent")), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

TEST_F(BinderServiceManager, WaitForServiceGivesUpAfterItsTimeLimit) {
    LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(defaultServiceManager()->waitForService(String16("absent"), 150), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_TRUE(
        log.contains(ANDROID_LOG_WARN, "DVRBinder", "Service absent did not appear within 150 ms"));
}

TEST_F(BinderServiceManager, WaitForServiceReturnsOnceTheServiceAppears) {
    PeerProcess late("service", kServiceName);
    sp<IBinder> found = defaultServiceManager()->waitForService(String16(kServiceName), 20000);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(interface_cast<ITestService>(found)->add(4, 5), 9);
}

TEST_F(BinderServiceManager, DirectoryWritableByOthersIsRefused) {
    const std::string unsafe = socketPath("unsafe");
    ASSERT_EQ(mkdir(unsafe.c_str(), 0777), 0);
    ASSERT_EQ(chmod(unsafe.c_str(), 0777), 0);
    setenv("DVR_BINDER_DIR", unsafe.c_str(), 1);
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()),
              android::PERMISSION_DENIED);
}

TEST_F(BinderServiceManager, MissingDirectoryIsCreated) {
    const std::string fresh = socketPath("fresh");
    setenv("DVR_BINDER_DIR", fresh.c_str(), 1);
    EXPECT_EQ(defaultServiceManager()->addService(String16(kServiceName), new TestService()), OK);
    struct stat status {};
    ASSERT_EQ(stat((fresh + "/" + kServiceName).c_str(), &status), 0);
}

TEST_F(BinderServiceManager, DefaultDirectoryDependsOnTheUser) {
    unsetenv("DVR_BINDER_DIR");
    setenv("XDG_RUNTIME_DIR", "/run/user/4242", 1);
    const std::string expected = getuid() == 0 ? "/run/dvr-binder" : "/run/user/4242/dvr-binder";
    EXPECT_EQ(android::binder_internal::ServiceDirectory::path(), expected);
    if (getuid() != 0) {
        unsetenv("XDG_RUNTIME_DIR");
        EXPECT_EQ(android::binder_internal::ServiceDirectory::path(),
                  "/tmp/dvr-binder-" + std::to_string(getuid()));
    }
    setenv("DVR_BINDER_DIR", "/somewhere/else", 1);
    EXPECT_EQ(android::binder_internal::ServiceDirectory::path(), "/somewhere/else");
}

TEST_F(BinderServiceManager, LocalCallsRunOnTheCallingThread) {
    sp<TestService> service = new TestService();
    sp<ITestService> typed = interface_cast<ITestService>(sp<IBinder>(service));
    EXPECT_EQ(typed, sp<ITestService>(service));
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(ITestService::descriptor);
    EXPECT_EQ(
        IInterface::asBinder(typed)->transact(IBinder::FIRST_CALL_TRANSACTION + 500, data, &reply),
        android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(IInterface::asBinder(typed)->pingBinder(), OK);
    EXPECT_EQ(IInterface::asBinder(typed)->linkToDeath(nullptr), android::INVALID_OPERATION);
    EXPECT_EQ(IInterface::asBinder(typed)->getInterfaceDescriptor(), ITestService::descriptor);
}

TEST_F(BinderServiceManager, ThreadPoolMaximumMustBePositive) {
    EXPECT_EQ(android::ProcessState::self()->setThreadPoolMaxThreadCount(0), BAD_VALUE);
    EXPECT_EQ(android::ProcessState::self()->setThreadPoolMaxThreadCount(4), OK);
    EXPECT_EQ(android::ProcessState::self()->getThreadPoolMaxThreadCount(), 4u);
}

TEST_F(BinderServiceManager, CallingIdentityOutsideACallIsOurOwn) {
    EXPECT_EQ(android::IPCThreadState::self()->getCallingPid(), getpid());
    EXPECT_EQ(android::IPCThreadState::self()->getCallingUid(), getuid());
}

}  // namespace
}  // namespace dvrtest
