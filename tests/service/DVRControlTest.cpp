// The control interface of the service object: the common frame around the
// per-channel operations (id lookup, the addressed recorder, its failures
// passed on), the device and encoder queries, attaching devices, resolution,
// sampling rate and capabilities, recording all channels, applying settings,
// reselecting the camera sources and the callback thread's pace. Recording
// channels run on fake encoders, so nothing is encoded.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DVR.h"
#include "DVRSimulatorControl.h"
#include "FakeEncoder.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"

using namespace dvrspace;

namespace {

constexpr const char *kTag = "DVRService";
constexpr int kUnknownId = 999;
constexpr int kFirstCameraId = 10;
constexpr int kFirstEncoderId = 100;
constexpr int kAudioId = 20;
constexpr int kIdleIntervalUs = 300000;
constexpr int kRecordingIntervalUs = 30000;

// The storage-tuning commands are for the board only.
int ignoreCommand(const char *) {
    return 0;
}

std::string pointerText(const void *pointer) {
    char text[32];
    snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

class DVRControl : public ::testing::Test {
protected:
    void SetUp() override {
        // The service runs threads of its own; a forked child would lack them.
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        mPreviousRunner = Recorder::setCommandRunner(&ignoreCommand);
    }
    void TearDown() override {
        if (mService != nullptr) {
            for (int index = 0; index < mService->getRecorderCount(); ++index) {
                Recorder *recorder = DVRPeer::recorder(*mService, index);
                if (recorder != nullptr && recorder->getCurrentState() == DVR_STM_RECORDING) {
                    EXPECT_EQ(DVR_SUCCESS, recorder->stopAndWait());
                }
            }
            // The factory releases only its own encoders.
            for (const auto &[index, real] : mRealEncoders) {
                RecorderPeer(*DVRPeer::recorder(*mService, index)).setEncoder(real);
            }
            mService.clear();
        }
        Recorder::setCommandRunner(mPreviousRunner);
    }

    // The service on small simulated cameras (ids 10, 11, ...) with one
    // encoder per camera (ids 100, 101, ...) and audio input 20.
    void build(int cameras = 2) {
        DVRSimConfig sim = DVRSimulatorControl::config();
        sim.cameras.clear();
        sim.encoder.ids.clear();
        for (int index = 0; index < cameras; ++index) {
            sim.cameras.push_back(dvrtest::smallSimCamera(kFirstCameraId + index));
            sim.encoder.ids.push_back(kFirstEncoderId + index);
        }
        if (cameras == 0) {
            sim.encoder.ids.push_back(kFirstEncoderId);
        }
        DVRSimulatorControl::setConfig(sim);
        mService = new DVR();
    }
    // Channel index with its camera attached, a fake encoder and an output
    // file: ready to record.
    void prepareRecording(int index) {
        ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(index), kFirstCameraId + index));
        RecorderPeer peer(*recorder(index));
        mRealEncoders.emplace_back(index, peer.encoder());
        mFakes[index] = std::make_unique<dvrtest::FakeEncoder>(encoderId(index));
        peer.setEncoder(mFakes[index].get());
        ASSERT_EQ(DVR_SUCCESS, mService->nextFile(encoderId(index), "clip.ts"));
    }
    // Starts channel index and waits until its encoder runs.
    void startRecording(int index) {
        const int starts = mFakes[index]->startCount();
        ASSERT_EQ(DVR_SUCCESS, mService->startRecord(encoderId(index)));
        ASSERT_TRUE(mFakes[index]->waitForStarts(starts + 1));
    }
    static int encoderId(int index) { return kFirstEncoderId + index; }
    Recorder *recorder(int index) { return DVRPeer::recorder(*mService, index); }
    RecordSettings_t stagedSettings(int index) {
        RecordSettings_t settings;
        recorder(index)->getCurrentSettings(&settings);
        return settings;
    }
    int interval() { return DVRPeer::callbackThread(*mService)->interval(); }

    size_t logged(int priority, const std::string &function, const std::string &rest) const {
        return dvrtest::countLogged(mCapture, priority, kTag, function, rest);
    }
    size_t loggedError(const std::string &function, const std::string &rest) const {
        return logged(ANDROID_LOG_ERROR, function, rest);
    }
    size_t linesOfTag(const std::string &tag) const {
        size_t count = 0;
        for (const dvrtest::LogLine &line : mCapture.lines()) {
            count += line.tag == tag ? 1 : 0;
        }
        return count;
    }

    dvrtest::RecorderTestEnv mEnv;
    dvrtest::LogCapture mCapture;
    android::sp<DVR> mService;
    std::unique_ptr<dvrtest::FakeEncoder> mFakes[3];

private:
    std::vector<std::pair<int, DVREncoderHAL *>> mRealEncoders;
    Recorder::CommandRunner mPreviousRunner = nullptr;
};

using DVRControlDeathTest = DVRControl;

struct NamedOperation {
    const char *function;
    std::function<int()> call;
};

}  // namespace

// ---------------------------------------------------------------- the common frame

