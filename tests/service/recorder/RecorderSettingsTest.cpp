// Record settings: loading (store first, runtime configuration second), the
// factory reset and the store it writes, the setters with their limits, the
// getters and the shared encoder capability.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "DVRSimulatorControl.h"
#include "RecorderFixture.h"
#include "qv_vendor_data.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr const char *kNotFound = "Not found in vendor data, check runtime config.\n";

class RecorderSettings : public RecorderFixture {};

// A full set of stored values, all different from the shipped defaults.
void storeEverySetting() {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, "avi"));
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    ASSERT_EQ(0, qv_vendor_data_write_int(244, 4, 15));
    ASSERT_EQ(0, qv_vendor_data_write_int(246, 4, -1));
    ASSERT_EQ(0, qv_vendor_data_write_int(250, 4, -1));
    ASSERT_EQ(0, qv_vendor_data_write_int(254, 4, 120));
    ASSERT_EQ(0, qv_vendor_data_write_bool(256, false));
    ASSERT_EQ(0, qv_vendor_data_write_int(257, 4, 11));
    ASSERT_EQ(0, qv_vendor_data_write_int(261, 4, 12));
    ASSERT_EQ(0, qv_vendor_data_write_bool(265, false));
    ASSERT_EQ(0, qv_vendor_data_write_int(266, 4, 13));
    ASSERT_EQ(0, qv_vendor_data_write_int(270, 4, 14));
    ASSERT_EQ(0, qv_vendor_data_write_int(274, 4, 500));
    ASSERT_EQ(0, qv_vendor_data_write_bool(278, false));
    ASSERT_EQ(0, qv_vendor_data_write_int(476, 4, 1));
    ASSERT_EQ(0, qv_vendor_data_write_string(480, 4, "3"));
}

}  // namespace

// ------------------------------------------------------------ loading

TEST_F(RecorderSettings, EmptyStoreLoadsEveryKeyFromTheRuntimeConfiguration) {
    build();
    const RecordSettings_t s = settings();
    EXPECT_EQ(DVR_FILE_FORMAT_TS, s.outputFormat);
    EXPECT_EQ(4, s.bitRate);
    EXPECT_EQ(30, s.frameRate);
    EXPECT_EQ(1920, s.width);
    EXPECT_EQ(1080, s.height);
    EXPECT_EQ(60, s.fileLength);
    EXPECT_TRUE(s.timestamp.enabled);
    EXPECT_EQ(32, s.timestamp.x);
    EXPECT_EQ(32, s.timestamp.y);
    EXPECT_TRUE(s.userStamp.enabled);
    EXPECT_EQ(32, s.userStamp.x);
    EXPECT_EQ(1000, s.userStamp.y);
    EXPECT_EQ(1000, s.userStamp.interval);
    EXPECT_TRUE(s.audioRecording);
    EXPECT_EQ(2, s.cameraCount);
    EXPECT_EQ(0, s.cameraSources[0]);
    EXPECT_EQ(1, s.cameraSources[1]);
    EXPECT_NE(0u, s.changeTime);
    // The format and the thirteen rows after it, then the camera rows.
    EXPECT_EQ(14u, logged(ANDROID_LOG_WARN, "readSettingsFromConfig", kNotFound));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "readSettingsFromConfig",
                         "Not found DVRCAM_NUM in vendor data, check runtime config.\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "readSettingsFromConfig",
                         "Not found DVRCAM_SRC_SEL in vendor data, check runtime config.\n"));
    EXPECT_TRUE(mCapture.messagesContaining("runtime.cfg failed").empty());
}

