// Malformed requests to BnDVR and BnDVRCallback, and malformed replies to
// BpDVR: each is refused with an error status, the implementation does not
// run, and nothing crashes. Runs in one process: the stubs are called
// directly, as the transport calls them.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

#include "RecordingCallback.h"
#include "RecordingDVR.h"
#include "TempDir.h"

using namespace dvrspace;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

constexpr uint32_t kFirst = android::IBinder::FIRST_CALL_TRANSACTION;
constexpr uint32_t kGetCameraCount = kFirst + 12;
constexpr uint32_t kGetCamera = kFirst + 13;
constexpr uint32_t kSetCameraSources = kFirst + 9;
constexpr uint32_t kNextFile = kFirst + 28;
constexpr uint32_t kSetTimestamp = kFirst + 39;
constexpr uint32_t kSetAudioRecording = kFirst + 10;
constexpr uint32_t kRegisterCallback = kFirst;
constexpr uint32_t kGetStampString = kFirst + 5;
constexpr uint32_t kFileNameGenerator = kFirst + 6;

// Sends target a request of token, words and, when given, text.
status_t sendRequest(const sp<android::IBinder> &target, uint32_t code,
                     const android::String16 &token, const std::vector<int32_t> &words,
                     const char *text = nullptr) {
    Parcel data;
    data.writeInterfaceToken(token);
    for (int32_t word : words) {
        data.writeInt32(word);
    }
    if (text != nullptr) {
        data.writeCString(text);
    }
    data.setDataPosition(0);
    Parcel reply;
    return target->transact(code, data, &reply);
}

class HostileInput : public ::testing::Test {
protected:
    // Sends words after the IDVR token (or after token, when given).
    status_t send(uint32_t code, const std::vector<int32_t> &words,
                  const char *token = "dvrspace.IDVR") {
        return sendRequest(mService, code, android::String16(token), words);
    }

    std::string transcript() const {
        std::ifstream file(mTranscript);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    dvrtest::TempDir mDir;
    const std::string mTranscript = mDir.file("transcript");
    const sp<dvrtest::RecordingDVR> mService =
        new dvrtest::RecordingDVR(dvrtest::RecordingDVR::Plan(), mTranscript);
};

// A service that answers every call with the reply it was given.
class ScriptedReplyBinder : public android::BBinder {
public:
    explicit ScriptedReplyBinder(std::vector<int32_t> words, const char *text = nullptr)
        : mWords(std::move(words)), mText(text) {}

protected:
    status_t onTransact(uint32_t, const Parcel &, Parcel *reply, uint32_t) override {
        for (int32_t word : mWords) {
            reply->writeInt32(word);
        }
        if (mText != nullptr) {
            reply->writeCString(mText);
        }
        return android::OK;
    }

private:
    const std::vector<int32_t> mWords;
    const char *const mText;
};

}  // namespace

