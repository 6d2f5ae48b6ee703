// dvrctl's guard rails against a throwaway dvr_server: each request whose
// documented outcome wedges a channel or aborts the service is refused with
// its reason (exit status 2, nothing sent), and with --force the service does
// what it is documented to do. Every non-zero result is explained.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CommandResult.h"
#include "DvrctlServer.h"

using dvrtest::CommandResult;

namespace {

class DvrctlGuard : public dvrtest::DvrctlServer {
protected:
    // Runs every set-up command; each must succeed.
    void prepare(const std::vector<std::string> &commands) {
        for (const std::string &words : commands) {
            const CommandResult result = dvrctl(words);
            ASSERT_EQ(0, result.status) << words << ": " << result.out << result.err;
        }
    }

    void expectRefused(const std::string &words, const std::string &reason) {
        const CommandResult result = dvrctl(words);
        EXPECT_EQ(2, result.status) << words << ": " << result.out << result.err;
        EXPECT_EQ("", result.out) << words;
        const std::string command = words.substr(0, words.find(' '));
        EXPECT_EQ("dvrctl: " + command + ": " + reason + "\n", result.err) << words;
    }

    // The server ended by an abort (SIGABRT) within 60 s.
    void expectAborted() {
        const int status = mServer.waitForExit();
        ASSERT_TRUE(WIFSIGNALED(status)) << status << "\n" << mServer.log();
        EXPECT_EQ(SIGABRT, WTERMSIG(status));
    }
};

}  // namespace

TEST_F(DvrctlGuard, SetResolutionWithACameraIsRefusedAndForcedWedgesTheChannel) {
    prepare({"attachCamera 100 10"});
    expectRefused("setResolution 100 720p",
                  "channel 100 has a camera attached, and the service accepts only 'default' "
                  "(follow the camera): it answers -2 and leaves the channel's settings lock held, "
                  "so every later setter on channel 100 hangs and the server no longer stops on "
                  "SIGTERM");
    EXPECT_EQ(std::string::npos, mServer.log().find("Follow input's resolution only"));
    // The refused request changed nothing: a setter still answers.
    const CommandResult bitRate = dvrctl("setBitRate 100 4");
    EXPECT_EQ(0, bitRate.status) << bitRate.err;

    const CommandResult forced = dvrctl("setResolution 100 720p --force");
    EXPECT_EQ(1, forced.status);
    EXPECT_EQ("-2\n", forced.out);
    EXPECT_EQ(
        "dvrctl: setResolution: -2: only 'default' (follow the camera) is accepted while a "
        "camera is attached; channel 100's settings lock is now held: its setters hang until the "
        "service restarts\n",
        forced.err);
    EXPECT_TRUE(mServer.waitForLog("Follow input's resolution only...")) << mServer.log();

    // The next setter never returns: the per-call timeout ends dvrctl.
    const CommandResult hung = dvrctl("--timeout 0.5 setBitRate 100 4");
    EXPECT_EQ(4, hung.status);
    EXPECT_EQ(
        "dvrctl: setBitRate: no answer from the service within 0.5 s: a channel may be wedged (a "
        "settings lock left held by setResolution) or the service is busy; see its log\n",
        hung.err);
    const CommandResult hungJson = dvrctl("--json -t 0.5 setBitRate 100 4");
    EXPECT_EQ(4, hungJson.status);
    const nlohmann::json error = nlohmann::json::parse(hungJson.out);
    EXPECT_EQ("timeout", error.at("error").at("kind"));
    EXPECT_EQ(4, error.at("error").at("exitStatus"));
}

TEST_F(DvrctlGuard, StampWithoutSizeAndColourIsRefused) {
    expectRefused("setTimestamp 101 --x 600",
                  "setTimestamp sets the font size and colour too, and getTimestampSetting does "
                  "not return them: give --size and --color as well (see the table in "
                  "docs/dvrctl.md)");
    expectRefused("setSelfDefinedStamp 101 --size small",
                  "setSelfDefinedStamp sets the font size and colour too, and "
                  "getSelfDefinedStampSetting does not return them: give --size and --color as "
                  "well (see the table in docs/dvrctl.md)");
}

TEST_F(DvrctlGuard, StampChangesOnlyTheFieldsGiven) {
    prepare({"setTimestamp 100 --enable on --x 16 --y 24 --size small --color 1",
             "setTimestamp 100 --x 40 --size small --color 1"});
    const CommandResult stamp = dvrctl("getTimestampSetting 100");
    EXPECT_EQ("result: 0\nenabled: true\nxPx: 40\nyPx: 24\n", stamp.out) << stamp.err;
}

TEST_F(DvrctlGuard, FontSizeAboveFourIsRefusedAndForcedAbortsTheService) {
    expectRefused("setTimestamp 100 --size 5 --color 1",
                  "font size 5 is not 0 to 4: setTimestamp aborts the service");
    const CommandResult forced = dvrctl("setTimestamp 100 --size 5 --color 1 --force");
    EXPECT_EQ(3, forced.status) << forced.out << forced.err;
    expectAborted();
    EXPECT_NE(std::string::npos, mServer.log().find("Undefine font size: 5")) << mServer.log();
}

TEST_F(DvrctlGuard, ColourOutsideTheCodesIsRefusedAndForcedAbortsAtTheFirstFrame) {
    expectRefused("setTimestamp 100 --enable on --size small --color 20",
                  "colour 20 is not 0 to 8: the service aborts at the first stamped frame");
    prepare({"attachCamera 100 10", "attachAudio 100 20",
             "setTimestamp 100 --enable on --size small --color 20 --force",
             "nextFile 100 recordings/colour.ts"});
    dvrctl("startRecord 100");
    expectAborted();
    EXPECT_NE(std::string::npos, mServer.log().find("are not 0 to 8")) << mServer.log();
}