TEST_F(DVRControl, UnknownEncoderIdFailsEveryChannelOperationWithItsOwnLine) {
    build();
    QVStampSettings_t stamp{true, 8, 8, QV_DVR_STAMP_FONT_SIZE_SMALL, 1, 0};
    SnapshotPA_t snapshot{};
    DVR &service = *mService;
    const int id = kUnknownId;
    const std::vector<NamedOperation> operations = {
        {"detachCamera", [&] { return service.detachCamera(id); }},
        {"detachAudio", [&] { return service.detachAudio(id); }},
        {"startRecord", [&] { return service.startRecord(id); }},
        {"stopRecord", [&] { return service.stopRecord(id); }},
        {"autoNextFile", [&] { return service.autoNextFile(id, true); }},
        {"nextFile", [&] { return service.nextFile(id, "next.ts"); }},
        {"setStoragePath", [&] { return service.setStoragePath(id, "store"); }},
        {"setFileNameFormat", [&] { return service.setFileNameFormat(id, "c_%ST", "%Y"); }},
        {"applySettings", [&] { return service.applySettings(id); }},
        {"abandonNewSettings", [&] { return service.abandonNewSettings(id); }},
        {"takeSnapshot", [&] { return service.takeSnapshot(id, snapshot); }},
        {"setOutputFormat", [&] { return service.setOutputFormat(id, DVR_FILE_FORMAT_TS); }},
        {"setBitRate", [&] { return service.setBitRate(id, 4); }},
        {"setFrameRate", [&] { return service.setFrameRate(id, 15); }},
        {"setResolution", [&] { return service.setResolution(id, DVR_RESOLUTION_INPUT); }},
        {"setFileLength", [&] { return service.setFileLength(id, 30); }},
        {"setTimestamp", [&] { return service.setTimestamp(id, &stamp); }},
        {"setSelfDefinedStamp", [&] { return service.setSelfDefinedStamp(id, &stamp); }},
        {"getTimestampSetting", [&] { return service.getTimestampSetting(id, &stamp); }},
        {"getSelfDefinedStampSetting",
         [&] { return service.getSelfDefinedStampSetting(id, &stamp); }},
        {"setAudioRecording", [&] { return service.setAudioRecording(id, false); }},
        {"attachCamera", [&] { return service.attachCamera(id, kFirstCameraId); }},
        {"attachAudio", [&] { return service.attachAudio(id, kAudioId); }},
    };
    for (const NamedOperation &operation : operations) {
        SCOPED_TRACE(operation.function);
        mCapture.clear();
        EXPECT_EQ(DVR_FAILURE, operation.call());
        EXPECT_EQ(1u,
                  loggedError(operation.function, "Encoder index not found with enc_id(999)\n"));
        EXPECT_EQ(1u, mCapture.lines().size());
    }
    EXPECT_EQ(nullptr, recorder(0)->getAttachedCamera());
    EXPECT_EQ(nullptr, recorder(0)->getAttachedAudio());
}

TEST_F(DVRControl, UnknownEncoderIdGivesMinusOneFromTheGettersAndFalseFromSettingChanged) {
    build();
    DVR &service = *mService;
    const int id = kUnknownId;
    const std::vector<NamedOperation> getters = {
        {"getOutputFormat", [&] { return static_cast<int>(service.getOutputFormat(id)); }},
        {"getBitRate", [&] { return service.getBitRate(id); }},
        {"getFrameRate", [&] { return service.getFrameRate(id); }},
        {"getResolution", [&] { return static_cast<int>(service.getResolution(id)); }},
        {"getFileLength", [&] { return service.getFileLength(id); }},
        {"getCurrentState", [&] { return static_cast<int>(service.getCurrentState(id)); }},
    };
    for (const NamedOperation &getter : getters) {
        SCOPED_TRACE(getter.function);
        mCapture.clear();
        EXPECT_EQ(-1, getter.call());
        EXPECT_EQ(1u, loggedError(getter.function, "Encoder index not found with enc_id(999)\n"));
    }
    mCapture.clear();
    EXPECT_FALSE(service.isSettingChanged(id));
    EXPECT_EQ(1u, loggedError("isSettingChanged", "Encoder index not found with enc_id(999)\n"));
}

