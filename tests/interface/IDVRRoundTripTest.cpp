// Every IDVR operation from a client process through BpDVR to a service
// process and back: the service's transcript shows each argument as it
// arrived, field by field, and the client compares every result and
// out-parameter with what the service was told to answer.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <thread>

#include "Describe.h"
#include "IDVROperations.h"
#include "RecordingCallback.h"
#include "ServiceProcess.h"

using namespace dvrspace;
using dvrtest::describe;
using dvrtest::RecordingDVR;
using dvrtest::ServiceProcess;
using Lines = std::vector<std::string>;

namespace {

RecordingDVR::Plan chosenAnswers() {
    RecordingDVR::Plan plan;
    plan.results = {
        {"registerCallback", -3},
        {"unregisterCallback", -1},
        {"establishCallback", 0},
        {"destroyCallback", -1},
        {"startRecordAll", -7},
        {"stopRecordAll", -5},
        {"applySettingsAll", -3},
        {"abandonNewSettingsAll", 0},
        {"factoryReset", 0},
        {"setCameraSources", -3},
        {"setAudioRecording", 0},
        {"getCameraCount", 4},
        {"getCamera", 0},
        {"getAudioCount", 2},
        {"getAudio", 0},
        {"getRecorderCount", 3},
        {"getEncoder", 0},
        {"attachCamera", -2},
        {"detachCamera", 0},
        {"getAttachedCamera", 0},
        {"attachAudio", -1},
        {"detachAudio", 0},
        {"getAttachedAudio", 0},
        {"startRecord", -3},
        {"stopRecord", -27},
        {"autoNextFile", 0},
        {"nextFile", -2},
        {"setStoragePath", 0},
        {"setFileNameFormat", -2},
        {"applySettings", -3},
        {"abandonNewSettings", 0},
        {"takeSnapshot", 0},
        {"setOutputFormat", 0},
        {"setBitRate", -2},
        {"setFrameRate", 0},
        {"setResolution", -2},
        {"setFileLength", 0},
        {"setTimestamp", 0},
        {"setSelfDefinedStamp", -3},
        {"getCurrentState", DVR_STM_RECORDING},
        {"getEncoderCapability", 0},
        {"getOutputFormat", -1},
        {"getBitRate", 8},
        {"getFrameRate", 25},
        {"getResolution", 2},
        {"getFileLength", 60},
        {"getTimestampSetting", 0},
        {"getSelfDefinedStampSetting", 0},
        {"getCameraCapability", 0},
        {"getAudioCapability", 0},
        {"setSamplingRate", -2},
    };
    plan.flag = true;
    plan.outId = 1700;
    plan.deviceType = QV_DVR_DEVICE_TYPE_USB;
    plan.samplingRates = {8000, 16000, 48000};
    plan.snapshot = {{0x10000000u, 0x20000000u}, 1920, 1080, 2048, 0x123456789abcdef0ull};
    plan.stamp = {true, 32, -16, QV_DVR_STAMP_FONT_SIZE_LARGEST, 250, 1500};
    plan.encoderCaps = {255, 1920, 1080, 3600, 10, 20, 1, 60, 5};
    plan.cameraCaps = {1280, 720, 1280, DVR_VIDEO_FORMAT_NV12};
    plan.audioCaps = {{2, 16}};
    return plan;
}

class IDVRRoundTrip : public ::testing::Test {
protected:
    void SetUp() override {
        mDVR = mService.connect();
        ASSERT_NE(nullptr, mDVR);
    }

    const RecordingDVR::Plan mPlan = chosenAnswers();
    ServiceProcess mService{mPlan};
    android::sp<IDVR> mDVR;
};

}  // namespace

