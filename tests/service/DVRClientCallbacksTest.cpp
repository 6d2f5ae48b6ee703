// Client callbacks on the service object: attaching and detaching clients,
// subscriptions, the fan-out of notifications, the two synchronous queries and
// the death of a client. In one process; tests/service/DVRClientProcessTest.cpp
// repeats the essentials with the client in a process of its own.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DVR.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"
#include "RecordingCallback.h"

namespace {

using dvrspace::DVR;
using dvrspace::DVRPeer;
using dvrtest::RecordingCallback;

constexpr int kPid = 4321;
constexpr int kOtherPid = 4322;

// Adds every notification to a transcript shared with other clients, so the
// order across clients shows.
class SharedTranscriptCallback : public RecordingCallback {
public:
    SharedTranscriptCallback(std::string name, std::mutex &lock, std::vector<std::string> &calls)
        : RecordingCallback("stamp of " + name, "name of " + name),
          mName(std::move(name)),
          mLock(lock),
          mCalls(calls) {}

    int onRecordStart(int cbkId, int index, const char *fileName) override {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.push_back(mName + " start " + std::to_string(cbkId) + " " + fileName);
        return RecordingCallback::onRecordStart(cbkId, index, fileName);
    }

private:
    const std::string mName;
    std::mutex &mLock;
    std::vector<std::string> &mCalls;
};

// A registered object that has no binder, so it converts to no IDVRCallback.
class NotACallback : public android::IInterface {
protected:
    android::IBinder *onAsBinder() override { return nullptr; }
};

// A client whose queries fail.
class FailingCallback : public RecordingCallback {
public:
    FailingCallback() : RecordingCallback("", "") {}
    int getStampString(int, int, char *buffer) override {
        std::strcpy(buffer, "partial");
        return -5;
    }
    int fileNameGenerator(int, int, char *, int) override { return -6; }
};

class DVRCallbacks : public ::testing::Test {
protected:
    void SetUp() override { mService = new DVR(); }
    void TearDown() override {
        if (mService != nullptr) {
            DVRPeer::forgetDeathRecipients(*mService);
            mService.clear();
        }
    }

    android::sp<RecordingCallback> attach(int pid, const std::string &stamp = "",
                                          const std::string &fileName = "") {
        android::sp<RecordingCallback> client = new RecordingCallback(stamp, fileName);
        EXPECT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(pid, client));
        return client;
    }
    size_t logged(int priority, const std::string &function, const std::string &rest) const {
        return dvrtest::countLogged(mCapture, priority, "DVRService", function, rest);
    }
    std::map<int, android::sp<dvrspace::DVRDeathRecipient>> &recipients() {
        return DVRPeer::deathRecipients(*mService);
    }

    dvrtest::RecorderTestEnv mEnv;
    dvrtest::LogCapture mCapture;
    android::sp<DVR> mService;
};

TEST_F(DVRCallbacks, SubscribedClientReceivesRecordAndErrorNotificationsInOrder) {
    const android::sp<RecordingCallback> client = attach(kPid);
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 11, dvrspace::DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 12, dvrspace::DVR_CBK_OBJ_ERROR));
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START,
                         "/rec/a.ts", 0);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_ERROR_SEVERE, NULL, -7);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_FINISH,
                         "/rec/a.ts", 0);
    mService->doCallback(1, dvrspace::DVR_CBK_OBJ_ABNORMAL, dvrspace::DVR_CBK_ABNORMAL, NULL, 0);
    EXPECT_EQ(client->waitForCalls(3), (std::vector<std::string>{
                                           "onRecordStart(11, 0, \"/rec/a.ts\")",
                                           "onRecordErrorSevere(12, 0, -7)",
                                           "onRecordFinish(11, 0, \"/rec/a.ts\")",
                                       }));
}

TEST_F(DVRCallbacks, RegisteringForAnUnknownClientFails) {
    EXPECT_EQ(dvrspace::DVR_FAILURE,
              mService->registerCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "registerCallback",
                         "Error when adding callback object: " +
                             std::to_string(android::NAME_NOT_FOUND) + "\n"));
}

TEST_F(DVRCallbacks, UnregisteringAnUnknownSubscriptionFails) {
    attach(kPid);
    EXPECT_EQ(dvrspace::DVR_FAILURE,
              mService->unregisterCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "unregisterCallback",
                         "Error when removing callback object: " +
                             std::to_string(android::NAME_NOT_FOUND) + "\n"));
}