TEST_F(RecorderSettings, StoredValuesWinOverTheRuntimeConfiguration) {
    storeEverySetting();
    build();
    const RecordSettings_t s = settings();
    EXPECT_EQ(DVR_FILE_FORMAT_AVI, s.outputFormat);
    EXPECT_EQ(8, s.bitRate);
    EXPECT_EQ(15, s.frameRate);
    EXPECT_EQ(-1, s.width);
    EXPECT_EQ(-1, s.height);
    EXPECT_EQ(120, s.fileLength);
    EXPECT_FALSE(s.timestamp.enabled);
    EXPECT_EQ(11, s.timestamp.x);
    EXPECT_EQ(12, s.timestamp.y);
    EXPECT_FALSE(s.userStamp.enabled);
    EXPECT_EQ(13, s.userStamp.x);
    EXPECT_EQ(14, s.userStamp.y);
    EXPECT_EQ(500, s.userStamp.interval);
    EXPECT_FALSE(s.audioRecording);
    EXPECT_EQ(1, s.cameraCount);
    EXPECT_EQ(3, s.cameraSources[0]);
    EXPECT_TRUE(mCapture.messagesContaining("vendor data").empty());
}

TEST_F(RecorderSettings, StoredFormatWordsMapExactly) {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, "ts"));
    build();
    EXPECT_EQ(DVR_FILE_FORMAT_TS, mRecorder->getOutputFormat());
}

TEST_F(RecorderSettings, UnknownFormatWordLeavesTheFormatClearedWithAnError) {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, "Avi"));
    build();
    EXPECT_EQ(-1, mRecorder->getOutputFormat());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "readSettingsFromConfig",
                         "Fatal! Unknown format type Avi\n"));
}

TEST_F(RecorderSettings, MissingEverywhereLogsTheFailedReadsAndKeepsClearedValues) {
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=" + mEnv.defaultPath() + "\n");
    build();
    const RecordSettings_t s = settings();
    EXPECT_EQ(-1, s.outputFormat);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "readSettingsFromConfig",
                         "Read 'DVR_FORMAT' from runtime.cfg failed: -1\n"));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_ERROR, "readSettingsFromConfig", "Fatal! Unknown format type \n"));
    // The integer lookup stores -1 for an absent key; flags stay as cleared.
    EXPECT_EQ(-1, s.bitRate);
    EXPECT_EQ(-1, s.fileLength);
    EXPECT_EQ(-1, s.userStamp.interval);
    EXPECT_EQ(-1, s.cameraCount);
    EXPECT_FALSE(s.timestamp.enabled);
    EXPECT_FALSE(s.audioRecording);
    for (const char *key :
         {"DVR_BIT_RATE", "DVR_FPS", "DVR_RES_WIDTH", "DVR_RES_HEIGHT", "DVR_FILE_LEN",
          "DVR_TIMESTAMP_EN", "DVR_TIMESTAMP_POSX", "DVR_TIMESTAMP_POSY", "DVR_USER_STAMP_EN",
          "DVR_USER_STAMP_POSX", "DVR_USER_STAMP_POSY", "DVR_USTMP_INTERVAL_MS", "DVR_AUDIO_EN",
          "DVRCAM_NUM", "DVRCAM_SRC_SEL"}) {
        EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "readSettingsFromConfig",
                             std::string("Read '") + key + "' from runtime.cfg failed: -1\n"))
            << key;
    }
}

TEST_F(RecorderSettings, TimestampFlagWrittenAsOneFailsAtLoadingButPassesTheReset) {
    mEnv.installRuntimeConfig("DVR_TIMESTAMP_EN=1\nDVR_DEFAULT_PATH=" + mEnv.defaultPath() + "\n");
    build();
    EXPECT_FALSE(settings().timestamp.enabled);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "readSettingsFromConfig",
                         "Read 'DVR_TIMESTAMP_EN' from runtime.cfg failed: -1\n"));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_TRUE(settings().timestamp.enabled);
    EXPECT_EQ(0u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Invalid value of 'DVR_TIMESTAMP_EN': 1\n")));
    bool stored = false;
    EXPECT_EQ(0, qv_vendor_data_read_bool(256, &stored));
    EXPECT_TRUE(stored);
}

