// The service calling a client's IDVRCallback: the five notifications and the
// two synchronous queries, both while the client waits in a call of its own
// and from a service thread of its own, with texts cut to the buffers.
#include <gtest/gtest.h>

#include <unistd.h>

#include "RecordingCallback.h"
#include "ServiceProcess.h"

using namespace dvrspace;
using dvrtest::RecordingCallback;
using dvrtest::RecordingDVR;
using dvrtest::ServiceProcess;
using Lines = std::vector<std::string>;

namespace {

RecordingDVR::Plan callingBack() {
    RecordingDVR::Plan plan;
    plan.callBackFromRecordCalls = true;
    plan.cbkId = 42;
    return plan;
}

// What the client's callback object sees for recorder index.
Lines callsSeenByClient(int index, const std::string &fileNameBuffer) {
    const std::string args = "(42, " + std::to_string(index) + ", ";
    return {"onRecordStart" + args + "\"/rec/start.ts\")",
            "onRecordFinish" + args + "\"/rec/finish.ts\")",
            "onRecordError" + args + "3)",
            "onRecordErrorSevere" + args + "4)",
            "onRecordAbnormal" + args + "0)",
            "getStampString" + args + "\"\")",
            "fileNameGenerator" + args + fileNameBuffer + ", 64)",
            "getStampString" + args + "null)",
            "fileNameGenerator" + args + "null, 64)"};
}

// What the service records of the client's answers.
Lines answersSeenByService(const std::string &stamp, const std::string &fileName) {
    return {"callback onRecordStart -> 11",
            "callback onRecordFinish -> 12",
            "callback onRecordError -> 13",
            "callback onRecordErrorSevere -> 14",
            "callback onRecordAbnormal -> 15",
            "callback getStampString -> 0 \"" + stamp + "\"",
            "callback fileNameGenerator -> 0 \"" + fileName + "\"",
            "callback getStampString(null) -> -2",
            "callback fileNameGenerator(null) -> -2"};
}

class IDVRCallbackCalls : public ::testing::Test {
protected:
    void SetUp() override {
        mDVR = mService.connect();
        ASSERT_NE(nullptr, mDVR);
    }

    ServiceProcess mService{callingBack()};
    android::sp<IDVR> mDVR;
};

}  // namespace

TEST_F(IDVRCallbackCalls, ServiceCallsEveryMethodWhileTheClientWaitsInItsOwnCall) {
    const android::sp<RecordingCallback> callback =
        new RecordingCallback("CAM 3 speed 42", "/data/next_file.ts");
    ASSERT_EQ(DVR_SUCCESS, mDVR->establishCallback(getpid(), callback));
    ASSERT_EQ(DVR_SUCCESS, mDVR->startRecord(3));
    // startRecord returned only after every callback had been answered.
    EXPECT_EQ(callsSeenByClient(3, "\"\""), callback->waitForCalls(0));
    Lines expected = {"2 establishCallback(" + std::to_string(getpid()) + ", callback)",
                      "25 startRecord(3)"};
    for (const std::string &answer : answersSeenByService("CAM 3 speed 42", "/data/next_file.ts")) {
        expected.push_back(answer);
    }
    EXPECT_EQ(expected, mService.newTranscriptLines());
}

TEST_F(IDVRCallbackCalls, ServiceCallsEveryMethodFromItsOwnThreadAfterTheCallReturned) {
    const android::sp<RecordingCallback> callback = new RecordingCallback("late", "/late.avi");
    ASSERT_EQ(DVR_SUCCESS, mDVR->establishCallback(getpid(), callback));
    ASSERT_EQ(DVR_SUCCESS, mDVR->stopRecord(5));
    EXPECT_EQ(callsSeenByClient(5, "\"\""), callback->waitForCalls(9));
    const Lines lines = mService.waitForTranscriptLines(2 + 9);
    ASSERT_EQ(11u, lines.size());
    EXPECT_EQ(answersSeenByService("late", "/late.avi"), Lines(lines.begin() + 2, lines.end()));
}

TEST_F(IDVRCallbackCalls, StampTextLongerThanTheStampBufferIsCutToFit) {
    const std::string longStamp(300, 's');
    const android::sp<RecordingCallback> callback = new RecordingCallback(longStamp, "n");
    ASSERT_EQ(DVR_SUCCESS, mDVR->establishCallback(getpid(), callback));
    ASSERT_EQ(DVR_SUCCESS, mDVR->startRecord(0));
    const Lines lines = mService.newTranscriptLines();
    ASSERT_EQ(2u + 9u, lines.size());
    EXPECT_EQ("callback getStampString -> 0 \"" +
                  std::string(IDVRCallback::kStampStringCapacity - 1, 's') + "\"",
              lines[2 + 5]);
}

TEST_F(IDVRCallbackCalls, FileNameFillingTheWholeBufferComesBackTerminated) {
    const std::string longName(100, 'f');
    const android::sp<RecordingCallback> callback = new RecordingCallback("s", longName);
    ASSERT_EQ(DVR_SUCCESS, mDVR->establishCallback(getpid(), callback));
    ASSERT_EQ(DVR_SUCCESS, mDVR->startRecord(0));
    const Lines lines = mService.newTranscriptLines();
    ASSERT_EQ(2u + 9u, lines.size());
    // The service's buffer holds 64 bytes: 63 characters and the terminator.
    EXPECT_EQ("callback fileNameGenerator -> 0 \"" + std::string(63, 'f') + "\"", lines[2 + 6]);
}

TEST_F(IDVRCallbackCalls, DestroyedCallbackIsNoLongerCalled) {
    const android::sp<RecordingCallback> callback = new RecordingCallback("s", "n");
    ASSERT_EQ(DVR_SUCCESS, mDVR->establishCallback(getpid(), callback));
    ASSERT_EQ(DVR_SUCCESS, mDVR->destroyCallback(getpid()));
    ASSERT_EQ(DVR_SUCCESS, mDVR->startRecord(0));
    EXPECT_EQ((Lines{"2 establishCallback(" + std::to_string(getpid()) + ", callback)",
                     "3 destroyCallback(" + std::to_string(getpid()) + ")", "25 startRecord(0)",
                     "callback none"}),
              mService.newTranscriptLines());
    EXPECT_TRUE(callback->waitForCalls(0).empty());
}
