// dvrctl status against a test service with two recorders.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <nlohmann/json.hpp>

#include "DvrctlTool.h"
#include "ServiceProcess.h"

using namespace dvrspace;

namespace {

dvrtest::RecordingDVR::Plan twoChannels() {
    dvrtest::RecordingDVR::Plan plan;
    plan.results = {{"getRecorderCount", 2},
                    {"getCurrentState", DVR_STM_RECORDING},
                    {"getOutputFormat", DVR_FILE_FORMAT_TS},
                    {"getBitRate", 4},
                    {"getFrameRate", 20},
                    {"getResolution", DVR_RESOLUTION_1080P},
                    {"getFileLength", 50}};
    plan.flag = true;
    plan.outId = 1;  // both recorders report device index 1 as attached
    plan.encoderIds = {10, 11};
    plan.cameraIds = {100, 101};
    plan.audioIds = {200, 201};
    plan.stamp.enabled = true;
    return plan;
}

void touch(const std::string &path, time_t modified) {
    FILE *file = fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, file);
    fclose(file);
    const timeval times[2] = {{modified, 0}, {modified, 0}};
    ASSERT_EQ(0, utimes(path.c_str(), times));
}

}  // namespace

TEST(DvrctlStatus, PrintsOneRowPerRecorder) {
    dvrtest::ServiceProcess service(twoChannels());
    const dvrtest::CommandResult result = dvrtest::runDvrctl("status");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(
        "ENC  STATE      CAMERA  AUDIO  AUDIO_REC  FORMAT  MBPS  FPS  RESOLUTION  LENGTH  "
        "TIMESTAMP  USERSTAMP  FILE\n"
        "10   recording  101     201    on         ts      14    30   1080p       60      "
        "on         on         -\n"
        "11   recording  101     201    on         ts      15    31   1080p       61      "
        "on         on         -\n",
        result.out);
}

TEST(DvrctlStatus, AsksForAttachedDevicesOnlyWithIdsFromGetEncoder) {
    dvrtest::ServiceProcess service(twoChannels());
    ASSERT_EQ(0, dvrtest::runDvrctl("status").status);
    std::vector<std::string> attachedQueries;
    for (const std::string &line : service.waitForTranscriptLines(29)) {
        if (line.find("getAttached") != std::string::npos) {
            attachedQueries.push_back(line);
        }
    }
    EXPECT_EQ(
        (std::vector<std::string>{"21 getAttachedCamera(10, &0)", "24 getAttachedAudio(10, &0)",
                                  "21 getAttachedCamera(11, &0)", "24 getAttachedAudio(11, &0)"}),
        attachedQueries);
}

TEST(DvrctlStatus, PrintsTheRecordersAsAJsonArrayWithCamelCaseKeysAndUnits) {
    dvrtest::ServiceProcess service(twoChannels());
    const dvrtest::CommandResult result = dvrtest::runDvrctl("--json status");
    EXPECT_EQ(0, result.status) << result.err;
    const nlohmann::json expected = nlohmann::json::parse(R"({"command":"status","result":[
        {"encId":10,"state":"recording","camId":101,"audId":201,"audioRecording":true,
         "format":"ts","bitRateMbps":14,"frameRateFps":30,"resolution":"1080p","fileLengthS":60,
         "timestampEnabled":true,"userStampEnabled":true,"file":null},
        {"encId":11,"state":"recording","camId":101,"audId":201,"audioRecording":true,
         "format":"ts","bitRateMbps":15,"frameRateFps":31,"resolution":"1080p","fileLengthS":61,
         "timestampEnabled":true,"userStampEnabled":true,"file":null}]})");
    EXPECT_EQ(expected, nlohmann::json::parse(result.out));
}

TEST(DvrctlStatus, ShowsTheNewestFileOfEachRecordersDirectory) {
    dvrtest::ServiceProcess service(twoChannels());
    dvrtest::TempDir first;
    dvrtest::TempDir second;
    touch(first.file("old.ts"), 1000000);
    touch(first.file("new.ts"), 2000000);
    touch(second.file("only.avi"), 1500000);
    ASSERT_EQ(0, mkdir(second.file("newer-directory").c_str(), 0700));
    const dvrtest::CommandResult result =
        dvrtest::runDvrctl("--json status --dir " + first.path() + " --dir " + second.path());
    EXPECT_EQ(0, result.status) << result.err;
    const nlohmann::json rows = nlohmann::json::parse(result.out).at("result");
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("new.ts", rows[0].at("file"));
    EXPECT_EQ("only.avi", rows[1].at("file"));
}

TEST(DvrctlStatus, DevicesThatAreNotAttachedShowAsDashes) {
    dvrtest::RecordingDVR::Plan plan = twoChannels();
    plan.results["getRecorderCount"] = 1;
    plan.results["getAttachedCamera"] = -1;
    plan.results["getAttachedAudio"] = -1;
    dvrtest::ServiceProcess service(plan);
    const dvrtest::CommandResult result = dvrtest::runDvrctl("status");
    EXPECT_EQ(0, result.status) << result.err;
    ASSERT_EQ(2u, dvrtest::lines(result.out).size()) << result.out;
    EXPECT_EQ(0u, dvrtest::lines(result.out)[1].find("10   recording  -       -      on"))
        << result.out;
}