TEST_F(RecorderSettings, TimestampFlagWrittenAsYIsStoredAsZeroByTheReset) {
    build();
    EXPECT_TRUE(settings().timestamp.enabled);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_FALSE(settings().timestamp.enabled);
    bool stored = true;
    EXPECT_EQ(0, qv_vendor_data_read_bool(256, &stored));
    EXPECT_FALSE(stored);
}

TEST_F(RecorderSettings, CameraCountAboveTheSourceListLogsInsufficientItems) {
    mEnv.installShippedConfigWith({{"DVRCAM_SRC_SEL", "3"}});
    build();
    const RecordSettings_t s = settings();
    EXPECT_EQ(3, s.cameraSources[0]);
    EXPECT_EQ(0, s.cameraSources[1]);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "readSettingsFromConfig",
                         "Insufficient camera source list items (only 1 found, expect 2)\n"));
    mRecorder->resetSettings();
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Insufficient camera source list items (only 1 found, expect 2)\n")));
    // Every counted slot is written back, the empty one as 0.
    EXPECT_EQ("3,0", readStoreText(480, 4));
}

TEST_F(RecorderSettings, ExtraCameraSourcesAreIgnored) {
    mEnv.installShippedConfigWith({{"DVRCAM_NUM", "1"}});
    build();
    const RecordSettings_t s = settings();
    EXPECT_EQ(0, s.cameraSources[0]);
    EXPECT_EQ(0, s.cameraSources[1]);
    EXPECT_TRUE(mCapture.messagesContaining("Insufficient").empty());
}

// ------------------------------------------------------------ reset

TEST_F(RecorderSettings, ResetKeepsTheFormatInMemoryButStoresTheTextAsRead) {
    build();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setOutputFormat(DVR_FILE_FORMAT_AVI));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_EQ(DVR_FILE_FORMAT_AVI, mRecorder->getOutputFormat());
    EXPECT_EQ("TS", readStoreText(238, 4));
}

TEST_F(RecorderSettings, ResetWithAnEmptyFormatLogsUnknownFormatAndStoresEmptyText) {
    mEnv.installShippedConfigWith({{"DVR_FORMAT", ""}});
    build();
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings", rec("Fatal! Unknown format type \n")));
    EXPECT_EQ("", readStoreText(238, 4));
}

