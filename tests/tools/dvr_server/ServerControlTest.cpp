// Result codes of the IDVR operations through a running dvr_server: a good
// id, an unknown id and bad arguments, as a client in another process gets
// them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <set>

#include "ClientCallback.h"
#include "ServerProcess.h"

namespace {

using namespace dvrspace;
using dvrtest::ServerProcess;

constexpr int kUnknown = 999;
constexpr int kEncoder = ServerProcess::kEncoderIds[0];
constexpr int kCamera = ServerProcess::kCameraIds[0];
constexpr int kAudio = ServerProcess::kAudioId;

class ServerControl : public ::testing::Test {
protected:
    void SetUp() override {
        server.start();
        dvr = server.connect();
        ASSERT_NE(nullptr, dvr);
    }

    ServerProcess server;
    android::sp<IDVR> dvr;
};

TEST_F(ServerControl, DevicesAndEncodersAreListedByIndexAndBadIndicesAreRefused) {
    int id = 0;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_UNKNOWN;
    for (int index = 0; index < 2; ++index) {
        ASSERT_EQ(DVR_SUCCESS, dvr->getCamera(index, &id, &type));
        EXPECT_EQ(ServerProcess::kCameraIds[index], id);
        EXPECT_EQ(QV_DVR_DEVICE_TYPE_SIMULATED, type);
        ASSERT_EQ(DVR_SUCCESS, dvr->getEncoder(index, &id));
        EXPECT_EQ(ServerProcess::kEncoderIds[index], id);
    }
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getCamera(2, &id, &type));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getCamera(-1, &id, &type));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getCamera(0, nullptr, &type));
    ASSERT_EQ(DVR_SUCCESS, dvr->getAudio(0, &id));
    EXPECT_EQ(kAudio, id);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getAudio(1, &id));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getAudio(0, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getEncoder(2, &id));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getEncoder(0, nullptr));
    // The encoder's rates that the audio input has too.
    EXPECT_EQ((std::set<unsigned int>{8000, 16000, 32000, 44100, 48000}),
              dvr->getSupportSamplingRate());
}

TEST_F(ServerControl, CapabilitiesAreGivenByDeviceId) {
    CameraDeviceCaps_t camera{};
    ASSERT_EQ(DVR_SUCCESS, dvr->getCameraCapability(kCamera, &camera));
    EXPECT_EQ(320, camera.width);
    EXPECT_EQ(240, camera.height);
    EXPECT_EQ(320, camera.stride);
    EXPECT_EQ(DVR_FAILURE, dvr->getCameraCapability(kUnknown, &camera));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getCameraCapability(kCamera, nullptr));

    AudioDeviceCaps_t audio{};
    ASSERT_EQ(DVR_SUCCESS, dvr->getAudioCapability(kAudio, &audio));
    EXPECT_EQ(1, audio.caps[0]);   // channels
    EXPECT_EQ(16, audio.caps[1]);  // bits per sample
    EXPECT_EQ(DVR_FAILURE, dvr->getAudioCapability(kUnknown, &audio));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->getAudioCapability(kAudio, nullptr));

    EncoderDeviceCaps_t encoder{};
    ASSERT_EQ(DVR_SUCCESS, dvr->getEncoderCapability(kUnknown, &encoder));
    EXPECT_EQ(255, encoder.file_name_length_limit);
    EXPECT_EQ(1, encoder.min_file_length);
}

TEST_F(ServerControl, SamplingRateMustSuitBothTheEncoderAndTheAudioInput) {
    EXPECT_EQ(DVR_SUCCESS, dvr->setSamplingRate(kAudio, 48000));
    // 22050 only the encoder takes.
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setSamplingRate(kAudio, 22050));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setSamplingRate(kAudio, 12345));
    EXPECT_EQ(DVR_FAILURE, dvr->setSamplingRate(kUnknown, 16000));
}