TEST_F(DVRControl, RecorderFailurePassesThroughWithTheChannelIndex) {
    build();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->setBitRate(encoderId(1), 1000));
    EXPECT_EQ(1u, loggedError("setBitRate", "Recorder #1 failed with error code -2\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->nextFile(encoderId(0), ""));
    EXPECT_EQ(1u, loggedError("nextFile", "Recorder #0 failed with error code -2\n"));
    // A frame rate needs the camera, and none is attached.
    EXPECT_EQ(DVR_FAILURE, mService->setFrameRate(encoderId(0), 12));
    EXPECT_EQ(1u, loggedError("setFrameRate", "Recorder #0 failed with error code -1\n"));
}

TEST_F(DVRControl, SettingsReachTheAddressedChannelOnly) {
    build();
    mCapture.clear();
    const int defaultLength = mService->getFileLength(encoderId(0));
    EXPECT_EQ(DVR_STM_IDLE, mService->getCurrentState(encoderId(0)));
    EXPECT_EQ(DVR_SUCCESS, mService->setFileLength(encoderId(1), defaultLength + 5));
    EXPECT_EQ(defaultLength + 5, mService->getFileLength(encoderId(1)));
    EXPECT_EQ(defaultLength, mService->getFileLength(encoderId(0)));
    EXPECT_EQ(DVR_SUCCESS, mService->setBitRate(encoderId(0), 2));
    EXPECT_EQ(2, mService->getBitRate(encoderId(0)));
    EXPECT_EQ(4, mService->getBitRate(encoderId(1)));
    EXPECT_EQ(0u, linesOfTag(kTag));
}

TEST_F(DVRControl, AbandonAndFactoryResetOfAllChannelsAlwaysSucceed) {
    build();
    const int defaultLength = mService->getFileLength(encoderId(0));
    ASSERT_EQ(DVR_SUCCESS, mService->setFileLength(encoderId(0), defaultLength + 1));
    ASSERT_EQ(DVR_SUCCESS, mService->setFileLength(encoderId(1), defaultLength + 2));
    ASSERT_TRUE(mService->isSettingChanged(encoderId(0)));
    ASSERT_TRUE(mService->isSettingChanged(encoderId(1)));
    // Staged settings fall back to the ones in force.
    EXPECT_EQ(DVR_SUCCESS, mService->abandonNewSettingsAll());
    EXPECT_FALSE(mService->isSettingChanged(encoderId(0)));
    EXPECT_FALSE(mService->isSettingChanged(encoderId(1)));
    EXPECT_NE(defaultLength + 1, mService->getFileLength(encoderId(0)));
    EXPECT_NE(defaultLength + 2, mService->getFileLength(encoderId(1)));
    // The factory values come back.
    EXPECT_EQ(DVR_SUCCESS, mService->factoryReset());
    EXPECT_EQ(defaultLength, mService->getFileLength(encoderId(0)));
    EXPECT_EQ(defaultLength, mService->getFileLength(encoderId(1)));
    EXPECT_EQ(4, mService->getBitRate(encoderId(1)));
}

TEST_F(DVRControl, SnapshotOfAnEmptyChannelSlotFails) {
    build();
    Recorder *taken = DVRPeer::emptySlot(*mService, 0);
    SnapshotPA_t snapshot{};
    EXPECT_EQ(DVR_FAILURE, mService->takeSnapshot(encoderId(0), snapshot));
    EXPECT_EQ(1u, loggedError("takeSnapshot", "Recorder[0] is null\n"));
    DVRPeer::fillSlot(*mService, 0, taken);
}

TEST_F(DVRControlDeathTest, EncoderIdMappedOutsideTheTableAborts) {
    build();
    EXPECT_DEATH(
        {
            DVRPeer::mapEncoder(*mService, 555, 5);
            mService->setFileLength(555, 30);
        },
        "\\[setFileLength:[0-9]+\\] Unexpect encoder index\\(5\\) gotten from enc_id\\(555\\)!\n"
        "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, CameraIdMappedOutsideTheTableAbortsTheAttach) {
    build();
    EXPECT_DEATH(
        {
            DVRPeer::mapCamera(*mService, 55, 5);
            mService->attachCamera(encoderId(0), 55);
        },
        "\\[attachCamera:[0-9]+\\] Unexpect camera index\\(5\\) gotten from cam_id\\(55\\)!\n"
        "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, EncoderIdMappedOutsideTheTableAbortsTheAttach) {
    build();
    EXPECT_DEATH(
        {
            DVRPeer::mapEncoder(*mService, 555, 2);
            mService->attachAudio(555, kAudioId);
        },
        "\\[attachAudio:[0-9]+\\] Unexpect encoder index\\(2\\) gotten from enc_id\\(555\\)!\n"
        "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, AudioIdMappedOutsideTheTableAbortsTheSamplingRate) {
    build();
    EXPECT_DEATH(
        {
            DVRPeer::mapAudio(*mService, 33, 1);
            mService->setSamplingRate(33, 16000);
        },
        "\\[setSamplingRate:[0-9]+\\] Unexpect audio index\\(1\\) gotten from aud_id\\(33\\)!\n"
        "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, NullUserStampAborts) {
    build();
    EXPECT_DEATH(mService->setSelfDefinedStamp(encoderId(0), nullptr),
                 "Assertion failed: pStampSetting != NULL, file DVR.cpp");
}

// ---------------------------------------------------------------- device and encoder queries

TEST_F(DVRControl, CameraQueryChecksTheIndexAndThePointers) {
    build();
    int camId = 0;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_SIMULATED;
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getCamera(2, &camId, &type));
    EXPECT_EQ(1u, loggedError("getCamera", "Invalid index 2\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getCamera(-1, &camId, &type));
    EXPECT_EQ(1u, loggedError("getCamera", "Invalid index -1\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getCamera(0, nullptr, &type));
    EXPECT_EQ(1u, loggedError("getCamera", "Invalid input parameter (pCamID=(nil) peType=" +
                                               pointerText(&type) + ")\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getCamera(0, &camId, nullptr));
    EXPECT_EQ(1u, loggedError("getCamera", "Invalid input parameter (pCamID=" +
                                               pointerText(&camId) + " peType=(nil))\n"));
    EXPECT_EQ(DVR_SUCCESS, mService->getCamera(1, &camId, &type));
    EXPECT_EQ(11, camId);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_SIMULATED, type);

    DVRCameraDevice *unlisted = DVRPeer::unlistCamera(*mService, 1);
    EXPECT_EQ(DVR_FAILURE, mService->getCamera(1, &camId, &type));
    EXPECT_EQ(1u, loggedError("getCamera", "Fatal! Camera 1 NOT found!\n"));
    DVRPeer::listCamera(*mService, 1, unlisted);
}

TEST_F(DVRControl, AudioQueryChecksTheIndexAndThePointer) {
    build();
    int audId = 0;
    EXPECT_EQ(1, mService->getAudioCount());
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getAudio(1, &audId));
    EXPECT_EQ(1u, loggedError("getAudio", "Invalid index 1\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getAudio(0, nullptr));
    EXPECT_EQ(1u, loggedError("getAudio", "Invalid input parameter (pAudID=(nil))\n"));
    EXPECT_EQ(DVR_SUCCESS, mService->getAudio(0, &audId));
    EXPECT_EQ(kAudioId, audId);

    DVRAudioDevice *unlisted = DVRPeer::unlistAudio(*mService, 0);
    EXPECT_EQ(DVR_FAILURE, mService->getAudio(0, &audId));
    EXPECT_EQ(1u, loggedError("getAudio", "Fatal! Audio 0 NOT found!\n"));
    DVRPeer::listAudio(*mService, 0, unlisted);
}

TEST_F(DVRControl, EncoderQueryChecksTheIndexAndThePointer) {
    build();
    int encId = 0;
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getEncoder(2, &encId));
    EXPECT_EQ(1u, loggedError("getEncoder", "Invalid index 2\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getEncoder(-1, &encId));
    EXPECT_EQ(1u, loggedError("getEncoder", "Invalid index -1\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getEncoder(0, nullptr));
    EXPECT_EQ(1u, loggedError("getEncoder", "Invalid input parameter (pEncID=(nil))\n"));
    EXPECT_EQ(DVR_SUCCESS, mService->getEncoder(1, &encId));
    EXPECT_EQ(encoderId(1), encId);
    EXPECT_EQ(DVR_SUCCESS, mService->getEncoder(0, &encId));
    EXPECT_EQ(encoderId(0), encId);
}

// ---------------------------------------------------------------- attaching devices

TEST_F(DVRControl, AttachedCameraIsFoundByItsListIndexUntilDetached) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(0), 11));
    EXPECT_EQ(DVRPeer::camera(*mService, 1), recorder(0)->getAttachedCamera());
    int index = -1;
    EXPECT_EQ(DVR_SUCCESS, mService->getAttachedCamera(encoderId(0), &index));
    EXPECT_EQ(1, index);
    EXPECT_EQ(DVR_SUCCESS, mService->detachCamera(encoderId(0)));
    EXPECT_EQ(nullptr, recorder(0)->getAttachedCamera());
    // Detaching twice changes nothing and still succeeds.
    EXPECT_EQ(DVR_SUCCESS, mService->detachCamera(encoderId(0)));
    mCapture.clear();
    index = -1;
    EXPECT_EQ(DVR_FAILURE, mService->getAttachedCamera(encoderId(0), &index));
    EXPECT_EQ(1u, loggedError("getAttachedCamera", "Cannot get camera from Recorder[0]\n"));
    EXPECT_EQ(-1, index);
}

TEST_F(DVRControl, AttachingAnUnknownCameraFailsBeforeTheEncoderIsLookedAt) {
    build();
    EXPECT_EQ(DVR_FAILURE, mService->attachCamera(encoderId(0), 99));
    EXPECT_EQ(1u, loggedError("attachCamera", "Camera index not found with cam_id(99)\n"));
    mCapture.clear();
    EXPECT_EQ(DVR_FAILURE, mService->attachCamera(kUnknownId, 99));
    EXPECT_EQ(1u, loggedError("attachCamera", "Camera index not found with cam_id(99)\n"));
    EXPECT_EQ(1u, mCapture.lines().size());
    EXPECT_EQ(nullptr, recorder(0)->getAttachedCamera());
}

TEST_F(DVRControl, CameraMissingFromTheListIsReportedOnAttachAndQuery) {
    build();
    DVRCameraDevice *camera = DVRPeer::unlistCamera(*mService, 0);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->attachCamera(encoderId(0), kFirstCameraId));
    EXPECT_EQ(1u, loggedError("attachCamera", "Fatal! Camera 10 NOT found!\n"));
    DVRPeer::listCamera(*mService, 0, camera);

    ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(1), kFirstCameraId));
    DVRPeer::unlistCamera(*mService, 0);
    int index = -1;
    EXPECT_EQ(DVR_FAILURE, mService->getAttachedCamera(encoderId(1), &index));
    EXPECT_EQ(1u, loggedError("getAttachedCamera",
                              "Attached camera(" + pointerText(camera) + ") not found in list\n"));
    DVRPeer::listCamera(*mService, 0, camera);
}

TEST_F(DVRControl, AttachedAudioIsFoundByItsListIndexUntilDetached) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mService->attachAudio(encoderId(1), kAudioId));
    EXPECT_EQ(DVRPeer::audio(*mService, 0), recorder(1)->getAttachedAudio());
    int index = -1;
    EXPECT_EQ(DVR_SUCCESS, mService->getAttachedAudio(encoderId(1), &index));
    EXPECT_EQ(0, index);
    EXPECT_EQ(DVR_SUCCESS, mService->detachAudio(encoderId(1)));
    EXPECT_EQ(nullptr, recorder(1)->getAttachedAudio());
    mCapture.clear();
    EXPECT_EQ(DVR_FAILURE, mService->getAttachedAudio(encoderId(1), &index));
    EXPECT_EQ(1u, loggedError("getAttachedAudio", "Cannot get audio from Recorder[1]\n"));
}

TEST_F(DVRControl, AudioAttachAndQueryReportUnknownAndMissingInputs) {
    build();
    EXPECT_EQ(DVR_FAILURE, mService->attachAudio(encoderId(0), 99));
    EXPECT_EQ(1u, loggedError("attachAudio", "Audio index not found with aud_id(99)\n"));

    DVRAudioDevice *audio = DVRPeer::unlistAudio(*mService, 0);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->attachAudio(encoderId(0), kAudioId));
    EXPECT_EQ(1u, loggedError("attachAudio", "Fatal! Audio 20 NOT found!\n"));
    DVRPeer::listAudio(*mService, 0, audio);

    ASSERT_EQ(DVR_SUCCESS, mService->attachAudio(encoderId(0), kAudioId));
    DVRPeer::unlistAudio(*mService, 0);
    int index = -1;
    EXPECT_EQ(DVR_FAILURE, mService->getAttachedAudio(encoderId(0), &index));
    EXPECT_EQ(1u, loggedError("getAttachedAudio",
                              "Attached audio(" + pointerText(audio) + ") not found in list\n"));
    DVRPeer::listAudio(*mService, 0, audio);
}

TEST_F(DVRControlDeathTest, AttachedCameraQueryForAnUnknownEncoderAborts) {
    build();
    int index = 0;
    EXPECT_DEATH(mService->getAttachedCamera(kUnknownId, &index),
                 "Assertion failed: enc_index >= 0 && enc_index < mRecCount, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, AttachedAudioQueryForAnUnknownEncoderAborts) {
    build();
    int index = 0;
    EXPECT_DEATH(mService->getAttachedAudio(kUnknownId, &index),
                 "Assertion failed: enc_index >= 0 && enc_index < mRecCount, file DVR.cpp");
}

TEST_F(DVRControlDeathTest, AttachedDeviceQueriesWithoutAResultPointerAbort) {
    build();
    EXPECT_DEATH(mService->getAttachedCamera(encoderId(0), nullptr),
                 "Assertion failed: pRetIndex != NULL, file DVR.cpp");
    EXPECT_DEATH(mService->getAttachedAudio(encoderId(0), nullptr),
                 "Assertion failed: pRetIndex != NULL, file DVR.cpp");
}

// ---------------------------------------------------------------- resolution

TEST_F(DVRControl, InputResolutionFollowsTheAttachedCamera) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(0), kFirstCameraId));
    mCapture.clear();
    // Value 0 asks the recorder for -1 x -1, the only size it accepts.
    EXPECT_EQ(DVR_SUCCESS, mService->setResolution(encoderId(0), DVR_RESOLUTION_INPUT));
    EXPECT_EQ(320, stagedSettings(0).width);
    EXPECT_EQ(240, stagedSettings(0).height);
    EXPECT_TRUE(mCapture.lines().empty());
}

class DVRControlFixedResolution : public DVRControl,
                                  public ::testing::WithParamInterface<DVRResolution_e> {};

// Values 1 to 3 name fixed sizes (1920x1080, 1280x720, 720x480); the recorder
// refuses every size but the camera's own, so the service passes its -2 on.
TEST_P(DVRControlFixedResolution, FixedSizeReachesTheRecorderWhichRefusesIt) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(0), kFirstCameraId));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->setResolution(encoderId(0), GetParam()));
    EXPECT_EQ(1u, dvrtest::countLogged(mCapture, ANDROID_LOG_ERROR, "DVRRecorder", "setResolution",
                                       "Follow input's resolution only...\n"));
    EXPECT_EQ(1u, loggedError("setResolution", "Recorder #0 failed with error code -2\n"));
    // The refusal keeps the recorder's settings locked, by this thread.
    RecorderPeer(*recorder(0)).releaseSettingsLock();
}