TEST_F(RecorderSettings, ResetWritesEveryValueAtItsPositionInAscendingOrder) {
    mEnv.installShippedConfigWith(
        {{"DVR_TIMESTAMP_EN", "1"}, {"DVR_AUDIO_EN", "1"}, {"DVR_BIT_RATE", "-3"}});
    build();
    const uint32_t before = settings().changeTime;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_NE(before, settings().changeTime);
    int value = 0;
    // The two-byte values survive the spill of the four-byte writes after them.
    EXPECT_EQ(0, qv_vendor_data_read_int(242, 2, &value));
    EXPECT_EQ(-3, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(244, 2, &value));
    EXPECT_EQ(30, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(246, 4, &value));
    EXPECT_EQ(1920, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(250, 4, &value));
    EXPECT_EQ(1080, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(254, 2, &value));
    EXPECT_EQ(60, value);
    bool flag = false;
    EXPECT_EQ(0, qv_vendor_data_read_bool(256, &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(0, qv_vendor_data_read_int(257, 4, &value));
    EXPECT_EQ(32, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(261, 4, &value));
    EXPECT_EQ(32, value);
    EXPECT_EQ(0, qv_vendor_data_read_bool(265, &flag));
    EXPECT_FALSE(flag);  // "y" reads as the integer 0
    EXPECT_EQ(0, qv_vendor_data_read_int(266, 4, &value));
    EXPECT_EQ(32, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(270, 4, &value));
    EXPECT_EQ(1000, value);
    EXPECT_EQ(0, qv_vendor_data_read_int(274, 4, &value));
    EXPECT_EQ(1000, value);
    EXPECT_EQ(0, qv_vendor_data_read_bool(278, &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(0, qv_vendor_data_read_int(476, 4, &value));
    EXPECT_EQ(2, value);
    EXPECT_EQ("0,1", readStoreText(480, 4));
}

TEST_F(RecorderSettings, ResetRejectsFlagsOtherThanZeroOrOne) {
    mEnv.installShippedConfigWith(
        {{"DVR_AUDIO_EN", "2"}, {"DVR_USER_STAMP_EN", "-1"}, {"DVR_TIMESTAMP_EN", "7"}});
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Invalid value of 'DVR_TIMESTAMP_EN': 7\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Invalid value of 'DVR_USER_STAMP_EN': -1\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Invalid value of 'DVR_AUDIO_EN': 2\n")));
    const RecordSettings_t s = settings();
    EXPECT_FALSE(s.timestamp.enabled);
    EXPECT_FALSE(s.userStamp.enabled);
    EXPECT_FALSE(s.audioRecording);
}

TEST_F(RecorderSettings, ResetWithMissingKeysLogsEveryFailedRead) {
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=" + mEnv.defaultPath() + "\n");
    build();
    mCapture.clear();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    for (const char *key :
         {"DVR_FORMAT", "DVR_BIT_RATE", "DVR_FPS", "DVR_RES_WIDTH", "DVR_RES_HEIGHT",
          "DVR_FILE_LEN", "DVR_TIMESTAMP_EN", "DVR_TIMESTAMP_POSX", "DVR_TIMESTAMP_POSY",
          "DVR_USER_STAMP_EN", "DVR_USER_STAMP_POSX", "DVR_USER_STAMP_POSY",
          "DVR_USTMP_INTERVAL_MS", "DVR_AUDIO_EN", "DVRCAM_NUM", "DVRCAM_SRC_SEL"}) {
        EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                             std::string("Read '") + key + "' from runtime.cfg failed: -1\n"))
            << key;
    }
    // An absent flag reads as -1, which is no valid flag.
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "resetSettings",
                         rec("Invalid value of 'DVR_AUDIO_EN': -1\n")));
    // The format text read failed: the store gets the empty text.
    EXPECT_EQ("", readStoreText(238, 4));
    EXPECT_EQ(0u, mCapture.messagesContaining("Unknown format").size());
    EXPECT_EQ("", readStoreText(480, 4));
}

TEST_F(RecorderSettings, AbandonNewSettingsRestoresTheSettingsInForce) {
    build();
    peer().applyStagedSettings();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setBitRate(9));
    EXPECT_TRUE(mRecorder->isSettingChanged());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->abandonNewSettings());
    EXPECT_EQ(4, mRecorder->getBitRate());
    EXPECT_FALSE(mRecorder->isSettingChanged());
}

TEST_F(RecorderSettings, FreshRecorderReportsChangedSettings) {
    build();
    EXPECT_TRUE(mRecorder->isSettingChanged());
    peer().applyStagedSettings();
    EXPECT_FALSE(mRecorder->isSettingChanged());
}

// ------------------------------------------------------------ setters

TEST_F(RecorderSettings, OutputFormatAcceptsOnlyAviAndTs) {
    build();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setOutputFormat(static_cast<DVRFileFormat_e>(2)));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setOutputFormat(static_cast<DVRFileFormat_e>(-1)));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setOutputFormat", rec("Invalid file format: 0x2\n")));
    EXPECT_EQ(
        1u, logged(ANDROID_LOG_ERROR, "setOutputFormat", rec("Invalid file format: 0xffffffff\n")));
    EXPECT_EQ(DVR_FILE_FORMAT_TS, mRecorder->getOutputFormat());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setOutputFormat(DVR_FILE_FORMAT_AVI));
    EXPECT_EQ(DVR_FILE_FORMAT_AVI, mRecorder->getOutputFormat());
}

TEST_F(RecorderSettings, BitRateBoundsAreInclusiveAndTheMaximumIsCappedAt25) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setBitRate(1));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setBitRate(25));
    EXPECT_EQ(25, mRecorder->getBitRate());
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setBitRate(26));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setBitRate(0));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setBitRate",
                         rec("Invalid bit rate: 26 Mbps (spec:[1,25])\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setBitRate",
                         rec("Invalid bit rate: 0 Mbps (spec:[1,25])\n")));
    EXPECT_EQ(25, mRecorder->getBitRate());
}