TEST_F(IDVRRoundTrip, CallbackRegistrationCarriesPidIdTypeAndTheCallbackObject) {
    const android::sp<IDVRCallback> callback = new dvrtest::RecordingCallback("", "");
    EXPECT_EQ(-3, mDVR->registerCallback(1234, 7, DVR_CBK_OBJ_FILENAME));
    EXPECT_EQ(-1, mDVR->unregisterCallback(-1234, -7, static_cast<DVRCbkObjType_e>(9)));
    EXPECT_EQ(0, mDVR->establishCallback(getpid(), callback));
    EXPECT_EQ(0, mDVR->establishCallback(5, nullptr));
    EXPECT_EQ(-1, mDVR->destroyCallback(1234));
    EXPECT_EQ((Lines{"0 registerCallback(1234, 7, 4)", "1 unregisterCallback(-1234, -7, 9)",
                     "2 establishCallback(" + std::to_string(getpid()) + ", callback)",
                     "2 establishCallback(5, null)", "3 destroyCallback(1234)"}),
              mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, OperationsOnEveryRecorderCarryTheirResults) {
    EXPECT_EQ(-7, mDVR->startRecordAll());
    EXPECT_EQ(-5, mDVR->stopRecordAll());
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->applySettingsAll());
    EXPECT_EQ(DVR_SUCCESS, mDVR->abandonNewSettingsAll());
    EXPECT_EQ(DVR_SUCCESS, mDVR->factoryReset());
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->setCameraSources(3, {2, 0, -1}));
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->setCameraSources(0, {}));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setAudioRecording(-1, true));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setAudioRecording(4, false));
    EXPECT_TRUE(mDVR->getAudioRecording(99));
    EXPECT_EQ(
        (Lines{"4 startRecordAll()", "5 stopRecordAll()", "6 applySettingsAll()",
               "7 abandonNewSettingsAll()", "8 factoryReset()", "9 setCameraSources(3, [2,0,-1])",
               "9 setCameraSources(0, [])", "10 setAudioRecording(-1, true)",
               "10 setAudioRecording(4, false)", "11 getAudioRecording(99)"}),
        mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, DeviceQueriesFillTheClientsOutputPointers) {
    int camId = -5;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_UNKNOWN;
    int audId = -6;
    int encId = -7;
    EXPECT_EQ(4, mDVR->getCameraCount());
    EXPECT_EQ(DVR_SUCCESS, mDVR->getCamera(2, &camId, &type));
    EXPECT_EQ(1700, camId);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_USB, type);
    EXPECT_EQ(2, mDVR->getAudioCount());
    EXPECT_EQ(DVR_SUCCESS, mDVR->getAudio(1, &audId));
    EXPECT_EQ(1700, audId);
    EXPECT_EQ((std::set<unsigned int>{8000, 16000, 48000}), mDVR->getSupportSamplingRate());
    EXPECT_EQ(3, mDVR->getRecorderCount());
    EXPECT_EQ(DVR_SUCCESS, mDVR->getEncoder(-3, &encId));
    EXPECT_EQ(1700, encId);
    EXPECT_EQ((Lines{"12 getCameraCount()", "13 getCamera(2, &-5, &0)", "14 getAudioCount()",
                     "15 getAudio(1, &-6)", "16 getSupportSamplingRate()", "17 getRecorderCount()",
                     "18 getEncoder(-3, &-7)"}),
              mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, NullOutputPointersReachTheServiceWhichAnswersMinusTwo) {
    int id = 41;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_MIPI;
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getCamera(0, nullptr, &type));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getCamera(0, &id, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getAudio(0, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getEncoder(0, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getAttachedCamera(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getAttachedAudio(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setTimestamp(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setSelfDefinedStamp(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getEncoderCapability(0, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getTimestampSetting(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getSelfDefinedStampSetting(1, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getCameraCapability(3, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->getAudioCapability(3, nullptr));
    // The non-null partner of a null pointer is not written.
    EXPECT_EQ(41, id);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_MIPI, type);
    EXPECT_EQ(
        (Lines{"13 getCamera(0, null, &1)", "13 getCamera(0, &41, null)", "15 getAudio(0, null)",
               "18 getEncoder(0, null)", "21 getAttachedCamera(1, null)",
               "24 getAttachedAudio(1, null)", "39 setTimestamp(1, null)",
               "40 setSelfDefinedStamp(1, null)", "43 getEncoderCapability(0, null)",
               "49 getTimestampSetting(1, null)", "50 getSelfDefinedStampSetting(1, null)",
               "51 getCameraCapability(3, null)", "52 getAudioCapability(3, null)"}),
        mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, DeviceAttachmentCarriesIdsAndTheAttachedIndex) {
    int cameraIndex = -1;
    int audioIndex = -1;
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->attachCamera(100, 200));
    EXPECT_EQ(DVR_SUCCESS, mDVR->detachCamera(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getAttachedCamera(100, &cameraIndex));
    EXPECT_EQ(1700, cameraIndex);
    EXPECT_EQ(DVR_FAILURE, mDVR->attachAudio(101, 300));
    EXPECT_EQ(DVR_SUCCESS, mDVR->detachAudio(101));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getAttachedAudio(101, &audioIndex));
    EXPECT_EQ(1700, audioIndex);
    EXPECT_EQ((Lines{"19 attachCamera(100, 200)", "20 detachCamera(100)",
                     "21 getAttachedCamera(100, &-1)", "22 attachAudio(101, 300)",
                     "23 detachAudio(101)", "24 getAttachedAudio(101, &-1)"}),
              mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, RecordingAndFileOperationsKeepNullTextsApartFromEmptyOnes) {
    SnapshotPA_t snapshot = {{1, 2}, 3, 4, 5, 6};
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->startRecord(100));
    EXPECT_EQ(-27, mDVR->stopRecord(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->autoNextFile(100, true));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->nextFile(100, "/data/rec/a b [1].ts"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->nextFile(100, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->nextFile(100, ""));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setStoragePath(100, "/mnt/sd"));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setStoragePath(100, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setFileNameFormat(100, "cam_%ST_%ET", nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setFileNameFormat(100, nullptr, "%Y%m%d"));
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->applySettings(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->abandonNewSettings(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->takeSnapshot(100, snapshot));
    EXPECT_EQ(describe(mPlan.snapshot), describe(snapshot));
    EXPECT_EQ(
        (Lines{"25 startRecord(100)", "26 stopRecord(100)", "27 autoNextFile(100, true)",
               "28 nextFile(100, \"/data/rec/a b [1].ts\")", "28 nextFile(100, null)",
               "28 nextFile(100, \"\")", "29 setStoragePath(100, \"/mnt/sd\")",
               "29 setStoragePath(100, null)", "30 setFileNameFormat(100, \"cam_%ST_%ET\", null)",
               "30 setFileNameFormat(100, null, \"%Y%m%d\")", "31 applySettings(100)",
               "32 abandonNewSettings(100)",
               "33 takeSnapshot(100, {planePA=1u,2u width=3 height=4 stride=5 "
               "timestamp=6})"}),
        mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, StagedSettingsCarryEnumsRecordsAndOutOfRangeValues) {
    QVStampSettings_t timestamp = {true, 10, -20, QV_DVR_STAMP_FONT_SIZE_SMALL, 200, 500};
    QVStampSettings_t userStamp = {false, -1, 0, static_cast<QVDVRStampFontSize_e>(7), 0, -1};
    QVStampSettings_t readTimestamp = {};
    QVStampSettings_t readUserStamp = {};
    EncoderDeviceCaps_t caps = {};
    EXPECT_EQ(DVR_SUCCESS, mDVR->setOutputFormat(100, DVR_FILE_FORMAT_TS));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setOutputFormat(100, static_cast<DVRFileFormat_e>(-1)));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setBitRate(100, 8));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setFrameRate(100, 30));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setResolution(100, static_cast<DVRResolution_e>(4)));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setResolution(100, static_cast<DVRResolution_e>(-1)));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setFileLength(100, 60));
    EXPECT_EQ(DVR_SUCCESS, mDVR->setTimestamp(100, &timestamp));
    EXPECT_EQ(DVR_INVALID_OPERATION, mDVR->setSelfDefinedStamp(100, &userStamp));
    EXPECT_TRUE(mDVR->isSettingChanged(100));
    EXPECT_EQ(DVR_STM_RECORDING, mDVR->getCurrentState(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getEncoderCapability(-9, &caps));
    EXPECT_EQ(describe(mPlan.encoderCaps), describe(caps));
    EXPECT_EQ(static_cast<DVRFileFormat_e>(-1), mDVR->getOutputFormat(100));
    EXPECT_EQ(8 + 100, mDVR->getBitRate(100));
    EXPECT_EQ(25 + 100, mDVR->getFrameRate(100));
    EXPECT_EQ(DVR_RESOLUTION_720P, mDVR->getResolution(100));
    EXPECT_EQ(60 + 100, mDVR->getFileLength(100));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getTimestampSetting(100, &readTimestamp));
    EXPECT_EQ(describe(mPlan.stamp), describe(readTimestamp));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getSelfDefinedStampSetting(100, &readUserStamp));
    EXPECT_EQ(describe(mPlan.stamp), describe(readUserStamp));
    EXPECT_EQ(
        (Lines{"34 setOutputFormat(100, 1)", "34 setOutputFormat(100, -1)", "35 setBitRate(100, 8)",
               "36 setFrameRate(100, 30)", "37 setResolution(100, 4)", "37 setResolution(100, -1)",
               "38 setFileLength(100, 60)",
               "39 setTimestamp(100, &{enabled=true x=10 y=-20 fontSize=1 color=200 "
               "interval=500})",
               "40 setSelfDefinedStamp(100, &{enabled=false x=-1 y=0 fontSize=7 color=0 "
               "interval=-1})",
               "41 isSettingChanged(100)", "42 getCurrentState(100)",
               "43 getEncoderCapability(-9, &{file_name_length_limit=0 max_width=0 "
               "max_height=0 max_file_length=0 min_file_length=0 max_bit_rate=0 "
               "min_bit_rate=0 max_frame_rate=0 min_frame_rate=0})",
               "44 getOutputFormat(100)", "45 getBitRate(100)", "46 getFrameRate(100)",
               "47 getResolution(100)", "48 getFileLength(100)",
               "49 getTimestampSetting(100, &{enabled=false x=0 y=0 fontSize=0 color=0 "
               "interval=0})",
               "50 getSelfDefinedStampSetting(100, &{enabled=false x=0 y=0 fontSize=0 "
               "color=0 interval=0})"}),
        mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, DeviceCapabilitiesAndSamplingRateCarryEveryField) {
    CameraDeviceCaps_t cameraCaps = {};
    AudioDeviceCaps_t audioCaps = {};
    EXPECT_EQ(DVR_SUCCESS, mDVR->getCameraCapability(7, &cameraCaps));
    EXPECT_EQ(describe(mPlan.cameraCaps), describe(cameraCaps));
    EXPECT_EQ(DVR_SUCCESS, mDVR->getAudioCapability(8, &audioCaps));
    EXPECT_EQ(describe(mPlan.audioCaps), describe(audioCaps));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setSamplingRate(8, 44100u));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mDVR->setSamplingRate(8, 4294967295u));
    EXPECT_EQ((Lines{"51 getCameraCapability(7, &{width=0 height=0 stride=0 format=0})",
                     "52 getAudioCapability(8, &{caps=0,0})", "53 setSamplingRate(8, 44100u)",
                     "53 setSamplingRate(8, 4294967295u)"}),
              mService.newTranscriptLines());
}

TEST_F(IDVRRoundTrip, EveryTransactionCodeReachesItsOperationInInterfaceOrder) {
    const std::vector<std::string> &interfaceOrder = dvrtest::idvrOperations();
    ASSERT_EQ(54u, interfaceOrder.size());

    int id = 0;
    QVDVRDeviceType_e type{};
    SnapshotPA_t snapshot{};
    QVStampSettings_t stamp{};
    EncoderDeviceCaps_t encoderCaps{};
    CameraDeviceCaps_t cameraCaps{};
    AudioDeviceCaps_t audioCaps{};
    mDVR->registerCallback(1, 1, DVR_CBK_OBJ_RECORD);
    mDVR->unregisterCallback(1, 1, DVR_CBK_OBJ_RECORD);
    mDVR->establishCallback(1, nullptr);
    mDVR->destroyCallback(1);
    mDVR->startRecordAll();
    mDVR->stopRecordAll();
    mDVR->applySettingsAll();
    mDVR->abandonNewSettingsAll();
    mDVR->factoryReset();
    mDVR->setCameraSources(1, {1});
    mDVR->setAudioRecording(1, true);
    mDVR->getAudioRecording(1);
    mDVR->getCameraCount();
    mDVR->getCamera(1, &id, &type);
    mDVR->getAudioCount();
    mDVR->getAudio(1, &id);
    mDVR->getSupportSamplingRate();
    mDVR->getRecorderCount();
    mDVR->getEncoder(1, &id);
    mDVR->attachCamera(1, 1);
    mDVR->detachCamera(1);
    mDVR->getAttachedCamera(1, &id);
    mDVR->attachAudio(1, 1);
    mDVR->detachAudio(1);
    mDVR->getAttachedAudio(1, &id);
    mDVR->startRecord(1);
    mDVR->stopRecord(1);
    mDVR->autoNextFile(1, true);
    mDVR->nextFile(1, "a");
    mDVR->setStoragePath(1, "a");
    mDVR->setFileNameFormat(1, "a", "b");
    mDVR->applySettings(1);
    mDVR->abandonNewSettings(1);
    mDVR->takeSnapshot(1, snapshot);
    mDVR->setOutputFormat(1, DVR_FILE_FORMAT_AVI);
    mDVR->setBitRate(1, 1);
    mDVR->setFrameRate(1, 1);
    mDVR->setResolution(1, DVR_RESOLUTION_INPUT);
    mDVR->setFileLength(1, 1);
    mDVR->setTimestamp(1, &stamp);
    mDVR->setSelfDefinedStamp(1, &stamp);
    mDVR->isSettingChanged(1);
    mDVR->getCurrentState(1);
    mDVR->getEncoderCapability(1, &encoderCaps);
    mDVR->getOutputFormat(1);
    mDVR->getBitRate(1);
    mDVR->getFrameRate(1);
    mDVR->getResolution(1);
    mDVR->getFileLength(1);
    mDVR->getTimestampSetting(1, &stamp);
    mDVR->getSelfDefinedStampSetting(1, &stamp);
    mDVR->getCameraCapability(1, &cameraCaps);
    mDVR->getAudioCapability(1, &audioCaps);
    mDVR->setSamplingRate(1, 1);

    const Lines lines = mService.newTranscriptLines();
    ASSERT_EQ(54u, lines.size());
    for (size_t code = 0; code < lines.size(); ++code) {
        const std::string expected = std::to_string(code) + " " + interfaceOrder[code] + "(";
        EXPECT_EQ(expected, lines[code].substr(0, expected.size()));
    }
}

TEST_F(IDVRRoundTrip, ManyClientThreadsEachGetTheirOwnReplies) {
    constexpr int kThreads = 8;
    constexpr int kCalls = 100;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int call = 0; call < kCalls; ++call) {
                const int encId = thread * 1000 + call;
                if (mDVR->getBitRate(encId) != 8 + encId) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, mismatches.load());
    EXPECT_EQ(static_cast<size_t>(kThreads * kCalls), mService.newTranscriptLines().size());
}

TEST_F(IDVRRoundTrip, UnreachableServiceGivesFailureResultsAndLeavesOutputsAlone) {
    mService.stop();
    int id = 41;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_CVBS;
    SnapshotPA_t snapshot = {{1, 2}, 3, 4, 5, 6};
    EXPECT_EQ(DVR_FAILURE, mDVR->startRecord(1));
    EXPECT_EQ(DVR_FAILURE, mDVR->getCamera(0, &id, &type));
    EXPECT_EQ(41, id);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_CVBS, type);
    EXPECT_EQ(DVR_FAILURE, mDVR->takeSnapshot(1, snapshot));
    EXPECT_EQ("{planePA=1u,2u width=3 height=4 stride=5 timestamp=6}", describe(snapshot));
    EXPECT_EQ(-1, mDVR->getBitRate(1));
    EXPECT_EQ(static_cast<DVRStm_e>(-1), mDVR->getCurrentState(1));
    EXPECT_FALSE(mDVR->isSettingChanged(1));
    EXPECT_TRUE(mDVR->getSupportSamplingRate().empty());
}