INSTANTIATE_TEST_SUITE_P(Sizes, DVRControlFixedResolution,
                         ::testing::Values(DVR_RESOLUTION_1080P, DVR_RESOLUTION_720P,
                                           DVR_RESOLUTION_480P));

TEST_F(DVRControl, ResolutionFourIsUnknownAndPrintedInHexadecimal) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(0), kFirstCameraId));
    mCapture.clear();
    EXPECT_EQ(DVR_INVALID_ARGUMENT,
              mService->setResolution(encoderId(0), static_cast<DVRResolution_e>(4)));
    EXPECT_EQ(1u, loggedError("setResolution", "Unknown resolution: 0x4\n"));
    EXPECT_EQ(1u, mCapture.lines().size());
}

TEST_F(DVRControl, NegativeResolutionIsUnknownAndPrintedAsUnsignedHexadecimal) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachCamera(encoderId(0), kFirstCameraId));
    mCapture.clear();
    EXPECT_EQ(DVR_INVALID_ARGUMENT,
              mService->setResolution(encoderId(0), static_cast<DVRResolution_e>(-1)));
    EXPECT_EQ(1u, loggedError("setResolution", "Unknown resolution: 0xffffffff\n"));
    EXPECT_EQ(1u, mCapture.lines().size());
}

// ---------------------------------------------------------------- sampling rate and capabilities

