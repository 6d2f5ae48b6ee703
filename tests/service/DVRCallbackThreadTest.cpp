// The callback dispatch thread: what it delivers, in which order, and how it
// stops.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DVRCallbackThread.h"
#include "LogCapture.h"
#include "RecordingCallback.h"

namespace {

using dvrspace::CbkInfo_t;
using dvrspace::DVRCallbackThread;
using dvrtest::RecordingCallback;

CbkInfo_t record(const android::sp<dvrspace::IDVRCallback> &cbk, int cmd, int cbkId, int index,
                 const std::string &text, int value) {
    CbkInfo_t info;
    info.cbk = cbk;
    info.cmd = cmd;
    info.cbkId = cbkId;
    info.index = index;
    info.text = text;
    info.value = value;
    return info;
}

// Holds its first onRecordStart until released, so records pile up behind it.
class GatedCallback : public RecordingCallback {
public:
    GatedCallback() : RecordingCallback("", "") {}

    int onRecordStart(int cbkId, int index, const char *fileName) override {
        std::unique_lock<std::mutex> lock(mGateLock);
        mEntered = true;
        mGateChanged.notify_all();
        mGateChanged.wait(lock, [&] { return mOpen; });
        lock.unlock();
        return RecordingCallback::onRecordStart(cbkId, index, fileName);
    }
    void waitUntilEntered() {
        std::unique_lock<std::mutex> lock(mGateLock);
        mGateChanged.wait(lock, [&] { return mEntered; });
    }
    void open() {
        std::lock_guard<std::mutex> lock(mGateLock);
        mOpen = true;
        mGateChanged.notify_all();
    }

private:
    std::mutex mGateLock;
    std::condition_variable mGateChanged;
    bool mEntered = false;
    bool mOpen = false;
};

class CallbackThreadTest : public ::testing::Test {
protected:
    void SetUp() override {
        mThread = new DVRCallbackThread();
        ASSERT_EQ(mThread->run("DVR Callback Thread", 0, 0), android::NO_ERROR);
    }
    void TearDown() override {
        if (mThread->isRunning()) {
            EXPECT_EQ(mThread->exitAndWait(), 0);
        }
    }