TEST_F(RecorderSettings, FileLengthBoundsAreInclusive) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileLength(1));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileLength(3600));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setFileLength(3601));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setFileLength",
                         rec("Invalid file length: 3601 seconds (spec:[1,3600])\n")));
    EXPECT_EQ(3600, mRecorder->getFileLength());
}

TEST_F(RecorderSettings, FrameRateNeedsACameraAndStaysWithinEncoderAndCamera) {
    build();
    EXPECT_EQ(DVR_FAILURE, mRecorder->setFrameRate(25));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setFrameRate", rec("Camera device NOT attached\n")));
    attachCamera();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setFrameRate(61));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setFrameRate",
                         rec("Invalid frame rate: 61 fps (spec:[1,60])\n")));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setFrameRate(31));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setFrameRate",
                         rec("Desired frame rate(31) exceeds camera's capability(30)\n")));
    EXPECT_EQ(30, mRecorder->getFrameRate());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFrameRate(12));
    EXPECT_EQ(12, mRecorder->getFrameRate());
}

TEST_F(RecorderSettings, ResolutionFollowsTheCameraOnly) {
    build();
    EXPECT_EQ(DVR_FAILURE, mRecorder->setResolution(-1, -1));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setResolution", rec("Camera device NOT attached\n")));
    attachCamera();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setResolution(-1, 480));
    EXPECT_EQ(1920, settings().width);
    EXPECT_EQ(1080, settings().height);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setResolution(640, -1));
    EXPECT_EQ(1920, settings().width);
}

TEST_F(RecorderSettings, AnExplicitResolutionIsRefusedAndKeepsTheSettingsLocked) {
    buildWithCamera();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setResolution(1280, 720));
    EXPECT_EQ(1u, countLogged(mCapture, ANDROID_LOG_ERROR, "DVRRecorder", "setResolution",
                              "Follow input's resolution only...\n"));
    // The refusal leaves the settings lock held: a later settings call waits.
    std::atomic<bool> returned{false};
    Recorder *recorder = mRecorder;
    std::thread waiter([recorder, &returned] {
        recorder->isSettingChanged();
        returned = true;
    });
    waiter.detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned);
    // The blocked thread still uses the recorder: leave it (reachable through
    // gRecorderList) to the end of the process.
    DVRPeer::takeRecorder(*mService, 0);
    mRecorder = nullptr;
}

TEST_F(RecorderSettings, StampsAreTranslatedForTheRenderer) {
    build();
    const QVStampSettings_t timestamp{true, 10, 20, QV_DVR_STAMP_FONT_SIZE_LARGEST, 0, 250};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setTimestamp(timestamp));
    const QVStampSettings_t user{false, 30, 40, QV_DVR_STAMP_FONT_SIZE_SMALLEST, 8, 750};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setSelfDefinedStamp(&user));
    const RecordSettings_t s = settings();
    EXPECT_TRUE(s.timestamp.enabled);
    EXPECT_EQ(10, s.timestamp.x);
    EXPECT_EQ(20, s.timestamp.y);
    EXPECT_EQ(5, s.timestamp.fontSize);
    EXPECT_EQ(0, s.timestamp.reserved);
    EXPECT_EQ(8, s.timestamp.color);
    EXPECT_EQ(250, s.timestamp.interval);
    EXPECT_FALSE(s.userStamp.enabled);
    EXPECT_EQ(1, s.userStamp.fontSize);
    EXPECT_EQ(0, s.userStamp.color);
    EXPECT_EQ(750, s.userStamp.interval);
}