TEST_F(DVRControl, SamplingRateOfAnUnknownAudioInputFails) {
    build();
    EXPECT_EQ(DVR_FAILURE, mService->setSamplingRate(99, 16000));
    EXPECT_EQ(1u, loggedError("setSamplingRate", "Audio index not found with aud_id(99)\n"));
}

TEST_F(DVRControl, SamplingRateOnlyTheEncoderSupportsIsRefused) {
    build();
    // The simulated encoder takes 22050 Hz, the simulated audio input does not.
    ASSERT_EQ(0u, mService->getSupportSamplingRate().count(22050));
    DVRAudioDevice *audio = DVRPeer::audio(*mService, 0);
    const unsigned int before = audio->getSamplingRate();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->setSamplingRate(kAudioId, 22050));
    EXPECT_EQ(1u, loggedError("setSamplingRate",
                              "Failed to set sampling rate 22050 ! Not supported by both Encoder "
                              "and Audio service!!\n"));
    EXPECT_EQ(before, audio->getSamplingRate());
}

TEST_F(DVRControl, SamplingRateReachesTheInputAndTheChannelsItFeeds) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachAudio(encoderId(1), kAudioId));
    const unsigned int otherBefore = stagedSettings(0).samplingRate;
    ASSERT_NE(48000u, otherBefore);
    EXPECT_EQ(DVR_SUCCESS, mService->setSamplingRate(kAudioId, 48000));
    EXPECT_EQ(48000u, DVRPeer::audio(*mService, 0)->getSamplingRate());
    EXPECT_EQ(48000u, stagedSettings(1).samplingRate);
    EXPECT_EQ(otherBefore, stagedSettings(0).samplingRate);
}

