// Construction and teardown of the service object: the option dump, device
// discovery through the factories, the recorders, the sampling rates both the
// encoder and the audio input accept, and the aborts and the exit that guard
// them. Each case builds its own service on the simulated devices.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "DVR.h"
#include "DVRCameraDeviceFactory.h"
#include "DVRSimulatorControl.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"

using namespace dvrspace;

namespace {

// The camera index whose creation throws a plain DVRException; -1 for none.
int gPlainExceptionAt = -1;

}  // namespace

// The simulator throws only the two device exceptions; this definition stands
// in front of the device library's factory so that a camera can fail in any
// other way. Every other creation reaches the simulator.
DVRCameraDevice *dvrspace::DVRCameraDeviceFactory::createDevice(int index) {
    if (index == gPlainExceptionAt) {
        throw DVRException("camera bus lost");
    }
    using Create = DVRCameraDevice *(*)(DVRCameraDeviceFactory *, int);
    static const auto real = reinterpret_cast<Create>(
        dlsym(RTLD_NEXT, "_ZN8dvrspace22DVRCameraDeviceFactory12createDeviceEi"));
    return real(this, index);
}

namespace {

constexpr const char *kTag = "DVRService";

// "[function:line] text" becomes "[function] text": line numbers move with
// every edit of the service, the order of its lines does not.
std::string withoutLineNumber(const std::string &message) {
    const size_t colon = message.find(':');
    const size_t close = message.find("] ");
    if (message.empty() || message[0] != '[' || colon == std::string::npos ||
        close == std::string::npos || colon > close) {
        return message;
    }
    return message.substr(0, colon) + message.substr(close);
}

class DVRConstruction : public ::testing::Test {
protected:
    void SetUp() override {
        // The service runs threads of its own; a forked child would lack them.
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        mSim = DVRSimulatorControl::config();
        mSim.cameras = {dvrtest::smallSimCamera(10), dvrtest::smallSimCamera(11)};
    }
    void TearDown() override { mService.clear(); }

    // The whole service on the simulator configured in mSim.
    void build() {
        DVRSimulatorControl::setConfig(mSim);
        mService = new DVR();
    }
    size_t logged(int priority, const std::string &function, const std::string &rest) const {
        return dvrtest::countLogged(mCapture, priority, kTag, function, rest);
    }
    // The service's lines of a priority in order, as "[function] text".
    std::vector<std::string> serviceLines(int priority) const {
        std::vector<std::string> lines;
        for (const dvrtest::LogLine &line : mCapture.lines()) {
            if (line.tag == kTag && line.priority == priority) {
                lines.push_back(withoutLineNumber(line.message));
            }
        }
        return lines;
    }
    // Position of the only occurrence of line in lines; -1 when it is absent or repeated.
    static long positionOf(const std::vector<std::string> &lines, const std::string &line) {
        if (std::count(lines.begin(), lines.end(), line) != 1) {
            return -1;
        }
        return std::find(lines.begin(), lines.end(), line) - lines.begin();
    }

    dvrtest::RecorderTestEnv mEnv;
    dvrtest::LogCapture mCapture;
    DVRSimConfig mSim;
    android::sp<DVR> mService;
};

using DVRConstructionDeathTest = DVRConstruction;

}  // namespace

// ---------------------------------------------------------------- start-up

TEST_F(DVRConstruction, OptionDumpPrintsTheSevenBuildOptionsBetweenRules) {
    build();
    std::vector<std::string> dump;
    for (const std::string &line : serviceLines(ANDROID_LOG_INFO)) {
        if (line.rfind("[dump_dvr_options] ", 0) == 0) {
            dump.push_back(line.substr(std::string("[dump_dvr_options] ").size()));
        }
    }
    EXPECT_EQ((std::vector<std::string>{
                  "DVR Service Options\n",
                  "===========================\n",
                  "PERF_ANALYSIS         : 0\n",
                  "DVR_LOG_LEVEL         : 2\n",
                  "DVR_LOG_OUT_METHOD    : 1\n",
                  "DUMP_2_FILE_ONCE      : 0\n",
                  "ENCODER_USING_PA_CONTI: 1\n",
                  "PA_WITH_FLUSH_INV     : 0\n",
                  "DATA_FEED_MODE        : 1\n",
                  "===========================\n",
              }),
              dump);
}

