// The client SDK's own behaviour, beyond the examples: what DVRClient says
// when it cannot connect or is used out of order, that it detaches what it
// attached, and that DVRCallbackAdapter answers without touching anything.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "DVRCallbackAdapter.h"
#include "DVRClient.h"
#include "ServerProcess.h"
#include "TempDir.h"

namespace {

using dvrspace::DVRClient;
using dvrtest::ServerProcess;

TEST(DVRClient, ConnectWithoutAServiceSaysWhereItLooked) {
    dvrtest::TempDir dir;
    setenv("DVR_BINDER_DIR", dir.path().c_str(), 1);
    DVRClient client("recorder");
    EXPECT_FALSE(client.connect(100));
    EXPECT_EQ(nullptr, client.service());
    EXPECT_FALSE(client.serviceAlive());
    EXPECT_EQ("the service 'recorder' did not appear within 100 ms in DVR_BINDER_DIR=" + dir.path(),
              client.error());
}

TEST(DVRClient, ListenBeforeConnectOrWithoutACallbackIsRefused) {
    DVRClient client;
    EXPECT_EQ(dvrspace::DVR_INVALID_ARGUMENT, client.listen(new dvrspace::DVRCallbackAdapter));
    EXPECT_EQ("not connected", client.error());

    ServerProcess server;
    server.start();
    ASSERT_TRUE(client.connect(30000)) << client.error();
    EXPECT_EQ(dvrspace::DVR_INVALID_ARGUMENT, client.listen(nullptr));
    EXPECT_EQ("no callback object", client.error());
}

TEST(DVRClient, AttachesUnderItsProcessIdAndDetachesWhenDestroyed) {
    ServerProcess server;
    server.start();
    ASSERT_NE(nullptr, server.connect());
    {
        DVRClient client;
        ASSERT_TRUE(client.connect(30000)) << client.error();
        EXPECT_EQ(getpid(), client.pid());
        EXPECT_TRUE(client.serviceAlive());
        ASSERT_EQ(0, client.listen(new dvrspace::DVRCallbackAdapter)) << client.error();
        EXPECT_EQ("", client.error());
    }
    // Detached: the service knows this process no longer, so removing it
    // again fails with the service's documented log line.
    const android::sp<dvrspace::IDVR> dvr = server.connect();
    EXPECT_EQ(dvrspace::DVR_FAILURE, dvr->destroyCallback(getpid()));
    EXPECT_TRUE(server.waitForLog("] Error when adding a client\n")) << server.log();
    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(DVRCallbackAdapter, AnswersEveryCallWithZeroAndLeavesTheBuffersAlone) {
    const android::sp<dvrspace::DVRCallbackAdapter> adapter = new dvrspace::DVRCallbackAdapter;
    EXPECT_EQ(0, adapter->onRecordStart(1, 100, "/a.ts"));
    EXPECT_EQ(0, adapter->onRecordFinish(1, 100, "/a.ts"));
    EXPECT_EQ(0, adapter->onRecordError(2, 100, 7));
    EXPECT_EQ(0, adapter->onRecordErrorSevere(2, 100, 8));
    EXPECT_EQ(0, adapter->onRecordAbnormal(3, 100, 0));
    char stamp[dvrspace::IDVRCallback::kStampStringCapacity];
    memset(stamp, 'x', sizeof(stamp));
    EXPECT_EQ(0, adapter->getStampString(4, 100, stamp));
    EXPECT_EQ(std::string(sizeof(stamp), 'x'), std::string(stamp, sizeof(stamp)));
    char name[16];
    memset(name, 'y', sizeof(name));
    EXPECT_EQ(0, adapter->fileNameGenerator(5, 100, name, sizeof(name)));
    EXPECT_EQ(std::string(sizeof(name), 'y'), std::string(name, sizeof(name)));
}

}  // namespace