// Each channel's audio input is asked for through the recorder's checked
// accessor, which warns for a channel without one.
TEST_F(DVRControl, SamplingRateAsksEveryChannelForItsAudioInput) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->attachAudio(encoderId(1), kAudioId));
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mService->setSamplingRate(kAudioId, 48000));
    EXPECT_EQ(1u, dvrtest::countLogged(mCapture, ANDROID_LOG_WARN, "DVRRecorder", "getAudioDevice",
                                       " [100] Audio device does NOT exist!\n"));
}

TEST_F(DVRControl, CameraCapabilityComesFromTheCameraOfThatId) {
    build();
    CameraDeviceCaps_t caps{};
    EXPECT_EQ(DVR_SUCCESS, mService->getCameraCapability(11, &caps));
    EXPECT_EQ(320, caps.width);
    EXPECT_EQ(240, caps.height);
    EXPECT_EQ(320, caps.stride);
    EXPECT_EQ(DVR_VIDEO_FORMAT_NV12, caps.format);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getCameraCapability(11, nullptr));
    EXPECT_EQ(1u, loggedError("getCameraCapability", "Fatal! Invalid pCaps to be NULL\n"));
    EXPECT_EQ(DVR_FAILURE, mService->getCameraCapability(99, &caps));
    EXPECT_EQ(1u, loggedError("getCameraCapability", "Camera index not found with cam_id(99)\n"));
}

TEST_F(DVRControl, AudioCapabilityIsTheInputsChannelsAndSampleWidth) {
    build();
    AudioDeviceCaps_t caps{};
    EXPECT_EQ(DVR_SUCCESS, mService->getAudioCapability(kAudioId, &caps));
    EXPECT_EQ(1, caps.caps[0]);
    EXPECT_EQ(16, caps.caps[1]);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mService->getAudioCapability(kAudioId, nullptr));
    EXPECT_EQ(1u, loggedError("getAudioCapability", "Fatal! Invalid pCaps to be NULL\n"));
    EXPECT_EQ(DVR_FAILURE, mService->getAudioCapability(99, &caps));
    EXPECT_EQ(1u, loggedError("getAudioCapability", "Audio index not found with aud_id(99)\n"));
}

TEST_F(DVRControl, EncoderCapabilityIsSharedAndIgnoresItsFirstArgument) {
    build();
    EncoderDeviceCaps_t caps{};
    EXPECT_EQ(DVR_SUCCESS, mService->getEncoderCapability(kUnknownId, &caps));
    EncoderDeviceCaps_t shared{};
    ASSERT_EQ(DVR_SUCCESS, Recorder::getDeviceCaps(&shared));
    EXPECT_EQ(0, memcmp(&shared, &caps, sizeof(caps)));
    // Within the system limits, not the simulator's 3840x2160.
    EXPECT_EQ(1920, caps.max_width);
}

// ---------------------------------------------------------------- recording

