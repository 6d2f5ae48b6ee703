// Under --json every output of dvrctl is JSON, errors included: every
// subcommand against a throwaway dvr_server, each line of its output parsed.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "CommandResult.h"
#include "DvrctlServer.h"
#include "DvrctlTool.h"
#include "IDVROperations.h"

using dvrtest::CommandResult;

namespace {

class DvrctlJson : public dvrtest::DvrctlServer {
protected:
    // dvrctl --json WORDS: every line of its output is one JSON object, with
    // "error" when the exit status is not 0.
    nlohmann::json json(const std::string &words) {
        const CommandResult result = dvrctl("--json " + words);
        const std::vector<std::string> lines = dvrtest::lines(result.out);
        EXPECT_FALSE(lines.empty()) << words << ": " << result.err;
        nlohmann::json last;
        for (const std::string &line : lines) {
            last = nlohmann::json::parse(line, nullptr, false);
            EXPECT_TRUE(last.is_object()) << words << ": " << line;
        }
        if (last.is_object() && result.status != 0) {
            EXPECT_TRUE(last.contains("error")) << words << ": " << result.out;
        }
        mCovered.insert(words.substr(0, words.find(' ')));
        return last;
    }

    std::set<std::string> mCovered;
};

}  // namespace

TEST_F(DvrctlJson, EverySubcommandPrintsJsonErrorsIncluded) {
    json("registerCallback 42 7 record");
    json("unregisterCallback 42 7 record");
    json("establishCallback 4242");
    EXPECT_EQ("result", json("destroyCallback 4343").at("error").at("kind"));
    json("getCameraCount");
    EXPECT_EQ(10, json("getCamera 0").at("camId"));
    json("getAudioCount");
    json("getAudio 0");
    json("getSupportSamplingRate");
    json("getRecorderCount");
    json("getEncoder 0");
    json("attachCamera 100 10");
    json("getAttachedCamera 100");
    json("attachAudio 100 20");
    json("getAttachedAudio 100");
    EXPECT_EQ(-1, json("getAttachedAudio 101").at("result"));
    json("setAudioRecording 100 off");
    json("getAudioRecording 100");
    json("setOutputFormat 100 ts");
    json("setBitRate 100 4");
    json("setFrameRate 100 10");
    json("setResolution 100 default");
    json("setFileLength 100 1");
    json("setTimestamp 100 --enable on --size small --color 1");
    json("setSelfDefinedStamp 100 --enable off --size small --color 1");
    EXPECT_EQ(true, json("getTimestampSetting 100").at("enabled"));
    EXPECT_TRUE(json("getSelfDefinedStampSetting 100").contains("intervalMs"));
    json("isSettingChanged 100");
    json("getEncoderCapability 100");
    json("getOutputFormat 100");
    json("getBitRate 100");
    json("getFrameRate 100");
    json("getResolution 100");
    json("getFileLength 100");
    EXPECT_EQ(320, json("getCameraCapability 10").at("widthPx"));
    json("getAudioCapability 20");
    json("setSamplingRate 20 16000");
    json("setStoragePath 100 recordings");
    json("setFileNameFormat 100");
    json("autoNextFile 100 off");
    json("nextFile 100 recordings/json.ts");
    json("applySettings 100");
    // Channel 100's current settings are still the cleared ones (format -1)
    // until its first start: abandoning its new ones would make that start
    // abort the service, so channel 101 abandons.
    json("abandonNewSettings 101");
    EXPECT_EQ("ready", json("getCurrentState 100").at("name"));
    EXPECT_EQ(0, json("startRecord 100").at("result"));
    json("status --dir recordings");
    EXPECT_TRUE(json("takeSnapshot 100").contains("timestampUs"));
    json("snapshot 100 recordings/frame.png --arena " + mArena);
    EXPECT_EQ("record", json("watch --count 1 --seconds 10").at("type"));
    json("stopRecord 100");
    EXPECT_EQ("result", json("startRecordAll").at("error").at("kind"));
    json("stopRecordAll");
    json("applySettingsAll");
    json("abandonNewSettingsAll");
    json("factoryReset");
    json("detachAudio 100");
    json("detachCamera 100");
    json("setCameraSources 2 0 1");

    std::set<std::string> expected(dvrtest::idvrOperations().begin(),
                                   dvrtest::idvrOperations().end());
    expected.insert({"watch", "status", "snapshot"});
    EXPECT_EQ(expected, mCovered);
}

TEST_F(DvrctlJson, UsageErrorsRefusalsAndUnreachableServicesAreJson) {
    const nlohmann::json usage = json("startRecord");
    EXPECT_EQ(nlohmann::json::parse(R"({"command":"startRecord","error":{"kind":"usage",
        "message":"missing argument ENC_ID","exitStatus":2}})"),
              usage);
    EXPECT_EQ("unknown command 'startRecording'",
              json("startRecording 1").at("error").at("message"));
    EXPECT_EQ(nullptr, json("startRecording 1").at("command"));
    EXPECT_EQ("unknown option --verbose",
              json("--verbose getCameraCount").at("error").at("message"));
    EXPECT_EQ("refused", json("setTimestamp 100 --x 4").at("error").at("kind"));
    json("attachCamera 100 10");
    const nlohmann::json refused = json("setResolution 100 480p");
    EXPECT_EQ("refused", refused.at("error").at("kind"));
    EXPECT_EQ(2, refused.at("error").at("exitStatus"));
    const nlohmann::json away = json("--service nobody --wait 0 getCameraCount");
    EXPECT_EQ("unreachable", away.at("error").at("kind"));
    EXPECT_EQ(3, away.at("error").at("exitStatus"));
}