TEST_F(ServerControl, EveryChannelOperationAnswersMinusOneForAnUnknownEncoder) {
    QVStampSettings_t stamp{true, 8, 8, QV_DVR_STAMP_FONT_SIZE_SMALL, 7, 0};
    SnapshotPA_t snapshot{};
    const std::vector<std::pair<const char *, int>> results = {
        {"attachCamera", dvr->attachCamera(kUnknown, kCamera)},
        {"detachCamera", dvr->detachCamera(kUnknown)},
        {"attachAudio", dvr->attachAudio(kUnknown, kAudio)},
        {"detachAudio", dvr->detachAudio(kUnknown)},
        {"setAudioRecording", dvr->setAudioRecording(kUnknown, true)},
        {"startRecord", dvr->startRecord(kUnknown)},
        {"stopRecord", dvr->stopRecord(kUnknown)},
        {"autoNextFile", dvr->autoNextFile(kUnknown, true)},
        {"nextFile", dvr->nextFile(kUnknown, "/tmp/x.ts")},
        {"setStoragePath", dvr->setStoragePath(kUnknown, "/tmp")},
        {"setFileNameFormat", dvr->setFileNameFormat(kUnknown, "%ST.ts", "%H")},
        {"applySettings", dvr->applySettings(kUnknown)},
        {"abandonNewSettings", dvr->abandonNewSettings(kUnknown)},
        {"takeSnapshot", dvr->takeSnapshot(kUnknown, snapshot)},
        {"setOutputFormat", dvr->setOutputFormat(kUnknown, DVR_FILE_FORMAT_AVI)},
        {"setBitRate", dvr->setBitRate(kUnknown, 4)},
        {"setFrameRate", dvr->setFrameRate(kUnknown, 10)},
        {"setResolution", dvr->setResolution(kUnknown, DVR_RESOLUTION_INPUT)},
        {"setFileLength", dvr->setFileLength(kUnknown, 10)},
        {"setTimestamp", dvr->setTimestamp(kUnknown, &stamp)},
        {"setSelfDefinedStamp", dvr->setSelfDefinedStamp(kUnknown, &stamp)},
        {"getTimestampSetting", dvr->getTimestampSetting(kUnknown, &stamp)},
        {"getSelfDefinedStampSetting", dvr->getSelfDefinedStampSetting(kUnknown, &stamp)},
        {"getOutputFormat", dvr->getOutputFormat(kUnknown)},
        {"getBitRate", dvr->getBitRate(kUnknown)},
        {"getFrameRate", dvr->getFrameRate(kUnknown)},
        {"getResolution", dvr->getResolution(kUnknown)},
        {"getFileLength", dvr->getFileLength(kUnknown)},
        {"getCurrentState", dvr->getCurrentState(kUnknown)},
    };
    for (const auto &[operation, result] : results) {
        EXPECT_EQ(-1, result) << operation;
    }
    EXPECT_FALSE(dvr->isSettingChanged(kUnknown));
    // The service is still there and unchanged.
    EXPECT_EQ(DVR_STM_IDLE, dvr->getCurrentState(kEncoder));
}

TEST_F(ServerControl, ChannelOperationsOnAGoodEncoderCheckTheirArguments) {
    EXPECT_EQ(DVR_FAILURE, dvr->attachCamera(kEncoder, kUnknown));
    EXPECT_EQ(DVR_FAILURE, dvr->attachAudio(kEncoder, kUnknown));
    EXPECT_EQ(DVR_FAILURE, dvr->setFrameRate(kEncoder, 5));  // no camera yet
    EXPECT_EQ(DVR_SUCCESS, dvr->attachCamera(kEncoder, kCamera));
    int index = -1;
    EXPECT_EQ(DVR_SUCCESS, dvr->getAttachedCamera(kEncoder, &index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(DVR_FAILURE, dvr->getAttachedAudio(kEncoder, &index));

    EXPECT_EQ(DVR_INVALID_ARGUMENT,
              dvr->setOutputFormat(kEncoder, static_cast<DVRFileFormat_e>(2)));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setBitRate(kEncoder, 0));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setFileLength(kEncoder, 0));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setFrameRate(kEncoder, 11));  // above the camera's 10
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setResolution(kEncoder, static_cast<DVRResolution_e>(4)));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->setResolution(kEncoder, static_cast<DVRResolution_e>(-1)));

    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->nextFile(kEncoder, nullptr));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->nextFile(kEncoder, ""));
    // The simulated encoder's limit is 255 bytes with the terminator.
    EXPECT_EQ(DVR_INVALID_ARGUMENT, dvr->nextFile(kEncoder, ("/" + std::string(254, 'n')).c_str()));
    EXPECT_EQ(DVR_INVALID_ARGUMENT,
              dvr->setStoragePath(kEncoder, ("/" + std::string(300, 's')).c_str()));
    EXPECT_EQ(DVR_INVALID_OPERATION, dvr->startRecord(kEncoder));
    EXPECT_EQ(DVR_INVALID_OPERATION, dvr->stopRecord(kEncoder));
    EXPECT_EQ(DVR_STM_IDLE, dvr->getCurrentState(kEncoder));

    EXPECT_EQ(DVR_SUCCESS, dvr->setFrameRate(kEncoder, 5));
    EXPECT_EQ(DVR_SUCCESS, dvr->setBitRate(kEncoder, 2));
    EXPECT_TRUE(dvr->isSettingChanged(kEncoder));
    EXPECT_EQ(DVR_SUCCESS, dvr->abandonNewSettings(kEncoder));
    EXPECT_FALSE(dvr->isSettingChanged(kEncoder));
    EXPECT_EQ(DVR_SUCCESS, dvr->setFileLength(kEncoder, 30));
    EXPECT_EQ(DVR_SUCCESS, dvr->applySettings(kEncoder));
    EXPECT_EQ(30, dvr->getFileLength(kEncoder));
    EXPECT_EQ(DVR_SUCCESS, dvr->nextFile(kEncoder, ("/" + std::string(253, 'n')).c_str()));
    EXPECT_EQ(DVR_STM_READY, dvr->getCurrentState(kEncoder));
    EXPECT_EQ(DVR_SUCCESS, dvr->detachCamera(kEncoder));
    EXPECT_EQ(DVR_FAILURE, dvr->getAttachedCamera(kEncoder, &index));
}