TEST_F(DVRConstruction, StepsAreLoggedInConstructionOrder) {
    build();
    const std::vector<std::string> lines = serviceLines(ANDROID_LOG_INFO);
    const long dump = positionOf(lines, "[dump_dvr_options] DVR Service Options\n");
    const long messager = positionOf(lines, "[DVR] STD initialized\n");
    const long cameras =
        positionOf(lines, "[initializeCameraDevice] Total 2 camera devices supported\n");
    const long audio =
        positionOf(lines, "[initializeAudioDevice] Total 1 audio input devices supported\n");
    const long recorders = positionOf(lines, "[initializeRecorder] Recorder(s) initialized\n");
    ASSERT_GE(dump, 0);
    EXPECT_LT(dump, messager);
    EXPECT_LT(messager, cameras);
    EXPECT_LT(cameras, audio);
    EXPECT_LT(audio, recorders);
    EXPECT_EQ(14u, lines.size()) << ::testing::PrintToString(lines);
}

TEST_F(DVRConstruction, ConstructedServiceIsRegisteredIdleAndNotSuspended) {
    build();
    EXPECT_NE(nullptr, mService->getSvcMonHandle());
    EXPECT_FALSE(mService->isSuspend());
    EXPECT_EQ(0u, DVRPeer::recordingMask(*mService));
    ASSERT_NE(nullptr, DVRPeer::callbackThread(*mService).get());
    EXPECT_TRUE(DVRPeer::callbackThread(*mService)->isRunning());
    EXPECT_EQ(300000, DVRPeer::callbackThread(*mService)->interval());
    EXPECT_EQ(0u, serviceLines(ANDROID_LOG_ERROR).size());
}

TEST_F(DVRConstruction, IdMapsGiveDenseIndicesInDiscoveryOrder) {
    mSim.cameras = {dvrtest::smallSimCamera(12), dvrtest::smallSimCamera(10)};
    DVRSimAudioConfig second;
    second.id = 7;
    mSim.audioInputs.push_back(second);
    build();
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getAudioCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(0, mService->findCameraIndex(12));
    EXPECT_EQ(1, mService->findCameraIndex(10));
    EXPECT_EQ(-99, mService->findCameraIndex(11));
    EXPECT_EQ(0, mService->findAudioIndex(20));
    EXPECT_EQ(1, mService->findAudioIndex(7));
    EXPECT_EQ(-99, mService->findAudioIndex(21));
    EXPECT_EQ(0, mService->findEncoderIndex(100));
    EXPECT_EQ(1, mService->findEncoderIndex(101));
    EXPECT_EQ(-99, mService->findEncoderIndex(102));
    for (int index = 0; index < 2; ++index) {
        SCOPED_TRACE(index);
        ASSERT_NE(nullptr, DVRPeer::camera(*mService, index));
        EXPECT_EQ(index, mService->findCameraIndex(DVRPeer::camera(*mService, index)->getID()));
        ASSERT_NE(nullptr, DVRPeer::audio(*mService, index));
        EXPECT_EQ(index, mService->findAudioIndex(DVRPeer::audio(*mService, index)->getID()));
        ASSERT_NE(nullptr, DVRPeer::recorder(*mService, index));
        EXPECT_EQ(index,
                  mService->findEncoderIndex(DVRPeer::recorder(*mService, index)->getEncoderId()));
    }
    EXPECT_EQ(nullptr, DVRPeer::camera(*mService, 2));
}

TEST_F(DVRConstruction, ProbesReturnTheListedDevicesWithoutTheFactory) {
    build();
    EXPECT_EQ(DVRPeer::camera(*mService, 0), mService->probeCameraDevice(0));
    EXPECT_EQ(DVRPeer::camera(*mService, 1), mService->probeCameraDevice(1));
    EXPECT_EQ(DVRPeer::audio(*mService, 0), mService->probeAudioDevice(0));
    // Beyond the devices the factory offers, there is none.
    EXPECT_EQ(nullptr, mService->probeCameraDevice(2));
    EXPECT_EQ(nullptr, mService->probeAudioDevice(1));
}

