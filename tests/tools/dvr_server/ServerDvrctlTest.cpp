// dvr_server driven from a shell: dvrctl against the real service on the
// simulated devices, as a person or a script uses it.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "CommandResult.h"
#include "RecordingReader.h"
#include "ServerProcess.h"

namespace {

using dvrtest::CommandResult;
using dvrtest::ServerProcess;

class ServerDvrctl : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, mkdir(mServer.storageDir().c_str(), 0755));
        // The frame memory at a known place, for the snapshot.
        mArena = mServer.dir().file("arena");
        mServer.dir().write("sim.json", R"({
          "pacing": "realtime",
          "cameras": [
            {"id": 10, "frameRate": 10, "width": 320, "height": 240},
            {"id": 11, "frameRate": 10, "width": 320, "height": 240}
          ],
          "audioInputs": [{"id": 20}],
          "arena": {"path": ")" + mArena + R"(", "bytes": 16777216}
        })");
        mServer.start();
        ASSERT_NE(nullptr, mServer.connect()) << mServer.log();
    }
    // dvrctl with words, in the server's working directory (relative storage
    // paths mean the same to both).
    CommandResult dvrctl(const std::string &words) {
        return dvrtest::runCommand("cd '" + mServer.dir().path() + "' && " + DVRCTL_TOOL + " " +
                                   words);
    }

    ServerProcess mServer;
    std::string mArena;
};

}  // namespace

TEST_F(ServerDvrctl, StatusListsBothChannelsIdle) {
    const CommandResult status = dvrctl("status");
    ASSERT_EQ(0, status.status) << status.err;
    EXPECT_NE(std::string::npos, status.out.find("100  idle")) << status.out;
    EXPECT_NE(std::string::npos, status.out.find("101  idle")) << status.out;
    const CommandResult count = dvrctl("getRecorderCount");
    EXPECT_EQ(0, count.status);
    EXPECT_EQ("2\n", count.out);
}

TEST_F(ServerDvrctl, ResultCodesReachTheShellAsExitStatus) {
    const CommandResult unknown = dvrctl("startRecord 7");
    EXPECT_EQ(1, unknown.status);
    EXPECT_EQ("-1\n", unknown.out);
    const CommandResult notReady = dvrctl("startRecord 100");
    EXPECT_EQ(1, notReady.status);
    EXPECT_EQ("-3\n", notReady.out);
    const CommandResult badResolution = dvrctl("setResolution 100 4");
    EXPECT_EQ(1, badResolution.status);
    EXPECT_EQ("-2\n", badResolution.out);
    EXPECT_TRUE(mServer.waitForLog("Unknown resolution: 0x4")) << mServer.log();
    const CommandResult usage = dvrctl("startRecord");
    EXPECT_EQ(2, usage.status);
}

TEST_F(ServerDvrctl, RecordingStartedAndStoppedFromTheShellLeavesReadableFiles) {
    const std::string storage = ServerProcess::kStorage;
    for (const std::string &words : std::vector<std::string>{
             "attachCamera 100 10", "attachAudio 100 20", "setAudioRecording 100 on",
             "setFileLength 100 1",
             "setTimestamp 100 --enable on --x 8 --y 8 --size small --color 1",
             "setSelfDefinedStamp 100 --enable on --x 8 --y 200 --size small --color 1",
             "setStoragePath 100 " + storage, "nextFile 100 " + storage + "/shell.ts",
             "startRecord 100"}) {
        const CommandResult result = dvrctl(words);
        ASSERT_EQ(0, result.status) << words << ": " << result.out << result.err;
    }
    const CommandResult watch = dvrctl("watch --count 3 --seconds 30");
    EXPECT_EQ(0, watch.status) << watch.err;
    EXPECT_NE(std::string::npos, watch.out.find("record enc=100")) << watch.out;

    const CommandResult snapshot =
        dvrctl("snapshot 100 " + mServer.dir().file("frame.png") + " --arena " + mArena);
    ASSERT_EQ(0, snapshot.status) << snapshot.out << snapshot.err;
    FILE *png = fopen(mServer.dir().file("frame.png").c_str(), "rb");
    ASSERT_NE(nullptr, png);
    // The signature, then the header chunk with the frame's width and height.
    unsigned char head[24] = {};
    EXPECT_EQ(sizeof(head), fread(head, 1, sizeof(head), png));
    fclose(png);
    EXPECT_EQ(0, png_sig_cmp(head, 0, 8));
    EXPECT_EQ(0, memcmp(head + 12, "IHDR", 4));
    const auto bigEndian = [&](int at) {
        return (head[at] << 24) | (head[at + 1] << 16) | (head[at + 2] << 8) | head[at + 3];
    };
    EXPECT_EQ(320, bigEndian(16));
    EXPECT_EQ(240, bigEndian(20));

    const CommandResult stop = dvrctl("stopRecord 100");
    ASSERT_EQ(0, stop.status) << stop.out << stop.err;
    const dvrspace::RecordingInfo first =
        dvrspace::RecordingReader::read(mServer.storageDir() + "/shell.ts");
    ASSERT_TRUE(first.opened) << first.error;
    EXPECT_GT(first.videoFrames(), 0u);
    EXPECT_LE(first.videoFrames(), 10u);
    EXPECT_TRUE(first.keyFrames.front());
    EXPECT_TRUE(first.hasAudio);
    EXPECT_EQ(0, mServer.stop(SIGTERM)) << mServer.log();
}
