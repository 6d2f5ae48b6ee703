#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "DVRAudioDeviceFactory.h"
#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"
#include "DVRSimulatorControl.h"
#include "LogCapture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

class SimConfig : public testing::Test {
protected:
    void TearDown() override {
        unsetenv("DVR_SIM_CONFIG");
        DVRSimulatorControl::reset();
    }
};

}  // namespace

TEST_F(SimConfig, BuiltInDefault) {
    const DVRSimConfig config = DVRSimConfig::builtInDefault();
    ASSERT_EQ(2u, config.cameras.size());
    EXPECT_EQ(10, config.cameras[0].id);
    EXPECT_EQ(11, config.cameras[1].id);
    EXPECT_EQ(1920, config.cameras[1].width);
    EXPECT_EQ(30, config.cameras[1].frameRate);
    ASSERT_EQ(1u, config.audioInputs.size());
    EXPECT_EQ(20, config.audioInputs[0].id);
    EXPECT_EQ((std::vector<int>{100, 101}), config.encoder.ids);
    EXPECT_EQ(DVRSimPacing::RealTime, config.pacing);
    EXPECT_EQ("es_server", config.encoderServiceName);
}

TEST_F(SimConfig, JsonReplacesTheKeysItNames) {
    DVRSimConfig config;
    std::string error;
    ASSERT_TRUE(DVRSimConfig::fromJson(R"({
        "pacing": "fast",
        "cameras": [{"id": 3, "width": 640, "height": 480, "frameRate": 25,
                     "createException": "notReady"}],
        "audioInputs": [],
        "encoder": {"ids": [7], "samplingRates": [8000], "preset": "veryfast",
                    "capability": {"maxBitRate": 12, "minFileLength": 5}},
        "arena": {"bytes": 1048576},
        "serviceNames": {"encoder": "enc", "camera": "cam", "audio": "aud"}
    })",
                                       &config, &error))
        << error;
    EXPECT_EQ(DVRSimPacing::Fast, config.pacing);
    ASSERT_EQ(1u, config.cameras.size());
    EXPECT_EQ(3, config.cameras[0].id);
    EXPECT_EQ(640, config.cameras[0].stride);
    EXPECT_EQ(25, config.cameras[0].frameRate);
    EXPECT_EQ(DVRSimCreateException::NotReady, config.cameras[0].createException);
    EXPECT_TRUE(config.audioInputs.empty());
    EXPECT_EQ((std::vector<int>{7}), config.encoder.ids);
    EXPECT_EQ((std::set<unsigned int>{8000}), config.encoder.samplingRates);
    EXPECT_EQ("veryfast", config.encoder.preset);
    EXPECT_EQ(12, config.encoder.capability.max_bit_rate);
    EXPECT_EQ(5, config.encoder.capability.min_file_length);
    EXPECT_EQ(3840, config.encoder.capability.max_width);
    EXPECT_EQ(1048576u, config.arenaBytes);
    EXPECT_EQ("aud", config.audioServiceName);
}

TEST_F(SimConfig, MalformedJsonIsRefusedWithAReasonAndChangesNothing) {
    const struct {
        const char *json;
        const char *reason;
    } cases[] = {
        {"{", "parse error"},
        {"[]", "the configuration is not a JSON object"},
        {R"({"pacing": "slow"})", "pacing must be realtime or fast"},
        {R"({"cameras": [{"width": 641}]})",
         "cameras[0]: width and height must be positive and even"},
        {R"({"cameras": [{"buffers": 2}]})", "cameras[0].buffers must be at least 3"},
        {R"({"cameras": [{"createException": "maybe"}]})", "createException must be"},
        {R"({"audioInputs": [{"samplingRate": 12345}]})", "samplingRate must be one of"},
        {R"({"encoder": {"threads": -1}})", "encoder.threads must not be negative"},
        {R"({"audioInputs": [{"chunkMs": 20, "bufferMs": 10}]})",
         "audioInputs[0].bufferMs must be chunkMs to 60000"},
        {R"({"audioInputs": [{"markSeconds": -1}]})",
         "audioInputs[0].markSeconds must be 0 to 3600, with a chunkMs that divides a second"},
        {R"({"audioInputs": [{"chunkMs": 30, "markSeconds": 1}]})",
         "audioInputs[0].markSeconds must be 0 to 3600, with a chunkMs that divides a second"},
        {R"({"cameras": [{"id": "ten"}]})", "type must be number"},
    };
    for (const auto &item : cases) {
        DVRSimConfig config;
        config.encoderServiceName = "untouched";
        std::string error;
        EXPECT_FALSE(DVRSimConfig::fromJson(item.json, &config, &error)) << item.json;
        EXPECT_NE(std::string::npos, error.find(item.reason)) << item.json << ": " << error;
        EXPECT_EQ("untouched", config.encoderServiceName);
    }
    std::string error;
    EXPECT_FALSE(DVRSimulatorControl::loadConfigText("{", &error));
    EXPECT_EQ(2u, DVRSimulatorControl::config().cameras.size());
}