TEST_F(DVRConstruction, ProbeOfACameraThatIsNotReadyWarnsAndGivesNull) {
    mSim.cameras.push_back(dvrtest::smallSimCamera(12));
    mSim.cameras.back().createException = DVRSimCreateException::NotReady;
    mSim.cameras.push_back(dvrtest::smallSimCamera(13));
    build();
    mCapture.clear();
    EXPECT_EQ(nullptr, mService->probeCameraDevice(2));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "probeCameraDevice", "camera 2 not ready\n"));
}

// ---------------------------------------------------------------- discovery

TEST_F(DVRConstruction, ServiceWithoutCamerasStillHasOneRecorder) {
    mSim.cameras.clear();
    build();
    EXPECT_EQ(0, mService->getCameraCount());
    EXPECT_EQ(1, mService->getRecorderCount());
    ASSERT_NE(nullptr, DVRPeer::recorder(*mService, 0));
    EXPECT_EQ(0, mService->findEncoderIndex(100));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "initializeCameraDevice",
                         "Total 0 camera devices supported\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "initializeRecorder", "Recorder(s) initialized\n"));
}

TEST_F(DVRConstruction, CameraNotReadyAtIndexTwoEndsDiscoveryWithTwoCameras) {
    mSim.cameras.push_back(dvrtest::smallSimCamera(12));
    mSim.cameras.back().createException = DVRSimCreateException::NotReady;
    // Behind the camera that is not ready: never reached.
    mSim.cameras.push_back(dvrtest::smallSimCamera(13));
    mSim.encoder.ids = {100, 101, 102, 103};
    build();
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(-99, mService->findCameraIndex(13));
    EXPECT_EQ(-99, mService->findEncoderIndex(102));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "probeCameraDevice", "camera 2 not ready\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "initializeCameraDevice",
                         "Total 2 camera devices supported\n"));
}

TEST_F(DVRConstruction, CameraBeyondTheAvailableOnesEndsDiscovery) {
    mSim.cameras.push_back(dvrtest::smallSimCamera(12));
    mSim.cameras.back().createException = DVRSimCreateException::NumExceed;
    build();
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "probeCameraDevice",
                         "camera 2 beyond the available cameras\n"));
}

TEST_F(DVRConstructionDeathTest, OtherCameraFactoryExceptionEndsTheProcessWithMinusOne) {
    gPlainExceptionAt = 1;
    EXPECT_EXIT(build(), ::testing::ExitedWithCode(255),
                "\\[initializeCameraDevice:[0-9]+\\] camera bus lost \\[exit\\]\n");
    gPlainExceptionAt = -1;
}

