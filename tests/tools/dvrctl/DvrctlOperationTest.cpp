// Every IDVR operation through its dvrctl subcommand: the service sees the
// arguments typed on the command line, and dvrctl prints what it answered.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "DvrctlTool.h"
#include "IDVROperations.h"
#include "ServiceProcess.h"

using namespace dvrspace;

namespace {

struct OperationCase {
    std::string name;       // test name and operation
    std::string arguments;  // after "dvrctl"
    std::vector<std::string> transcript;
    std::string out;
};

dvrtest::RecordingDVR::Plan answeringPlan() {
    dvrtest::RecordingDVR::Plan plan;
    plan.results = {{"getCameraCount", 2},  {"getAudioCount", 1},   {"getRecorderCount", 2},
                    {"getBitRate", 8},      {"getFrameRate", 25},   {"getFileLength", 60},
                    {"getCurrentState", 3}, {"getOutputFormat", 1}, {"getResolution", 2}};
    plan.flag = true;
    plan.outId = 7;
    plan.deviceType = QV_DVR_DEVICE_TYPE_MIPI;
    plan.samplingRates = {8000, 16000};
    plan.snapshot = {{0x40001000u, 0x40100000u}, 640, 480, 704, 123456789012ull};
    plan.stamp = {true, 10, 20, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 5, 1000};
    plan.encoderCaps = {255, 1920, 1080, 600, 10, 16, 1, 30, 1};
    plan.cameraCaps = {1280, 720, 1280, DVR_VIDEO_FORMAT_NV12};
    plan.audioCaps = {{0x1f, 2}};
    return plan;
}

const char *const kZeroStamp = "&{enabled=false x=0 y=0 fontSize=0 color=0 interval=0}";

// A guard rail's look for channel 3 among the recorders: the fake has two,
// both with encoder id 7, so channel 3 is unknown and nothing is refused.
std::vector<std::string> probedChannel3(const std::string &call) {
    return {"17 getRecorderCount()", "18 getEncoder(0, &0)", "18 getEncoder(1, &0)", call};
}

std::vector<OperationCase> operationCases() {
    return {
        {"registerCallback",
         "registerCallback 42 7 filename",
         {"0 registerCallback(42, 7, 4)"},
         "0\n"},
        {"unregisterCallback",
         "unregisterCallback 42 7 0",
         {"1 unregisterCallback(42, 7, 0)"},
         "0\n"},
        {"establishCallback", "establishCallback 42", {"2 establishCallback(42, callback)"}, "0\n"},
        {"establishCallbackWithNull",
         "establishCallback 42 --null",
         {"2 establishCallback(42, null)"},
         "0\n"},
        {"destroyCallback", "destroyCallback 42", {"3 destroyCallback(42)"}, "0\n"},
        {"startRecordAll",
         "startRecordAll",
         {"17 getRecorderCount()", "18 getEncoder(0, &0)", "42 getCurrentState(7)",
          "18 getEncoder(1, &0)", "42 getCurrentState(7)", "4 startRecordAll()"},
         "0\n"},
        {"stopRecordAll", "stopRecordAll", {"5 stopRecordAll()"}, "0\n"},
        {"applySettingsAll", "applySettingsAll", {"6 applySettingsAll()"}, "0\n"},
        {"abandonNewSettingsAll", "abandonNewSettingsAll", {"7 abandonNewSettingsAll()"}, "0\n"},
        {"factoryReset", "factoryReset", {"8 factoryReset()"}, "0\n"},
        {"setCameraSources", "setCameraSources 2 5 6", {"9 setCameraSources(2, [5,6])"}, "0\n"},
        {"setAudioRecording", "setAudioRecording -1 on", {"10 setAudioRecording(-1, true)"}, "0\n"},
        {"getAudioRecording", "getAudioRecording 3", {"11 getAudioRecording(3)"}, "true\n"},
        {"getCameraCount", "getCameraCount", {"12 getCameraCount()"}, "2\n"},
        {"getCamera",
         "getCamera 1",
         {"13 getCamera(1, &0, &0)"},
         "result: 0\ncamId: 7\ntype: mipi\n"},
        {"getAudioCount", "getAudioCount", {"14 getAudioCount()"}, "1\n"},
        {"getAudio", "getAudio 0", {"15 getAudio(0, &0)"}, "result: 0\naudId: 7\n"},
        {"getSupportSamplingRate",
         "getSupportSamplingRate",
         {"16 getSupportSamplingRate()"},
         "8000 16000\n"},
        {"getRecorderCount", "getRecorderCount", {"17 getRecorderCount()"}, "2\n"},
        {"getEncoder", "getEncoder 1", {"18 getEncoder(1, &0)"}, "result: 0\nencId: 7\n"},
        {"attachCamera", "attachCamera 3 4", {"19 attachCamera(3, 4)"}, "0\n"},
        {"detachCamera", "detachCamera 3", {"20 detachCamera(3)"}, "0\n"},
        {"getAttachedCamera",
         "getAttachedCamera 3",
         {"21 getAttachedCamera(3, &0)"},
         "result: 0\nindex: 7\n"},
        {"attachAudio", "attachAudio 3 5", {"22 attachAudio(3, 5)"}, "0\n"},
        {"detachAudio", "detachAudio 3", {"23 detachAudio(3)"}, "0\n"},
        {"getAttachedAudio",
         "getAttachedAudio 3",
         {"24 getAttachedAudio(3, &0)"},
         "result: 0\nindex: 7\n"},
        {"startRecord", "startRecord 3", probedChannel3("25 startRecord(3)"), "0\n"},
        {"stopRecord", "stopRecord 3", {"26 stopRecord(3)"}, "0\n"},
        {"autoNextFile", "autoNextFile 3 off", {"27 autoNextFile(3, false)"}, "0\n"},
        {"nextFile", "nextFile 3 /rec/next.ts", {"28 nextFile(3, \"/rec/next.ts\")"}, "0\n"},
        {"nextFileWithoutName", "nextFile 3", {"28 nextFile(3, null)"}, "0\n"},
        {"setStoragePath", "setStoragePath 3 /data/rec",
         probedChannel3("29 setStoragePath(3, \"/data/rec\")"), "0\n"},
        {"setFileNameFormat", "setFileNameFormat 3 'cam_%ST' '%H%M'",
         probedChannel3("30 setFileNameFormat(3, \"cam_%ST\", \"%H%M\")"), "0\n"},
        {"setFileNameFormatReset",
         "setFileNameFormat 3",
         {"30 setFileNameFormat(3, null, null)"},
         "0\n"},
        {"applySettings", "applySettings 3", {"31 applySettings(3)"}, "0\n"},
        {"abandonNewSettings", "abandonNewSettings 3", {"32 abandonNewSettings(3)"}, "0\n"},
        {"takeSnapshot",
         "takeSnapshot 3",
         {"33 takeSnapshot(3, {planePA=0u,0u width=0 height=0 stride=0 timestamp=0})"},
         "result: 0\nlumaPA: 1073745920\nchromaPA: 1074790400\nwidthPx: 640\nheightPx: 480\n"
         "strideBytes: 704\ntimestampUs: 123456789012\n"},
        {"setOutputFormat", "setOutputFormat 3 ts", {"34 setOutputFormat(3, 1)"}, "0\n"},
        {"setBitRate", "setBitRate 3 12", {"35 setBitRate(3, 12)"}, "0\n"},
        {"setFrameRate", "setFrameRate 3 30", {"36 setFrameRate(3, 30)"}, "0\n"},
        {"setResolution", "setResolution 3 720p", probedChannel3("37 setResolution(3, 2)"), "0\n"},
        {"setResolutionByNumber", "setResolution 3 -1", probedChannel3("37 setResolution(3, -1)"),
         "0\n"},
        {"setFileLength", "setFileLength 3 300", {"38 setFileLength(3, 300)"}, "0\n"},
        {"setTimestamp",
         "setTimestamp 3 --x 50 --enable off --size small --color 1",
         {std::string("49 getTimestampSetting(3, ") + kZeroStamp + ")",
          "39 setTimestamp(3, &{enabled=false x=50 y=20 fontSize=1 color=1 interval=1000})"},
         "0\n"},
        {"setSelfDefinedStamp",
         "setSelfDefinedStamp 3 --size large --color 8 --y 70 --interval 250",
         {std::string("50 getSelfDefinedStampSetting(3, ") + kZeroStamp + ")",
          "40 setSelfDefinedStamp(3, &{enabled=true x=10 y=70 fontSize=3 color=8 "
          "interval=250})"},
         "0\n"},
        {"isSettingChanged", "isSettingChanged 3", {"41 isSettingChanged(3)"}, "true\n"},
        {"getCurrentState", "getCurrentState 3", {"42 getCurrentState(3)"}, "recording\n"},
        {"getEncoderCapability",
         "getEncoderCapability 3",
         {"43 getEncoderCapability(3, &{file_name_length_limit=0 max_width=0 max_height=0 "
          "max_file_length=0 min_file_length=0 max_bit_rate=0 min_bit_rate=0 "
          "max_frame_rate=0 min_frame_rate=0})"},
         "result: 0\nfileNameLengthLimitBytes: 255\nmaxWidthPx: 1920\nmaxHeightPx: 1080\n"
         "maxFileLengthS: 600\nminFileLengthS: 10\nmaxBitRateMbps: 16\nminBitRateMbps: 1\n"
         "maxFrameRateFps: 30\nminFrameRateFps: 1\n"},
        {"getOutputFormat", "getOutputFormat 3", {"44 getOutputFormat(3)"}, "ts\n"},
        {"getBitRate", "getBitRate 3", {"45 getBitRate(3)"}, "11\n"},
        {"getFrameRate", "getFrameRate 3", {"46 getFrameRate(3)"}, "28\n"},
        {"getResolution", "getResolution 3", {"47 getResolution(3)"}, "720p\n"},
        {"getFileLength", "getFileLength 3", {"48 getFileLength(3)"}, "63\n"},
        {"getTimestampSetting",
         "getTimestampSetting 3",
         {std::string("49 getTimestampSetting(3, ") + kZeroStamp + ")"},
         "result: 0\nenabled: true\nxPx: 10\nyPx: 20\n"},
        {"getSelfDefinedStampSetting",
         "getSelfDefinedStampSetting 3",
         {std::string("50 getSelfDefinedStampSetting(3, ") + kZeroStamp + ")"},
         "result: 0\nenabled: true\nxPx: 10\nyPx: 20\nintervalMs: 1000\n"},
        {"getCameraCapability",
         "getCameraCapability 4",
         {"51 getCameraCapability(4, &{width=0 height=0 stride=0 format=0})"},
         "result: 0\nwidthPx: 1280\nheightPx: 720\nstrideBytes: 1280\nformat: nv12\n"},
        {"getAudioCapability",
         "getAudioCapability 5",
         {"52 getAudioCapability(5, &{caps=0,0})"},
         "result: 0\ncaps0: 31\ncaps1: 2\n"},
        {"setSamplingRate", "setSamplingRate 5 16000", {"53 setSamplingRate(5, 16000u)"}, "0\n"},
    };
}

// Names the case in test output instead of dumping its bytes.
void PrintTo(const OperationCase &operationCase, std::ostream *out) {
    *out << "dvrctl " << operationCase.arguments;
}

class DvrctlOperation : public ::testing::TestWithParam<OperationCase> {};

}  // namespace