TEST_F(RecorderSettings, StampGettersReturnPositionsAndTheUserInterval) {
    build();
    mRecorder->setTimestamp({true, 10, 20, QV_DVR_STAMP_FONT_SIZE_LARGE, 3, 250});
    const QVStampSettings_t user{true, 30, 40, QV_DVR_STAMP_FONT_SIZE_SMALL, 2, 750};
    mRecorder->setSelfDefinedStamp(&user);
    QVStampSettings_t got{false, 0, 0, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 77, 99};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->getTimestampSetting(&got));
    EXPECT_TRUE(got.enabled);
    EXPECT_EQ(10, got.x);
    EXPECT_EQ(20, got.y);
    EXPECT_EQ(QV_DVR_STAMP_FONT_SIZE_MEDIUM, got.fontSize);
    EXPECT_EQ(77, got.color);
    EXPECT_EQ(99, got.interval);
    QVStampSettings_t gotUser{false, 0, 0, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 77, 99};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->getSelfDefinedStampSetting(&gotUser));
    EXPECT_TRUE(gotUser.enabled);
    EXPECT_EQ(30, gotUser.x);
    EXPECT_EQ(40, gotUser.y);
    EXPECT_EQ(750, gotUser.interval);
    EXPECT_EQ(QV_DVR_STAMP_FONT_SIZE_MEDIUM, gotUser.fontSize);
    EXPECT_EQ(77, gotUser.color);
}

TEST_F(RecorderSettings, AudioSwitchLeavesNoPendingChange) {
    build();
    peer().applyStagedSettings();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setBitRate(6));
    EXPECT_TRUE(mRecorder->isSettingChanged());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setAudioRecording(false));
    EXPECT_FALSE(mRecorder->isSettingChanged());
    EXPECT_FALSE(mRecorder->getAudioRecording());
    // Both records changed: dropping the staged bit rate keeps audio off.
    EXPECT_EQ(DVR_SUCCESS, mRecorder->abandonNewSettings());
    EXPECT_FALSE(mRecorder->getAudioRecording());
    EXPECT_EQ(4, mRecorder->getBitRate());
}

TEST_F(RecorderSettings, GettersFollowTheSettingsInForceWhileRecording) {
    build();
    peer().applyStagedSettings();
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setBitRate(7));
    EXPECT_EQ(7, mRecorder->getBitRate());
    peer().setState(DVR_STM_RECORDING);
    EXPECT_EQ(4, mRecorder->getBitRate());
    EXPECT_EQ(4, settings().bitRate);
    peer().setState(DVR_STM_IDLE);
}

TEST_F(RecorderSettings, SamplingRateIsStagedAndAudioAttachTakesTheDeviceRate) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setSamplingRate(44100));
    EXPECT_EQ(44100u, settings().samplingRate);
    std::unique_ptr<DVRAudioDevice> audio(DVRAudioDeviceFactory::getFactory()->createDevice(0));
    ASSERT_NE(nullptr, audio);
    mRecorder->attachAudio(audio.get());
    EXPECT_EQ(audio->getSamplingRate(), settings().samplingRate);
    EXPECT_EQ(audio.get(), mRecorder->getAudioDevice());
    mRecorder->detachAudio();
    EXPECT_EQ(nullptr, mRecorder->getAttachedAudio());
    const std::set<unsigned int> rates = mRecorder->encoderSamplingRate();
    EXPECT_EQ((std::set<unsigned int>{8000, 16000, 22050, 32000, 44100, 48000}), rates);
}

// ------------------------------------------------------------ resolution mapping

struct ResolutionCase {
    const char *width;
    const char *height;
    int expected;
    const char *errorLine;  // null: none
};

// Keeps the printed parameter (and so the test's listed name) stable.
void PrintTo(const ResolutionCase &c, std::ostream *out) {
    *out << c.width << "x" << c.height;
}

class RecorderResolution : public RecorderFixture,
                           public ::testing::WithParamInterface<ResolutionCase> {};