TEST_F(DVRControl, StartAndStopOfAnIdleChannelLogTheInternalThenTheOperationsFailureLine) {
    build();
    mCapture.clear();
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->startRecord(encoderId(0)));
    EXPECT_EQ(0u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kIdleIntervalUs, interval());
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->stopRecord(encoderId(0)));

    // The internal function logs as it returns; the operation's frame logs
    // the same result after it.
    std::vector<std::string> failures;
    for (const dvrtest::LogLine &line : mCapture.lines()) {
        if (line.priority == ANDROID_LOG_ERROR && line.tag == kTag &&
            line.message.find("] Recorder #0 failed with error code -3\n") != std::string::npos) {
            failures.push_back(line.message.substr(0, line.message.find(':')));
        }
    }
    EXPECT_EQ((std::vector<std::string>{"[startRecordInternal", "[startRecord",
                                        "[stopRecordInternal", "[stopRecord"}),
              failures);
    EXPECT_EQ(1u, loggedError("startRecordInternal", "Recorder #0 failed with error code -3\n"));
    EXPECT_EQ(1u, loggedError("startRecord", "Recorder #0 failed with error code -3\n"));
    EXPECT_EQ(1u, loggedError("stopRecordInternal", "Recorder #0 failed with error code -3\n"));
    EXPECT_EQ(1u, loggedError("stopRecord", "Recorder #0 failed with error code -3\n"));
}

TEST_F(DVRControl, CallbackThreadPacesFasterWhileAnyChannelRecords) {
    build();
    prepareRecording(0);
    prepareRecording(1);
    EXPECT_EQ(kIdleIntervalUs, interval());
    startRecording(0);
    EXPECT_EQ(0x1u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kRecordingIntervalUs, interval());
    startRecording(1);
    EXPECT_EQ(0x3u, DVRPeer::recordingMask(*mService));
    ASSERT_EQ(DVR_SUCCESS, mService->stopRecord(encoderId(0)));
    EXPECT_EQ(0x2u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kRecordingIntervalUs, interval());
    ASSERT_EQ(DVR_SUCCESS, mService->stopRecord(encoderId(1)));
    EXPECT_EQ(0u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kIdleIntervalUs, interval());
}

// Recorder start fails only with -3 here (no output file), so channels 1 and
// 2 both fail with -3: the line of channel 2 prints the result accumulated
// before it (-3, from channel 1) and the line of channel 1 prints 0.
TEST_F(DVRControl, StartOfAllChannelsReturnsTheLastFailureAndPrintsTheEarlierResult) {
    build(3);
    prepareRecording(0);
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->startRecordAll());
    EXPECT_EQ(1u, loggedError("startRecordAll", "Start recorder #1 failed with error code 0\n"));
    EXPECT_EQ(1u, loggedError("startRecordAll", "Start recorder #2 failed with error code -3\n"));
    EXPECT_EQ(1u, loggedError("startRecordInternal", "Recorder #1 failed with error code -3\n"));
    EXPECT_EQ(1u, loggedError("startRecordInternal", "Recorder #2 failed with error code -3\n"));
    ASSERT_TRUE(mFakes[0]->waitForStarts(1));
    EXPECT_EQ(DVR_STM_RECORDING, recorder(0)->getCurrentState());
    EXPECT_EQ(0x1u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kRecordingIntervalUs, interval());
}

TEST_F(DVRControl, StopOfAllChannelsTriesEveryChannelAndReturnsTheLastFailure) {
    build(3);
    prepareRecording(1);
    startRecording(1);
    mCapture.clear();
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->stopRecordAll());
    EXPECT_EQ(1u,
              loggedError("stopRecordAllInternal", "Stop recorder #0 failed with error code -3\n"));
    EXPECT_EQ(1u,
              loggedError("stopRecordAllInternal", "Stop recorder #2 failed with error code -3\n"));
    EXPECT_EQ(0u,
              loggedError("stopRecordAllInternal", "Stop recorder #1 failed with error code -3\n"));
    EXPECT_EQ(DVR_STM_READY, recorder(1)->getCurrentState());
    EXPECT_EQ(1, mFakes[1]->stopCount());
    EXPECT_EQ(0u, DVRPeer::recordingMask(*mService));
    EXPECT_EQ(kIdleIntervalUs, interval());
}

TEST_F(DVRControl, ApplyingAllSettingsRestartsOnlyTheRecordingChannels) {
    build();
    prepareRecording(0);
    prepareRecording(1);
    startRecording(0);
    const int length = mService->getFileLength(encoderId(0));
    ASSERT_EQ(DVR_SUCCESS, mService->setFileLength(encoderId(0), length + 7));
    ASSERT_EQ(DVR_SUCCESS, mService->setFileLength(encoderId(1), length + 9));
    // Staged only: the recording goes on with its length.
    EXPECT_EQ(length, mService->getFileLength(encoderId(0)));
    EXPECT_EQ(DVR_SUCCESS, mService->applySettingsAll());
    ASSERT_TRUE(mFakes[0]->waitForStarts(2));
    EXPECT_EQ(1, mFakes[0]->stopCount());
    EXPECT_EQ(length + 7, mFakes[0]->lastSettings().fileLength);
    EXPECT_EQ(length + 7, mService->getFileLength(encoderId(0)));
    EXPECT_EQ(DVR_STM_RECORDING, recorder(0)->getCurrentState());
    EXPECT_EQ(0x1u, DVRPeer::recordingMask(*mService));
    // The channel that was not recording keeps its pending settings.
    EXPECT_EQ(DVR_STM_READY, recorder(1)->getCurrentState());
    EXPECT_EQ(0, mFakes[1]->configureCount());
    EXPECT_EQ(length + 9, mService->getFileLength(encoderId(1)));
}