TEST(DvrctlOperations, EveryOperationOfTheInterfaceIsCoveredBelow) {
    std::set<std::string> covered;
    for (const OperationCase &operationCase : operationCases()) {
        covered.insert(operationCase.arguments.substr(0, operationCase.arguments.find(' ')));
    }
    const std::vector<std::string> &operations = dvrtest::idvrOperations();
    EXPECT_EQ(std::set<std::string>(operations.begin(), operations.end()), covered);
}

TEST_P(DvrctlOperation, ReachesTheServiceWithItsArgumentsAndPrintsTheAnswer) {
    const OperationCase &operationCase = GetParam();
    dvrtest::ServiceProcess service(answeringPlan());
    const dvrtest::CommandResult plain = dvrtest::runDvrctl(operationCase.arguments);
    EXPECT_EQ(0, plain.status) << plain.err;
    EXPECT_EQ(operationCase.out, plain.out);
    EXPECT_EQ(operationCase.transcript,
              service.waitForTranscriptLines(operationCase.transcript.size()));

    // The same call again, answered as one JSON object.
    const dvrtest::CommandResult json = dvrtest::runDvrctl("--json " + operationCase.arguments);
    EXPECT_EQ(0, json.status) << json.err;
    ASSERT_EQ(1u, dvrtest::lines(json.out).size()) << json.out;
    const nlohmann::json object = nlohmann::json::parse(json.out);
    EXPECT_EQ(operationCase.arguments.substr(0, operationCase.arguments.find(' ')),
              object.at("command"));
    EXPECT_TRUE(object.contains("result"));
    EXPECT_EQ(operationCase.transcript,
              service.waitForTranscriptLines(operationCase.transcript.size()));
}