TEST_F(SimConfig, EnvironmentNamesTheConfigurationFile) {
    dvrtest::TempDir dir;
    setenv("DVR_SIM_CONFIG",
           dir.write("sim.json", R"({"cameras": [{"id": 5}, {"id": 5}, {"id": 6}],
                                     "audioInputs": [], "encoder": {"ids": [1, 2, 3]}})")
               .c_str(),
           1);
    DVRSimulatorControl::reset();
    const DVRSimConfig config = DVRSimulatorControl::config();
    ASSERT_EQ(3u, config.cameras.size());
    EXPECT_EQ(5, config.cameras[1].id);
    EXPECT_EQ(nullptr, DVRAudioDeviceFactory::getFactory()->createDevice(0));
}

TEST_F(SimConfig, UnreadableOrInvalidFileFallsBackToTheBuiltInDevicesWithALogLine) {
    dvrtest::TempDir dir;
    DVRSimulatorControl::config();  // the simulator exists before the log is captured
    dvrtest::LogCapture log;
    const std::string missing = dir.file("missing.json");
    setenv("DVR_SIM_CONFIG", missing.c_str(), 1);
    DVRSimulatorControl::reset();
    EXPECT_EQ(2u, DVRSimulatorControl::config().cameras.size());
    EXPECT_EQ(1u, log.messagesContaining("Cannot read DVR_SIM_CONFIG " + missing +
                                         ", using the built-in devices")
                      .size());
    const std::string invalid = dir.write("bad.json", R"({"pacing": 1})");
    setenv("DVR_SIM_CONFIG", invalid.c_str(), 1);
    DVRSimulatorControl::reset();
    EXPECT_EQ(2u, DVRSimulatorControl::config().cameras.size());
    EXPECT_EQ(1u, log.messagesContaining("Invalid DVR_SIM_CONFIG " + invalid).size());
}

TEST_F(SimConfig, ServiceNamesFollowTheConfiguration) {
    std::string error;
    ASSERT_TRUE(DVRSimulatorControl::loadConfigText(
        R"({"serviceNames": {"encoder": "enc", "camera": "cam", "audio": "aud"}})", &error));
    EXPECT_STREQ("enc", DVREncoderFactory::getFactory()->getServiceName());
    EXPECT_STREQ("cam", DVRCameraDeviceFactory::getFactory()->getServiceName());
    EXPECT_STREQ("aud", DVRAudioDeviceFactory::getFactory()->getServiceName());
}

TEST_F(SimConfig, DeviceSuspendAndResumeResultsComeFromTheConfigUnlessForced) {
    std::string error;
    ASSERT_TRUE(DVRSimulatorControl::loadConfigText(
        R"({"cameras": [{"id": 10, "resumeResult": 1}, {"id": 11, "suspendResult": -1}],
            "audioInputs": [{"id": 20, "resumeResult": -1}]})",
        &error))
        << error;
    std::unique_ptr<DVRCameraDevice> first(DVRCameraDeviceFactory::getFactory()->createDevice(0));
    std::unique_ptr<DVRCameraDevice> second(DVRCameraDeviceFactory::getFactory()->createDevice(1));
    std::unique_ptr<DVRAudioDevice> audio(DVRAudioDeviceFactory::getFactory()->createDevice(0));
    EXPECT_EQ(0, first->suspend());
    EXPECT_EQ(1, first->resume());
    EXPECT_EQ(-1, second->suspend());
    EXPECT_EQ(0, second->resume());
    EXPECT_EQ(0, audio->suspend());
    EXPECT_EQ(-1, audio->resume());
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Resume, 0);
    EXPECT_EQ(0, first->resume());
}

TEST_F(SimConfig, AudioInputBufferComesFromTheConfiguration) {
    EXPECT_EQ(2000, DVRSimConfig::builtInDefault().audioInputs[0].bufferMs);
    DVRSimConfig config;
    std::string error;
    ASSERT_TRUE(DVRSimConfig::fromJson(R"({"audioInputs": [{"id": 20, "bufferMs": 500}]})", &config,
                                       &error))
        << error;
    ASSERT_EQ(1u, config.audioInputs.size());
    EXPECT_EQ(500, config.audioInputs[0].bufferMs);
}

TEST_F(SimConfig, AudioTimeMarksComeFromTheConfigurationAndAreOffByDefault) {
    EXPECT_EQ(0, DVRSimConfig::builtInDefault().audioInputs[0].markSeconds);
    DVRSimConfig config;
    std::string error;
    ASSERT_TRUE(DVRSimConfig::fromJson(R"({"audioInputs": [{"id": 20, "markSeconds": 60}]})",
                                       &config, &error))
        << error;
    ASSERT_EQ(1u, config.audioInputs.size());
    EXPECT_EQ(60, config.audioInputs[0].markSeconds);
}