TEST_F(DVRControl, ApplyingAllSettingsWithoutCamerasTouchesNothing) {
    build(0);
    // Even a recording channel is out of reach: the loop is bounded by the cameras.
    RecorderPeer(*recorder(0)).setState(DVR_STM_RECORDING);
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mService->applySettingsAll());
    EXPECT_TRUE(mCapture.lines().empty());
    EXPECT_EQ(DVR_STM_RECORDING, recorder(0)->getCurrentState());
    RecorderPeer(*recorder(0)).setState(DVR_STM_IDLE);
}

// ---------------------------------------------------------------- camera sources

TEST_F(DVRControl, CameraSourcesCannotChangeWhileAChannelRecords) {
    build();
    prepareRecording(1);
    startRecording(1);
    Recorder *first = recorder(0);
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->setCameraSources(1, {1}));
    EXPECT_EQ(1u, loggedError("setCameraSources", "Recorder[1] state=3, cannot reconfig camera"));
    EXPECT_TRUE(DVRSimulatorControl::cameraSources().empty());
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(first, recorder(0));
    EXPECT_EQ(DVR_STM_RECORDING, recorder(1)->getCurrentState());
}

TEST_F(DVRControl, CameraSourcesCannotChangeWhileAChannelStops) {
    build();
    RecorderPeer(*recorder(0)).setState(DVR_STM_STOPPING);
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->setCameraSources(1, {1}));
    EXPECT_EQ(1u, loggedError("setCameraSources", "Recorder[0] state=4, cannot reconfig camera"));
    EXPECT_TRUE(DVRSimulatorControl::cameraSources().empty());
    EXPECT_EQ(2, mService->getRecorderCount());
    RecorderPeer(*recorder(0)).setState(DVR_STM_IDLE);
}

TEST_F(DVRControl, FewerCameraSourcesRebuildFewerChannelsAndKeepTheAudioInputs) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->nextFile(encoderId(1), "ready.ts"));
    DVRAudioDevice *audio = DVRPeer::audio(*mService, 0);
    const std::set<unsigned int> rates = mService->getSupportSamplingRate();
    // The device layer now offers one camera.
    DVRSimConfig sim = DVRSimulatorControl::config();
    sim.cameras.resize(1);
    DVRSimulatorControl::setConfig(sim);
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mService->setCameraSources(1, {1, 0}));
    EXPECT_EQ((std::vector<int>{1}), DVRSimulatorControl::cameraSources());
    EXPECT_EQ(1, mService->getCameraCount());
    EXPECT_EQ(1, mService->getRecorderCount());
    EXPECT_EQ(0, mService->findEncoderIndex(encoderId(0)));
    EXPECT_EQ(-99, mService->findEncoderIndex(encoderId(1)));
    EXPECT_EQ(1u, gRecorderList.size());
    EXPECT_EQ(audio, DVRPeer::audio(*mService, 0));
    EXPECT_EQ(rates, mService->getSupportSamplingRate());
    EXPECT_TRUE(DVRPeer::callbackThread(*mService)->isRunning());
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_INFO, "finalizeCameraDevice", "All Camera device(s) finalized\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "initializeCameraDevice",
                         "Total 1 camera devices supported\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "initializeRecorder", "Recorder(s) initialized\n"));
}

TEST_F(DVRControl, NoCameraSourcesLeaveOneChannel) {
    build();
    DVRSimConfig sim = DVRSimulatorControl::config();
    sim.cameras.clear();
    DVRSimulatorControl::setConfig(sim);
    EXPECT_EQ(DVR_SUCCESS, mService->setCameraSources(0, {}));
    EXPECT_EQ(0, mService->getCameraCount());
    EXPECT_EQ(1, mService->getRecorderCount());
    ASSERT_NE(nullptr, recorder(0));
    EXPECT_EQ(0, mService->findEncoderIndex(encoderId(0)));
}

// ---------------------------------------------------------------- audio recording

TEST_F(DVRControl, AudioRecordingAnswerComesFromTheFirstChannelWhateverTheArgument) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(encoderId(0), false));
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(encoderId(1), true));
    mCapture.clear();
    EXPECT_FALSE(mService->getAudioRecording(encoderId(1)));
    EXPECT_FALSE(mService->getAudioRecording(kUnknownId));
    EXPECT_TRUE(mCapture.lines().empty());
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(encoderId(0), true));
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(encoderId(1), false));
    EXPECT_TRUE(mService->getAudioRecording(encoderId(1)));
    EXPECT_TRUE(mService->getAudioRecording(kUnknownId));
}

TEST_F(DVRControl, AudioRecordingForEveryChannelAtOnce) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(-1, false));
    EXPECT_FALSE(recorder(0)->getAudioRecording());
    EXPECT_FALSE(recorder(1)->getAudioRecording());
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(-1, true));
    EXPECT_TRUE(recorder(0)->getAudioRecording());
    EXPECT_TRUE(recorder(1)->getAudioRecording());
}

TEST_F(DVRControl, AudioRecordingWithoutCamerasHasNoAnswer) {
    build(0);
    ASSERT_EQ(DVR_SUCCESS, mService->setAudioRecording(encoderId(0), true));
    EXPECT_FALSE(mService->getAudioRecording(encoderId(0)));
    EXPECT_EQ(1u, loggedError("getAudioRecording",
                              "No recorder available! Return value is meaningless!\n"));
}