INSTANTIATE_TEST_SUITE_P(Each, DvrctlOperation, ::testing::ValuesIn(operationCases()),
                         [](const ::testing::TestParamInfo<OperationCase> &info) {
                             return info.param.name;
                         });

TEST(DvrctlJson, RecordsAndEnumerationsKeepTheirFieldsAndNames) {
    dvrtest::ServiceProcess service(answeringPlan());
    const nlohmann::json stamp =
        nlohmann::json::parse(dvrtest::runDvrctl("--json getTimestampSetting 3").out);
    EXPECT_EQ(nlohmann::json::parse(R"({"command":"getTimestampSetting","result":0,
        "enabled":true,"xPx":10,"yPx":20})"),
              stamp);
    const nlohmann::json state =
        nlohmann::json::parse(dvrtest::runDvrctl("--json getCurrentState 3").out);
    EXPECT_EQ(
        nlohmann::json::parse(R"({"command":"getCurrentState","result":3,"name":"recording"})"),
        state);
    const nlohmann::json rates =
        nlohmann::json::parse(dvrtest::runDvrctl("--json getSupportSamplingRate").out);
    EXPECT_EQ(
        nlohmann::json::parse(R"({"command":"getSupportSamplingRate","result":[8000,16000]})"),
        rates);
    const nlohmann::json flag =
        nlohmann::json::parse(dvrtest::runDvrctl("--json isSettingChanged 3").out);
    EXPECT_EQ(true, flag.at("result"));
}