    android::sp<DVRCallbackThread> mThread;
};

TEST(CallbackRecord, DefaultRecordIsEmpty) {
    CbkInfo_t info;
    EXPECT_EQ(info.cbk, nullptr);
    EXPECT_EQ(info.cmd, 0);
    EXPECT_EQ(info.text, "");
}

TEST(CallbackRecord, CopyDataCopiesEveryField) {
    const android::sp<RecordingCallback> client = new RecordingCallback("", "");
    const CbkInfo_t source = record(client, 2, 7, 1, "/rec/a.ts", 9);
    CbkInfo_t copy;
    copy.copyData(source);
    EXPECT_EQ(copy.cbk, source.cbk);
    EXPECT_EQ(copy.cmd, 2);
    EXPECT_EQ(copy.cbkId, 7);
    EXPECT_EQ(copy.index, 1);
    EXPECT_EQ(copy.text, "/rec/a.ts");
    EXPECT_EQ(copy.value, 9);
}

TEST(CallbackRecord, CopyDataOntoItselfKeepsTheHandler) {
    CbkInfo_t info = record(new RecordingCallback("", ""), 1, 3, 0, "f", 0);
    // The record holds the only reference to its handler.
    info.copyData(info);
    ASSERT_NE(info.cbk, nullptr);
    EXPECT_EQ(info.cbk->getStrongCount(), 1);
    EXPECT_EQ(info.text, "f");
}

TEST(CallbackThreadConstruction, StartsWithTheIdleIntervalAndDoesNotStart) {
    const android::sp<DVRCallbackThread> thread = new DVRCallbackThread();
    EXPECT_EQ(thread->interval(), 300000);
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(CallbackThreadTest, EachCommandReachesItsMethodWithItsPayload) {
    const android::sp<RecordingCallback> client = new RecordingCallback("", "");
    const std::vector<CbkInfo_t> records = {
        record(client, dvrspace::DVR_CBK_RECORD_START, 5, 0, "/rec/a.avi", 77),
        record(client, dvrspace::DVR_CBK_RECORD_FINISH, 5, 1, "/rec/b.ts", 78),
        record(client, dvrspace::DVR_CBK_ERROR, 6, 2, "ignored", -32),
        record(client, dvrspace::DVR_CBK_ERROR_SEVERE, 6, 3, "", -33),
        record(client, dvrspace::DVR_CBK_ABNORMAL, 8, 0, "", 0),
    };
    for (CbkInfo_t info : records) {
        mThread->triggerCallback(&info);
    }
    EXPECT_EQ(client->waitForCalls(5), (std::vector<std::string>{
                                           "onRecordStart(5, 0, \"/rec/a.avi\")",
                                           "onRecordFinish(5, 1, \"/rec/b.ts\")",
                                           "onRecordError(6, 2, -32)",
                                           "onRecordErrorSevere(6, 3, -33)",
                                           "onRecordAbnormal(8, 0, 0)",
                                       }));
}

TEST_F(CallbackThreadTest, DeliversTheValuesAtTheTimeOfSending) {
    const android::sp<RecordingCallback> client = new RecordingCallback("", "");
    {
        CbkInfo_t info = record(client, dvrspace::DVR_CBK_RECORD_START, 1, 0, "/rec/first", 0);
        mThread->triggerCallback(&info);
        info.text = "/rec/changed";
        info.cbkId = 99;
    }  // and destroyed at once
    EXPECT_EQ(client->waitForCalls(1),
              (std::vector<std::string>{"onRecordStart(1, 0, \"/rec/first\")"}));
}

TEST_F(CallbackThreadTest, DeliversTwoProducersInTheOrderTheyQueued) {
    const android::sp<RecordingCallback> client = new RecordingCallback("", "");
    std::mutex sendOrderLock;
    std::vector<std::string> sent;
    auto produce = [&](int producer) {
        for (int i = 0; i < 50; ++i) {
            CbkInfo_t info = record(client, dvrspace::DVR_CBK_ERROR, producer, i, "", i);
            std::lock_guard<std::mutex> lock(sendOrderLock);
            mThread->triggerCallback(&info);
            sent.push_back("onRecordError(" + std::to_string(producer) + ", " + std::to_string(i) +
                           ", " + std::to_string(i) + ")");
        }
    };
    std::thread first(produce, 1);
    std::thread second(produce, 2);
    first.join();
    second.join();
    EXPECT_EQ(client->waitForCalls(100), sent);
}

TEST_F(CallbackThreadTest, ExitAndWaitDeliversTenPendingRecordsThenEnds) {
    const android::sp<GatedCallback> client = new GatedCallback();
    CbkInfo_t blocker = record(client, dvrspace::DVR_CBK_RECORD_START, 0, 0, "/rec/held", 0);
    mThread->triggerCallback(&blocker);
    client->waitUntilEntered();
    std::vector<std::string> expected = {"onRecordStart(0, 0, \"/rec/held\")"};
    for (int i = 1; i <= 10; ++i) {
        CbkInfo_t info =
            record(client, dvrspace::DVR_CBK_RECORD_FINISH, i, 0, "/rec/" + std::to_string(i), 0);
        mThread->triggerCallback(&info);
        expected.push_back("onRecordFinish(" + std::to_string(i) + ", 0, \"/rec/" +
                           std::to_string(i) + "\")");
    }
    android::status_t status = -1;
    std::thread stopper([&] { status = mThread->exitAndWait(); });
    client->open();
    stopper.join();
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(mThread->isRunning());
    EXPECT_EQ(client->waitForCalls(11), expected);
}

TEST_F(CallbackThreadTest, ExitAndWaitWakesAThreadWaitingOnAnEmptyQueue) {
    EXPECT_EQ(mThread->exitAndWait(), 0);
    EXPECT_FALSE(mThread->isRunning());
}

TEST_F(CallbackThreadTest, RecordsAfterTheStopAreDroppedSilently) {
    ASSERT_EQ(mThread->exitAndWait(), 0);
    const android::sp<RecordingCallback> client = new RecordingCallback("", "");
    dvrtest::LogCapture logs;
    CbkInfo_t info = record(client, dvrspace::DVR_CBK_RECORD_START, 1, 0, "/rec/late", 0);
    mThread->triggerCallback(&info);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(client->waitForCalls(0).empty());
    EXPECT_TRUE(logs.lines().empty());
}

TEST(CallbackThreadDeathTest, CommandFiveAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            android::sp<DVRCallbackThread> thread = new DVRCallbackThread();
            thread->run("DVR Callback Thread", 0, 0);
            CbkInfo_t info = record(new RecordingCallback("", ""), 5, 1, 0, "", 0);
            thread->triggerCallback(&info);
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "\\[threadLoop:[0-9]+\\] Invalid callback command type: 5\n(.|\n)*"
        "Assertion failed: 0, file DVRCallbackThread.cpp");
}

class CallbackThreadBadCommandDeathTest : public ::testing::TestWithParam<int> {};

TEST_P(CallbackThreadBadCommandDeathTest, CommandOutsideTheListAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const int cmd = GetParam();
    EXPECT_DEATH(
        {
            android::sp<DVRCallbackThread> thread = new DVRCallbackThread();
            thread->run("DVR Callback Thread", 0, 0);
            CbkInfo_t info = record(new RecordingCallback("", ""), cmd, 1, 0, "", 0);
            thread->triggerCallback(&info);
            std::this_thread::sleep_for(std::chrono::seconds(30));
        },
        "Invalid callback command type: " + std::to_string(cmd) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, CallbackThreadBadCommandDeathTest, ::testing::Values(0, 7, -1),
                         [](const ::testing::TestParamInfo<int> &info) {
                             return info.param < 0 ? "Minus" + std::to_string(-info.param)
                                                   : "Value" + std::to_string(info.param);
                         });

}  // namespace