TEST_F(DvrctlGuard, StartWithAudioOnAndNoAudioInputIsRefusedAndForcedAbortsTheService) {
    prepare({"attachCamera 100 10", "setAudioRecording 100 on", "nextFile 100 recordings/a.ts"});
    expectRefused("startRecord 100",
                  "channel 100 records audio but has no audio input attached: the service aborts "
                  "when the recording starts (attachAudio 100 AUD_ID, or setAudioRecording 100 "
                  "off)");
    expectRefused("startRecordAll",
                  "channel 100 records audio but has no audio input attached: the service aborts "
                  "when the recording starts (attachAudio 100 AUD_ID, or setAudioRecording 100 "
                  "off)");
    EXPECT_EQ("ready\n", dvrctl("getCurrentState 100").out);
    dvrctl("startRecord 100 --force");
    expectAborted();
}

TEST_F(DvrctlGuard, AutoNextFileBeforeTheFirstStartIsRefusedAndForcedAbortsTheStart) {
    prepare({"attachCamera 100 10", "attachAudio 100 20"});
    expectRefused("autoNextFile 100 on",
                  "unless a client answers file names (for example 'dvrctl watch --file-name "
                  "NAME'), the first startRecord of channel 100 aborts the service (its default "
                  "name needs a file length the channel has not started with yet); add --force "
                  "when a client answers names");
    EXPECT_EQ("idle\n", dvrctl("getCurrentState 100").out);
    prepare({"--force autoNextFile 100 on"});
    dvrctl("startRecord 100");
    expectAborted();
    EXPECT_NE(std::string::npos,
              mServer.log().find("Assertion failed: mCurSettings.enc.mFileLength > 0"))
        << mServer.log();
}

TEST_F(DvrctlGuard, StoragePathThatManglesNamesIsRefusedAndForcedWritesTheMangledNames) {
    ASSERT_EQ(0, mkdir((mServer.storageDir() + "/Src").c_str(), 0755));
    const CommandResult refused = dvrctl("setStoragePath 100 recordings/Src");
    EXPECT_EQ(2, refused.status);
    EXPECT_NE(std::string::npos,
              refused.err.find("dvrctl: setStoragePath: the service would cut or mangle the "
                               "default names in 'recordings/Src'"))
        << refused.err;
    EXPECT_NE(std::string::npos, refused.err.find("' would become 'recordings/2")) << refused.err;

    prepare({"attachCamera 100 10", "attachAudio 100 20", "setFileLength 100 1",
             "setStoragePath 100 recordings/Src -f", "nextFile 100 recordings/first.ts",
             "startRecord 100"});
    // The second file gets the default name: cut at the S, outside Src. One
    // second of file, given a minute on a loaded machine.
    std::string mangled;
    for (int i = 0; i < 3000 && mangled.empty(); ++i) {
        for (const std::string &name : filesIn(dvrtest::ServerProcess::kStorage)) {
            if (name.size() > 4 && name.compare(name.size() - 4, 4, "].ts") == 0) {
                mangled = name;
            }
        }
        usleep(20000);
    }
    prepare({"stopRecord 100"});
    EXPECT_EQ(0u, mangled.find("20")) << mangled;
    EXPECT_NE(std::string::npos, mangled.find("]_[")) << mangled;
    EXPECT_TRUE(filesIn(dvrtest::ServerProcess::kStorage + std::string("/Src")).empty());
}

TEST_F(DvrctlGuard, PatternThatManglesNamesIsRefusedWithWhatTheyBecome) {
    const CommandResult refused = dvrctl("setFileNameFormat 100 'CAM_FRONT_%ST_%ET.ts'");
    EXPECT_EQ(2, refused.status);
    EXPECT_EQ(
        "dvrctl: setFileNameFormat: the service would mangle the names of 'CAM_FRONT_%ST_%ET.ts' "
        "(the text in front of %ST ends at its first %, S or T, in front of %ET at its first %, "
        "E or T; a pattern at the start stays literal): 'CAM_FRONT__.ts' would become "
        "'CAM_FRON_.ts'\n",
        refused.err);
    EXPECT_EQ("idle\n", dvrctl("getCurrentState 100").out);
    prepare({"setFileNameFormat 100 'CAM_FRONT_%ST_%ET.ts' --force"});
    EXPECT_EQ("ready\n", dvrctl("getCurrentState 100").out);
    prepare({"setFileNameFormat 100 'recordings/cam0_%ST_%ET.ts' '%H%M%S'"});
}

TEST_F(DvrctlGuard, ANegativeResultIsExplained) {
    const CommandResult idle = dvrctl("startRecord 100");
    EXPECT_EQ(1, idle.status);
    EXPECT_EQ("-3\n", idle.out);
    EXPECT_EQ(
        "dvrctl: startRecord: -3: channel 100 is idle: give it a next file name (nextFile, "
        "autoNextFile or setFileNameFormat)\n",
        idle.err);
    const CommandResult unknown = dvrctl("--json stopRecord 7");
    EXPECT_EQ(1, unknown.status);
    const nlohmann::json error = nlohmann::json::parse(unknown.out).at("error");
    EXPECT_EQ("-1: no channel has encoder id 7 (getEncoder lists them)", error.at("message"));
    EXPECT_EQ("not found, or the lower layer failed", error.at("meaning"));
    const CommandResult noCamera = dvrctl("setFrameRate 101 5");
    EXPECT_EQ("dvrctl: setFrameRate: -1: channel 101 has no camera attached (attachCamera)\n",
              noCamera.err);
}