TEST_F(DVRCallbacks, UnregisteredClientIsNoLongerNotified) {
    const android::sp<RecordingCallback> client = attach(kPid);
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->unregisterCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD));
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START, "x", 0);
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 2, dvrspace::DVR_CBK_OBJ_RECORD));
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START, "y", 0);
    EXPECT_EQ(client->waitForCalls(1), (std::vector<std::string>{"onRecordStart(2, 0, \"y\")"}));
}

TEST_F(DVRCallbacks, EstablishingANullCallbackFails) {
    EXPECT_EQ(dvrspace::DVR_FAILURE, mService->establishCallback(kPid, nullptr));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_ERROR, "establishCallback",
                     "Error when adding a client: " + std::to_string(android::BAD_VALUE) + "\n"));
    EXPECT_TRUE(recipients().empty());
}

TEST_F(DVRCallbacks, EstablishingStoresALoggedDeathRecipient) {
    attach(kPid);
    ASSERT_EQ(1u, recipients().count(kPid));
    EXPECT_NE(nullptr, recipients()[kPid]);
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "DVRDeathRecipient", "CONSTRUCTOR\n"));
}

TEST_F(DVRCallbacks, DestroyingANeverAttachedClientFailsAndLeavesTheRecipients) {
    EXPECT_EQ(dvrspace::DVR_FAILURE, mService->destroyCallback(kPid));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_ERROR, "destroyCallbackInternal", "Error when adding a client\n"));
    EXPECT_TRUE(recipients().empty());
}

TEST_F(DVRCallbacks, DestroyingDetachesTheClientButKeepsItsRecipientEntry) {
    const android::sp<RecordingCallback> client = attach(kPid);
    const android::sp<dvrspace::DVRDeathRecipient> recipient = recipients()[kPid];
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(dvrspace::DVR_SUCCESS, mService->destroyCallback(kPid));
    EXPECT_EQ(nullptr, DVRPeer::callbackManager(*mService).getClient(kPid));
    ASSERT_EQ(1u, recipients().count(kPid));
    EXPECT_EQ(recipient, recipients()[kPid]);
    // Detached: a second destroy finds nobody.
    EXPECT_EQ(dvrspace::DVR_FAILURE, mService->destroyCallback(kPid));
}

TEST_F(DVRCallbacks, DestroyingWithoutARecipientEntryLogsAddsAnEmptyEntryAndStillDetaches) {
    attach(kPid);
    recipients().erase(kPid);
    EXPECT_EQ(dvrspace::DVR_SUCCESS, mService->destroyCallback(kPid));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "destroyCallbackInternal",
                         "Death recipient not found! (PID=4321)\n"));
    ASSERT_EQ(1u, recipients().count(kPid));
    EXPECT_EQ(nullptr, recipients()[kPid]);
    EXPECT_EQ(nullptr, DVRPeer::callbackManager(*mService).getClient(kPid));
}

TEST_F(DVRCallbacks, EstablishingTwiceReplacesTheStoredRecipient) {
    attach(kPid);
    const android::wp<dvrspace::DVRDeathRecipient> first = recipients()[kPid];
    attach(kPid);
    ASSERT_EQ(1u, recipients().size());
    EXPECT_NE(first.unsafe_get(), recipients()[kPid].get());
    // The first is released, not unlinked: nothing else held it.
    EXPECT_EQ(nullptr, first.promote());
    EXPECT_EQ(2u, logged(ANDROID_LOG_INFO, "DVRDeathRecipient", "CONSTRUCTOR\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "~DVRDeathRecipient", "DESTRUCTOR\n"));
}

TEST_F(DVRCallbacks, OneFileStartQueuesARecordPerSubscriberInSetOrder) {
    std::mutex lock;
    std::vector<std::string> calls;
    android::sp<SharedTranscriptCallback> first = new SharedTranscriptCallback("A", lock, calls);
    android::sp<SharedTranscriptCallback> second = new SharedTranscriptCallback("B", lock, calls);
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(kPid, first));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(kOtherPid, second));
    // cbkId orders the set: B's subscription comes first.
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 9, dvrspace::DVR_CBK_OBJ_RECORD));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kOtherPid, 3, dvrspace::DVR_CBK_OBJ_RECORD));
    mService->doCallback(2, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START,
                         "/rec/f.ts", 0);
    first->waitForCalls(1);
    second->waitForCalls(1);
    std::lock_guard<std::mutex> guard(lock);
    EXPECT_EQ(calls, (std::vector<std::string>{"B start 3 /rec/f.ts", "A start 9 /rec/f.ts"}));
}