TEST_F(HostileInput, WrongInterfaceTokenIsRefusedWithPermissionDenied) {
    EXPECT_EQ(android::PERMISSION_DENIED, send(kGetCameraCount, {}, "dvrspace.IDVRCallback"));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, MissingInterfaceTokenIsRefusedWithPermissionDenied) {
    Parcel data;
    Parcel reply;
    EXPECT_EQ(android::PERMISSION_DENIED, mService->transact(kGetCameraCount, data, &reply));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, TruncatedArgumentsAreRefusedAndTheOperationDoesNotRun) {
    EXPECT_NE(android::OK, send(kRegisterCallback, {1, 2}));
    EXPECT_NE(android::OK, send(kGetCamera, {0, 1}));
    EXPECT_NE(android::OK, send(kSetTimestamp, {1, 1, 1, 10, 20, 3}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, TrailingBytesAfterTheArgumentsAreRefusedWithBadValue) {
    EXPECT_EQ(android::BAD_VALUE, send(kGetCameraCount, {0}));
    EXPECT_EQ(android::BAD_VALUE, send(kRegisterCallback, {1, 2, 3, 4}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, ForgedSequenceCountsAreRefusedWithBadValue) {
    EXPECT_EQ(android::BAD_VALUE, send(kSetCameraSources, {1, 0x7fffffff, 1}));
    EXPECT_EQ(android::BAD_VALUE, send(kSetCameraSources, {1, -1}));
    EXPECT_EQ(android::BAD_VALUE, send(kSetCameraSources, {1, 2, 7}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, NullMarkersAndBooleansOtherThanZeroOrOneAreRefusedWithBadValue) {
    EXPECT_EQ(android::BAD_VALUE, send(kGetCamera, {0, 2, 5, 1, 0}));
    EXPECT_EQ(android::BAD_VALUE, send(kSetAudioRecording, {1, 2}));
    EXPECT_EQ(android::BAD_VALUE, send(kSetTimestamp, {1, 1, 7, 10, 20, 3, 200, 500}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, StampColourOutsideOneByteIsRefusedWithBadValue) {
    EXPECT_EQ(android::BAD_VALUE, send(kSetTimestamp, {1, 1, 1, 10, 20, 3, 256, 500}));
    EXPECT_EQ(android::BAD_VALUE, send(kSetTimestamp, {1, 1, 1, 10, 20, 3, -1, 500}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, TextMarkedPresentButMissingIsRefused) {
    EXPECT_NE(android::OK, send(kNextFile, {1, 1}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, UnknownCodesGiveUnknownTransaction) {
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, send(kFirst + 54, {}));
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, send(android::IBinder::LAST_CALL_TRANSACTION, {}));
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, send(0, {}));
    EXPECT_EQ("", transcript());
}

TEST_F(HostileInput, EveryCodeWithOnlyTheTokenRunsOnlyTheOperationsWithoutArguments) {
    for (uint32_t code = kFirst; code < kFirst + 54; ++code) {
        send(code, {});
    }
    EXPECT_EQ(
        "4 startRecordAll()\n5 stopRecordAll()\n6 applySettingsAll()\n"
        "7 abandonNewSettingsAll()\n8 factoryReset()\n12 getCameraCount()\n14 getAudioCount()\n"
        "16 getSupportSamplingRate()\n17 getRecorderCount()\n",
        transcript());
}

TEST_F(HostileInput, RandomRequestsLeaveTheStubServingValidOnes) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 3000; ++round) {
        std::vector<int32_t> words(random() % 12);
        for (int32_t &word : words) {
            // Mostly small values, so markers and counts are sometimes valid.
            word = random() % 4 == 0 ? static_cast<int32_t>(random()) : random() % 3;
        }
        send(kFirst + random() % 56, words);
    }
    const std::string before = transcript();
    EXPECT_EQ(android::OK, send(kGetCameraCount, {}));
    EXPECT_EQ(before + "12 getCameraCount()\n", transcript());
}

TEST(HostileCallbackInput, FileNameLengthOutsideTheAcceptedRangeIsRefusedWithBadValue) {
    const sp<dvrtest::RecordingCallback> callback = new dvrtest::RecordingCallback("s", "n");
    EXPECT_EQ(android::BAD_VALUE,
              sendRequest(callback, kFileNameGenerator, IDVRCallback::descriptor, {1, 2, 0, -1}));
    EXPECT_EQ(android::BAD_VALUE,
              sendRequest(callback, kFileNameGenerator, IDVRCallback::descriptor,
                          {1, 2, 0, IDVRCallback::kMaxFileNameCapacity + 1}));
    EXPECT_TRUE(callback->waitForCalls(0).empty());
}

TEST(HostileCallbackInput, StampTextLongerThanTheStampBufferIsRefusedWithBadValue) {
    const sp<dvrtest::RecordingCallback> callback = new dvrtest::RecordingCallback("s", "n");
    const std::string tooLong(IDVRCallback::kStampStringCapacity, 'x');
    EXPECT_EQ(android::BAD_VALUE, sendRequest(callback, kGetStampString, IDVRCallback::descriptor,
                                              {1, 2, 1}, tooLong.c_str()));
    EXPECT_TRUE(callback->waitForCalls(0).empty());
}

TEST(HostileCallbackInput, WrongInterfaceTokenIsRefusedWithPermissionDenied) {
    const sp<dvrtest::RecordingCallback> callback = new dvrtest::RecordingCallback("s", "n");
    EXPECT_EQ(android::PERMISSION_DENIED,
              sendRequest(callback, kFirst + 2, IDVR::descriptor, {1, 2, 3}));
    EXPECT_TRUE(callback->waitForCalls(0).empty());
}

TEST(HostileReply, ShortReplyGivesFailureAndLeavesOutputsAlone) {
    const sp<IDVR> proxy = new BpDVR(new ScriptedReplyBinder({}));
    int camId = 41;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_MIPI;
    EXPECT_EQ(DVR_FAILURE, proxy->getCamera(0, &camId, &type));
    EXPECT_EQ(41, camId);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_MIPI, type);
}

TEST(HostileReply, ReplyMissingAnOutputGivesFailureAndLeavesEveryOutputAlone) {
    // Result 0 and the camera id, but no device type.
    const sp<IDVR> proxy = new BpDVR(new ScriptedReplyBinder({0, 77}));
    int camId = 41;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_MIPI;
    EXPECT_EQ(DVR_FAILURE, proxy->getCamera(0, &camId, &type));
    EXPECT_EQ(41, camId);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_MIPI, type);
}

TEST(HostileReply, ForgedSetCountGivesAnEmptySet) {
    const sp<IDVR> proxy = new BpDVR(new ScriptedReplyBinder({0x7fffffff, 8000}));
    EXPECT_TRUE(proxy->getSupportSamplingRate().empty());
}

TEST(HostileReply, ShortQueryReplyGivesAnErrorAndLeavesTheBufferAlone) {
    const sp<IDVRCallback> proxy = new BpDVRCallback(new ScriptedReplyBinder({0}));
    char buffer[4] = {'a', 'b', 'c', '\0'};
    EXPECT_NE(0, proxy->fileNameGenerator(1, 2, buffer, sizeof buffer));
    EXPECT_STREQ("abc", buffer);
}

TEST(HostileReply, OverlongQueryAnswerIsCutToTheCallersBuffer) {
    const sp<IDVRCallback> proxy =
        new BpDVRCallback(new ScriptedReplyBinder({7, 1}, "far too long a name"));
    char buffer[4] = {};
    EXPECT_EQ(7, proxy->fileNameGenerator(1, 2, buffer, sizeof buffer));
    EXPECT_STREQ("far", buffer);
    char stamp[IDVRCallback::kStampStringCapacity] = {};
    const std::string longStamp(500, 'x');
    const sp<IDVRCallback> stampProxy =
        new BpDVRCallback(new ScriptedReplyBinder({0, 1}, longStamp.c_str()));
    EXPECT_EQ(0, stampProxy->getStampString(1, 2, stamp));
    EXPECT_EQ(std::string(IDVRCallback::kStampStringCapacity - 1, 'x'), stamp);
}