TEST_P(RecorderResolution, MapsTheSizeInEffect) {
    const ResolutionCase &c = GetParam();
    mEnv.installShippedConfigWith({{"DVR_RES_WIDTH", c.width}, {"DVR_RES_HEIGHT", c.height}});
    build();
    EXPECT_EQ(c.expected, mRecorder->getResolution());
    if (c.errorLine != nullptr) {
        EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "getResolution", rec(c.errorLine)));
    } else {
        EXPECT_TRUE(mCapture.messagesContaining("Invalid size").empty());
    }
}

// The error line shows the height of the settings in force, 0 before any start.
INSTANTIATE_TEST_SUITE_P(
    Sizes, RecorderResolution,
    ::testing::Values(ResolutionCase{"1920", "1080", 1, nullptr},
                      ResolutionCase{"1280", "720", 2, nullptr},
                      ResolutionCase{"720", "480", 3, nullptr},
                      ResolutionCase{"-1", "-1", 0, "Invalid size:{-1,0}\n"},
                      ResolutionCase{"1280", "-1", 0, "Invalid size:{1280,0}\n"},
                      ResolutionCase{"1280", "1080", -1, "Invalid size:{1280,0}\n"}),
    [](const ::testing::TestParamInfo<ResolutionCase> &info) {
        std::string name;
        for (const char *c = info.param.width; *c != '\0'; ++c) {
            name += *c == '-' ? std::string("Minus") : std::string(1, *c);
        }
        name += "x";
        for (const char *c = info.param.height; *c != '\0'; ++c) {
            name += *c == '-' ? std::string("Minus") : std::string(1, *c);
        }
        return name;
    });

// ------------------------------------------------------------ capability

TEST_F(RecorderSettings, CapabilityIsCorrectedToTheSystemLimits) {
    build();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckSystemLimit",
                         rec("Encoder capability (width=3840) exceeds system limitation (1920), "
                             "force to be 1920\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckSystemLimit",
                         rec("Encoder capability (height=2160) exceeds system limitation (1080), "
                             "force to be 1080\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckSystemLimit",
                         rec("Encoder capability (bitrate=40) exceeds system limitation (25), "
                             "force to be 25\n")));
    EncoderDeviceCaps_t caps{};
    EXPECT_EQ(DVR_SUCCESS, Recorder::getDeviceCaps(&caps));
    EXPECT_EQ(255, caps.file_name_length_limit);
    EXPECT_EQ(1920, caps.max_width);
    EXPECT_EQ(1080, caps.max_height);
    EXPECT_EQ(3600, caps.max_file_length);
    EXPECT_EQ(1, caps.min_file_length);
    EXPECT_EQ(25, caps.max_bit_rate);
    EXPECT_EQ(1, caps.min_bit_rate);
    EXPECT_EQ(60, caps.max_frame_rate);
    EXPECT_EQ(1, caps.min_frame_rate);
}

TEST_F(RecorderSettings, CapabilityWithinTheLimitsIsKeptAsItIs) {
    DVRSimConfig sim = DVRSimulatorControl::config();
    sim.encoder.capability = {128, 1280, 720, 600, 10, 12, 2, 25, 5};
    DVRSimulatorControl::setConfig(sim);
    build();
    EXPECT_TRUE(mCapture.messagesContaining("exceeds system limitation").empty());
    EncoderDeviceCaps_t caps{};
    EXPECT_EQ(DVR_SUCCESS, Recorder::getDeviceCaps(&caps));
    EXPECT_EQ(128, caps.file_name_length_limit);
    EXPECT_EQ(1280, caps.max_width);
    EXPECT_EQ(12, caps.max_bit_rate);
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setFileLength(9));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setFileLength",
                         rec("Invalid file length: 9 seconds (spec:[10,600])\n")));
}