TEST_F(DVRCallbacks, NullTextReachesTheClientAsAnEmptyString) {
    const android::sp<RecordingCallback> client = attach(kPid);
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 4, dvrspace::DVR_CBK_OBJ_RECORD));
    mService->doCallback(1, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_FINISH, NULL, 0);
    EXPECT_EQ(client->waitForCalls(1), (std::vector<std::string>{"onRecordFinish(4, 1, \"\")"}));
}

TEST_F(DVRCallbacks, NotificationWithoutSubscribersReachesNobody) {
    const android::sp<RecordingCallback> client = attach(kPid);
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 4, dvrspace::DVR_CBK_OBJ_ERROR));
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START, "x", 0);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_ERROR, NULL, 5);
    // The error is queued after the start would have been: once it arrived,
    // nothing else is coming.
    EXPECT_EQ(client->waitForCalls(1), (std::vector<std::string>{"onRecordError(4, 0, 5)"}));
}

TEST_F(DVRCallbacks, StampTextComesFromTheFirstStampSubscriberOnly) {
    const android::sp<RecordingCallback> first = attach(kPid, "first stamp");
    const android::sp<RecordingCallback> second = attach(kOtherPid, "second stamp");
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 2, dvrspace::DVR_CBK_OBJ_STAMP));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kOtherPid, 8, dvrspace::DVR_CBK_OBJ_STAMP));
    char stamp[dvrspace::IDVRCallback::kStampStringCapacity] = {};
    mService->getStampFromUser(3, stamp);
    EXPECT_STREQ("first stamp", stamp);
    EXPECT_EQ(first->waitForCalls(1), (std::vector<std::string>{"getStampString(2, 3, \"\")"}));
    EXPECT_TRUE(second->waitForCalls(0).empty());
}

TEST_F(DVRCallbacks, StampBufferIsUntouchedWithoutAStampSubscriber) {
    attach(kPid, "unused");
    char stamp[dvrspace::IDVRCallback::kStampStringCapacity] = "before";
    mService->getStampFromUser(0, stamp);
    EXPECT_STREQ("before", stamp);
}

TEST_F(DVRCallbacks, FailedStampQueryIsLoggedAndKeepsWhatTheClientWrote) {
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(kPid, new FailingCallback()));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 2, dvrspace::DVR_CBK_OBJ_STAMP));
    char stamp[dvrspace::IDVRCallback::kStampStringCapacity] = {};
    mService->getStampFromUser(0, stamp);
    EXPECT_STREQ("partial", stamp);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "getStampFromUser", "getStampString failed: -5\n"));
}

TEST_F(DVRCallbacks, SubscriberThatIsNoCallbackIsLoggedForBothQueries) {
    dvrspace::CallbackManager &manager = DVRPeer::callbackManager(*mService);
    ASSERT_EQ(0, manager.addClient(kPid, new NotACallback()));
    ASSERT_EQ(0, manager.addCallbackObject(kPid, 1, dvrspace::DVR_CBK_OBJ_STAMP));
    ASSERT_EQ(0, manager.addCallbackObject(kPid, 1, dvrspace::DVR_CBK_OBJ_FILENAME));
    char buffer[dvrspace::IDVRCallback::kStampStringCapacity] = "before";
    mService->getStampFromUser(0, buffer);
    mService->getFileNameFromUser(0, buffer, sizeof(buffer));
    EXPECT_STREQ("before", buffer);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "getStampFromUser", "cbkHandler is NULL\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "getFileNameFromUser", "cbkHandler is NULL\n"));
}

TEST_F(DVRCallbacks, FileNameComesFromTheFirstFileNameSubscriberOnly) {
    const android::sp<RecordingCallback> first = attach(kPid, "", "/rec/first.ts");
    const android::sp<RecordingCallback> second = attach(kOtherPid, "", "/rec/second.ts");
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kOtherPid, 1, dvrspace::DVR_CBK_OBJ_FILENAME));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 6, dvrspace::DVR_CBK_OBJ_FILENAME));
    char name[64] = {};
    mService->getFileNameFromUser(2, name, sizeof(name));
    EXPECT_STREQ("/rec/second.ts", name);
    EXPECT_EQ(second->waitForCalls(1),
              (std::vector<std::string>{"fileNameGenerator(1, 2, \"\", 64)"}));
    EXPECT_TRUE(first->waitForCalls(0).empty());
}

TEST_F(DVRCallbacks, FileNameBufferIsUntouchedWithoutAFileNameSubscriber) {
    char name[16] = "before";
    mService->getFileNameFromUser(0, name, sizeof(name));
    EXPECT_STREQ("before", name);
}