TEST_F(DVRConstructionDeathTest, TwoCamerasWithTheSameIdAbort) {
    mSim.cameras = {dvrtest::smallSimCamera(10), dvrtest::smallSimCamera(10)};
    EXPECT_DEATH(build(),
                 "\\[initializeCameraDevice:[0-9]+\\] Mapping exists! \\(camId:10 --> index:0\\)\n"
                 "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRConstruction, RepeatedAudioIdKeepsTheLaterIndex) {
    DVRSimAudioConfig twin;
    twin.id = 20;
    mSim.audioInputs.push_back(twin);
    build();
    EXPECT_EQ(2, mService->getAudioCount());
    EXPECT_EQ(1, mService->findAudioIndex(20));
}

TEST_F(DVRConstructionDeathTest, ServiceWithoutAudioInputAborts) {
    mSim.audioInputs.clear();
    EXPECT_DEATH(build(), "Assertion failed: pAud != NULL, file DVR.cpp");
}

// ---------------------------------------------------------------- sampling rates

TEST_F(DVRConstruction, SupportedRatesAreTheEncoderAndAudioRatesInCommon) {
    mSim.encoder.samplingRates = {8000, 16000, 48000};
    mSim.audioInputs[0].samplingRates = {16000, 44100, 48000};
    build();
    EXPECT_EQ((std::set<unsigned int>{16000, 48000}), mService->getSupportSamplingRate());
    EXPECT_EQ((std::set<unsigned int>{16000, 48000}), mService->calculateSupportSamplingRate());
}

TEST_F(DVRConstruction, SupportedRatesComeFromTheFirstAudioInputOnly) {
    mSim.encoder.samplingRates = {8000, 16000, 48000};
    mSim.audioInputs[0].samplingRates = {8000};
    DVRSimAudioConfig second;
    second.id = 21;
    second.samplingRates = {16000, 48000};
    mSim.audioInputs.push_back(second);
    build();
    EXPECT_EQ((std::set<unsigned int>{8000}), mService->getSupportSamplingRate());
}

TEST_F(DVRConstructionDeathTest, NoRateInCommonAborts) {
    mSim.encoder.samplingRates = {8000, 16000};
    mSim.audioInputs[0].samplingRates = {44100, 48000};
    EXPECT_DEATH(build(),
                 "\\[DVR:[0-9]+\\] Empty supported sampling rate\n"
                 "(.|\n)*Assertion failed: 0, file DVR.cpp");
}

TEST_F(DVRConstruction, SupportedRatesAreReturnedAsACopy) {
    build();
    const std::set<unsigned int> before = mService->getSupportSamplingRate();
    ASSERT_FALSE(before.empty());
    std::set<unsigned int> copy = mService->getSupportSamplingRate();
    copy.clear();
    copy.insert(11025);
    EXPECT_EQ(before, mService->getSupportSamplingRate());
}

// ---------------------------------------------------------------- recorders and teardown

TEST_F(DVRConstruction, RecorderCountOfZeroIsRefusedAndCreatesNothing) {
    build();
    const android::sp<DVRCallbackThread> thread = DVRPeer::callbackThread(*mService);
    Recorder *first = DVRPeer::recorder(*mService, 0);
    mCapture.clear();
    mService->initializeRecorder(0);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "initializeRecorder", "Invalid recorder count: 0\n"));
    EXPECT_EQ(1u, mCapture.lines().size());
    EXPECT_EQ(thread.get(), DVRPeer::callbackThread(*mService).get());
    EXPECT_EQ(first, DVRPeer::recorder(*mService, 0));
}

TEST_F(DVRConstruction, SecondFinalizeOfTheRecordersOnlyWarns) {
    build();
    mService->finalizeRecorder();
    EXPECT_EQ(nullptr, DVRPeer::recorder(*mService, 0));
    EXPECT_EQ(nullptr, DVRPeer::callbackThread(*mService).get());
    EXPECT_EQ(-99, mService->findEncoderIndex(100));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    mCapture.clear();
    mService->finalizeRecorder();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "finalizeRecorder", "Recorder(s) already finalized\n"));
    EXPECT_EQ(1u, mCapture.lines().size());
    EXPECT_EQ(2, mService->getRecorderCount());
    EXPECT_EQ(2, mService->getCameraCount());
}

TEST_F(DVRConstruction, TeardownFinalizesRecordersThenCamerasThenAudioInputs) {
    build();
    ASSERT_EQ(2u, gRecorderList.size());
    const android::sp<DVRCallbackThread> thread = DVRPeer::callbackThread(*mService);
    mCapture.clear();
    mService.clear();
    EXPECT_TRUE(gRecorderList.empty());
    EXPECT_FALSE(thread->isRunning());
    const std::vector<std::string> lines = serviceLines(ANDROID_LOG_INFO);
    EXPECT_EQ((std::vector<std::string>{
                  "[finalizeRecorder] Recorder(s) finalized\n",
                  "[finalizeCameraDevice] All Camera device(s) finalized\n",
                  "[finalizeAudioDevice] All Audio device(s) finalized\n",
              }),
              lines);
}

TEST_F(DVRConstruction, FinalizingTheDevicesEmptiesTheirTables) {
    build();
    mService->finalizeRecorder();
    mService->finalizeCameraDevice();
    mService->finalizeAudioDevice();
    EXPECT_EQ(0, mService->getCameraCount());
    EXPECT_EQ(0, mService->getAudioCount());
    EXPECT_EQ(-99, mService->findCameraIndex(10));
    EXPECT_EQ(-99, mService->findAudioIndex(20));
    EXPECT_EQ(nullptr, DVRPeer::camera(*mService, 0));
    EXPECT_EQ(nullptr, DVRPeer::audio(*mService, 0));
}