TEST_F(ServerControl, OperationsOnAllRecordersAnswerWhileNothingRecords) {
    EXPECT_EQ(DVR_INVALID_OPERATION, dvr->startRecordAll());
    EXPECT_EQ(DVR_INVALID_OPERATION, dvr->stopRecordAll());
    EXPECT_EQ(DVR_SUCCESS, dvr->applySettingsAll());
    EXPECT_EQ(DVR_SUCCESS, dvr->abandonNewSettingsAll());
    EXPECT_EQ(DVR_SUCCESS, dvr->factoryReset());
    EXPECT_EQ(DVR_SUCCESS, dvr->setAudioRecording(-1, false));
    EXPECT_FALSE(dvr->getAudioRecording(kUnknown));  // the argument is not used
    EXPECT_EQ(DVR_SUCCESS, dvr->setAudioRecording(kEncoder, true));
    EXPECT_TRUE(dvr->getAudioRecording(kUnknown));
    EXPECT_EQ(DVR_SUCCESS, dvr->setCameraSources(1, {1}));
    EXPECT_EQ(2, dvr->getRecorderCount());
}

TEST_F(ServerControl, CallbacksAreEstablishedSubscribedAndDestroyedPerClientProcess) {
    const android::sp<dvrtest::ClientCallback> callback = new dvrtest::ClientCallback("");
    EXPECT_EQ(DVR_SUCCESS, dvr->establishCallback(getpid(), callback));
    EXPECT_EQ(DVR_SUCCESS, dvr->registerCallback(getpid(), 1, DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(DVR_SUCCESS, dvr->unregisterCallback(getpid(), 1, DVR_CBK_OBJ_RECORD));
    EXPECT_EQ(DVR_SUCCESS, dvr->destroyCallback(getpid()));
    EXPECT_EQ(DVR_FAILURE, dvr->destroyCallback(getpid()));
    EXPECT_EQ(DVR_FAILURE, dvr->registerCallback(getpid() + 100000, 1, DVR_CBK_OBJ_RECORD));
}

// Both lookups treat an unknown encoder as a broken service and abort it.
void expectServerAbortsOn(ServerProcess &server, const std::string &assertion) {
    const int status = server.waitForExit();
    ASSERT_TRUE(WIFSIGNALED(status)) << server.log();
    EXPECT_EQ(SIGABRT, WTERMSIG(status));
    EXPECT_NE(std::string::npos, server.log().find("Assertion failed: " + assertion))
        << server.log();
}

TEST_F(ServerControl, GetAttachedCameraOfAnUnknownEncoderEndsTheServer) {
    int index = -1;
    EXPECT_EQ(DVR_FAILURE, dvr->getAttachedCamera(kUnknown, &index));
    expectServerAbortsOn(server, "enc_index >= 0 && enc_index < mRecCount");
}

TEST_F(ServerControl, GetAttachedAudioOfAnUnknownEncoderEndsTheServer) {
    int index = -1;
    EXPECT_EQ(DVR_FAILURE, dvr->getAttachedAudio(kUnknown, &index));
    expectServerAbortsOn(server, "enc_index >= 0 && enc_index < mRecCount");
}

}  // namespace