TEST_F(DVRCallbacks, FailedFileNameQueryIsLogged) {
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mService->establishCallback(kPid, new FailingCallback()));
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 2, dvrspace::DVR_CBK_OBJ_FILENAME));
    char name[16] = {};
    mService->getFileNameFromUser(0, name, sizeof(name));
    EXPECT_STREQ("", name);
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_ERROR, "getFileNameFromUser", "fileNameGenerator failed: -6\n"));
}

TEST_F(DVRCallbacks, DeathOfTheClientDetachesItWithTwoWarnings) {
    attach(kPid);
    const android::sp<dvrspace::DVRDeathRecipient> recipient = recipients()[kPid];
    recipient->binderDied(nullptr);
    EXPECT_EQ(nullptr, DVRPeer::callbackManager(*mService).getClient(kPid));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "binderDied", "DVR client(PID=4321) died\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "clientDied", "Client died but keep recording\n"));
    std::vector<std::string> warnings;
    for (const dvrtest::LogLine &line : mCapture.lines()) {
        if (line.priority == ANDROID_LOG_WARN && line.tag == "DVRService") {
            warnings.push_back(line.message.substr(1, line.message.find(':') - 1));
        }
    }
    EXPECT_EQ(warnings, (std::vector<std::string>{"binderDied", "clientDied"}));
    // The stale entry stays.
    EXPECT_EQ(recipient, recipients()[kPid]);
}

TEST_F(DVRCallbacks, DeathOfTheFileNamingClientSwitchesEveryRecorderToItsOwnNaming) {
    dvrspace::Recorder *table[] = {DVRPeer::recorder(*mService, 0),
                                   DVRPeer::recorder(*mService, 1)};
    for (dvrspace::Recorder *recorder : table) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, recorder->autoNextFile(true));
        ASSERT_EQ(dvrspace::DVR_SUCCESS, recorder->setFileNameFormat("cam_%ST", "%H%M%S"));
        // As if recording: the naming changes, the recording does not.
        dvrspace::RecorderPeer(*recorder).setState(dvrspace::DVR_STM_RECORDING);
    }
    attach(kPid, "", "/rec/from-client.ts");
    ASSERT_EQ(dvrspace::DVR_SUCCESS,
              mService->registerCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_FILENAME));

    recipients()[kPid]->binderDied(nullptr);

    for (dvrspace::Recorder *recorder : table) {
        dvrspace::RecorderPeer peer(*recorder);
        EXPECT_FALSE(peer.autoNextFile());
        EXPECT_EQ(dvrspace::DVR_STM_RECORDING, recorder->getCurrentState());
        // The recorder's own default names from now on.
        peer.applyStagedSettings();
        peer.updateFileName();
        EXPECT_EQ(0u, peer.nextFileName().find(peer.storagePath() + "/default_c"))
            << peer.nextFileName();
        peer.setState(dvrspace::DVR_STM_IDLE);
    }
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "binderDied", "DVR client(PID=4321) died\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "clientDied", "Client died but keep recording\n"));
    // Nobody names files any more.
    char name[16] = "before";
    mService->getFileNameFromUser(0, name, sizeof(name));
    EXPECT_STREQ("before", name);
}

using DVRCallbacksDeathTest = DVRCallbacks;

TEST_F(DVRCallbacksDeathTest, DeathOfAnUnknownClientAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(mService->clientDied(kPid), "Assertion failed: eRet == DVR_SUCCESS, file DVR.cpp");
}

TEST_F(DVRCallbacksDeathTest, NullFileNameBufferAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(mService->getFileNameFromUser(0, NULL, 16),
                 "Assertion failed: pRetFileName != NULL, file DVR.cpp");
}

TEST_F(DVRCallbacksDeathTest, UnknownObjectTypeAbortsTheFanOut) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(mService->doCallback(0, static_cast<dvrspace::DVRCbkObjType_e>(9),
                                      dvrspace::DVR_CBK_RECORD_START, "x", 0),
                 "Assertion failed: ret == 0, file DVR.cpp");
}

TEST_F(DVRCallbacksDeathTest, MissingCallbackManagerAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            DVRPeer::dropCallbackManager(*mService);
            char stamp[dvrspace::IDVRCallback::kStampStringCapacity] = {};
            mService->getStampFromUser(0, stamp);
        },
        "Assertion failed: mCbkMgr != NULL, file DVR.cpp");
    EXPECT_DEATH(
        {
            DVRPeer::dropCallbackManager(*mService);
            mService->registerCallback(kPid, 1, dvrspace::DVR_CBK_OBJ_RECORD);
        },
        "Assertion failed: mCbkMgr != NULL, file DVR.cpp");
}

}  // namespace