TEST_F(RecorderSettings, CapabilityIsAbsentBeforeTheFirstRecorderAndAfterTheLast) {
    EncoderDeviceCaps_t caps{};
    EXPECT_EQ(DVR_FAILURE, Recorder::getDeviceCaps(&caps));
    EXPECT_EQ(1u, countLogged(mCapture, ANDROID_LOG_ERROR, "DVRRecorder", "getDeviceCaps",
                              "Device capability is not initialized yet!\n"));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, Recorder::getDeviceCaps(nullptr));
    EXPECT_EQ(1u, countLogged(mCapture, ANDROID_LOG_ERROR, "DVRRecorder", "getDeviceCaps",
                              "Invalid NULL parameter!\n"));
    // The service builds a recorder for each of the two cameras.
    build(2);
    // Read once, shared by both.
    EXPECT_EQ(1u, mCapture.messagesContaining("(width=3840)").size());
    EXPECT_EQ(DVR_SUCCESS, Recorder::getDeviceCaps(&caps));
    delete DVRPeer::takeRecorder(*mService, 1);
    EXPECT_EQ(DVR_SUCCESS, Recorder::getDeviceCaps(&caps));
    destroyRecorder();
    EXPECT_EQ(DVR_FAILURE, Recorder::getDeviceCaps(&caps));
}

TEST_F(RecorderSettings, AttachingACameraClampsTheStagedSettingsToIt) {
    mEnv.installShippedConfigWith(
        {{"DVR_FPS", "50"}, {"DVR_RES_WIDTH", "2560"}, {"DVR_RES_HEIGHT", "1440"}});
    build();
    peer().applyStagedSettings();
    attachCamera();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckAndCorrection",
                         rec("Frame rate (50 fps) exceeds camera's capability(30 fps)!\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckAndCorrection",
                         rec("Width (2560 px) exceeds camera's capability(1920 px)!\n")));
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_capsCheckAndCorrection",
                         rec("Height (1440 px) exceeds camera's capability(1080 px)!\n")));
    const RecordSettings_t s = settings();
    EXPECT_EQ(30, s.frameRate);
    EXPECT_EQ(1920, s.width);
    EXPECT_EQ(1080, s.height);
    EXPECT_TRUE(mRecorder->isSettingChanged());
}

TEST_F(RecorderSettings, AttachingAFittingCameraChangesNothing) {
    build();
    peer().applyStagedSettings();
    attachCamera();
    EXPECT_FALSE(mRecorder->isSettingChanged());
    EXPECT_TRUE(mCapture.messagesContaining("exceeds camera's capability").empty());
}

// ------------------------------------------------------------ aborts

using RecorderSettingsDeathTest = RecorderSettings;

TEST_F(RecorderSettingsDeathTest, FontSizeAboveTheLargestAborts) {
    build();
    const QVStampSettings_t stamp{true, 0, 0, static_cast<QVDVRStampFontSize_e>(5), 0, 0};
    EXPECT_DEATH(mRecorder->setTimestamp(stamp),
                 "\\[font_size_translate:[0-9]+\\] Undefine font "
                 "size: 5");
}

TEST_F(RecorderSettingsDeathTest, NullUserStampAborts) {
    build();
    EXPECT_DEATH(mRecorder->setSelfDefinedStamp(nullptr),
                 "\\[copy_stamp_setting:[0-9]+\\] Fatal! Input setting is NULL!");
}

TEST_F(RecorderSettingsDeathTest, NullStampGetterArgumentsAbort) {
    build();
    EXPECT_DEATH(mRecorder->getTimestampSetting(nullptr), "Assertion failed: pTsSetting != NULL");
    EXPECT_DEATH(mRecorder->getSelfDefinedStampSetting(nullptr),
                 "Assertion failed: pStampSetting != NULL");
}

TEST_F(RecorderSettingsDeathTest, FailedFormatWriteDuringResetAborts) {
    build();
    // The store's writers lock "<file>.lock"; a directory there fails every write.
    ASSERT_EQ(0, mkdir((mEnv.storePath() + ".lock").c_str(), 0700));
    EXPECT_DEATH(mRecorder->resetSettings(),
                 "\\[resetSettings:[0-9]+\\]  \\[100\\] Fail to write dvr_format into vendor "
                 "data!");
}