TEST(DvrctlExitStatus, ANegativeResultExitsWithOneAndPrintsTheCode) {
    dvrtest::RecordingDVR::Plan plan;
    plan.results = {{"startRecord", -3}, {"getBitRate", -4}, {"getCamera", -2}};
    dvrtest::ServiceProcess service(plan);
    const dvrtest::CommandResult start = dvrtest::runDvrctl("startRecord 1");
    EXPECT_EQ(1, start.status);
    EXPECT_EQ("-3\n", start.out);
    // No recorder of the fake has encoder id 1, so no state tells more.
    EXPECT_EQ("dvrctl: startRecord: -3: not allowed in the channel's state, or during suspend\n",
              start.err);
    const dvrtest::CommandResult bitRate = dvrtest::runDvrctl("getBitRate 1");
    EXPECT_EQ(1, bitRate.status);
    EXPECT_EQ("-3\n", bitRate.out);  // the fake answers its result plus the id
    const dvrtest::CommandResult camera = dvrtest::runDvrctl("--json getCamera 0");
    EXPECT_EQ(1, camera.status);
    EXPECT_EQ(nlohmann::json::parse(R"json({"command":"getCamera","result":-2,"error":{
        "kind":"result","code":-2,"meaning":"invalid argument","exitStatus":1,
        "message":"-2: INDEX is outside the table (getCameraCount, getAudioCount, getRecorderCount)"}})json"),
              nlohmann::json::parse(camera.out));
}

TEST(DvrctlExitStatus, AFalseAnswerIsNoFailure) {
    dvrtest::ServiceProcess service(dvrtest::RecordingDVR::Plan{});
    const dvrtest::CommandResult changed = dvrtest::runDvrctl("isSettingChanged 1");
    EXPECT_EQ(0, changed.status);
    EXPECT_EQ("false\n", changed.out);
}

TEST(DvrctlExitStatus, AServiceThatStaysAwayExitsWithThree) {
    dvrtest::TempDir emptyBinderDirectory;
    const dvrtest::CommandResult result =
        dvrtest::runCommand("DVR_BINDER_DIR=" + emptyBinderDirectory.path() + " " +
                            dvrtest::dvrctlCommand("--wait 200 getCameraCount"));
    EXPECT_EQ(3, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_NE(std::string::npos, result.err.find("not reachable within 200 ms")) << result.err;
}
