// What dvr_server prints: its version and help, one readable line per log
// message, the storage-tuning events as debug lines, and a clear refusal of a
// name that a running server publishes already.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cctype>
#include <csignal>
#include <sstream>
#include <thread>

#include "CommandResult.h"
#include "ServerProcess.h"

namespace {

using dvrtest::ServerProcess;

bool digitsAt(const std::string &text, size_t position, size_t count) {
    for (size_t i = position; i < position + count; ++i) {
        if (i >= text.size() || !isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    return true;
}

// "MM-DD HH:MM:SS.mmm  PID   TID P TAG: message"
bool isLogLine(const std::string &line) {
    if (!digitsAt(line, 0, 2) || line[2] != '-' || !digitsAt(line, 3, 2) || line[5] != ' ' ||
        !digitsAt(line, 6, 2) || line[8] != ':' || !digitsAt(line, 9, 2) || line[11] != ':' ||
        !digitsAt(line, 12, 2) || line[14] != '.' || !digitsAt(line, 15, 3) || line[18] != ' ') {
        return false;
    }
    std::istringstream rest(line.substr(19));
    long pid = 0;
    long tid = 0;
    std::string priority;
    std::string tag;
    rest >> pid >> tid >> priority >> tag;
    return pid > 0 && tid > 0 && priority.size() == 1 &&
           std::string("VDIWEF").find(priority) != std::string::npos && tag.size() > 1 &&
           tag.back() == ':';
}

// Lines of log holding text.
std::vector<std::string> linesWith(const std::string &log, const std::string &text) {
    std::vector<std::string> found;
    for (const std::string &line : dvrtest::linesOf(log)) {
        if (line.find(text) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

// Records a second on both channels, starting and stopping them one after
// the other.
void recordOnBothChannels(ServerProcess &server) {
    const android::sp<dvrspace::IDVR> dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    mkdir(server.storageDir().c_str(), 0755);
    for (int channel = 0; channel < 2; ++channel) {
        const int enc = ServerProcess::kEncoderIds[channel];
        ASSERT_EQ(0, dvr->attachCamera(enc, ServerProcess::kCameraIds[channel]));
        ASSERT_EQ(0, dvr->setAudioRecording(enc, false));
        const std::string file =
            std::string(ServerProcess::kStorage) + "/c" + std::to_string(channel) + ".ts";
        ASSERT_EQ(0, dvr->nextFile(enc, file.c_str()));
    }
    ASSERT_EQ(0, dvr->startRecord(ServerProcess::kEncoderIds[0]));
    ASSERT_EQ(0, dvr->startRecord(ServerProcess::kEncoderIds[1]));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_EQ(0, dvr->stopRecord(ServerProcess::kEncoderIds[0]));
    ASSERT_EQ(0, dvr->stopRecord(ServerProcess::kEncoderIds[1]));
}

const std::string kFirstIn =
    "] Storage tuning, first recording started: 'dma_int_threshold 0' skipped, no controller at "
    "/sys/devices/platform/9c003e80.mmc/config";
const std::string kLastOut =
    "] Storage tuning, last recording stopped: 'dma_int_threshold 1024' skipped, no controller "
    "at /sys/devices/platform/9c003e80.mmc/config";

TEST(DvrServerOutput, VersionPrintsTheToolAndTheProjectVersion) {
    const dvrtest::CommandResult result =
        dvrtest::runCommand(std::string(DVR_SERVER_TOOL) + " --version");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("dvr_server (dvr) " + std::string(DVR_PROJECT_VERSION) + "\n", result.out);
    EXPECT_EQ("", result.err);
}

TEST(DvrServerOutput, ShortAndLongHelpPrintTheSameUsage) {
    const dvrtest::CommandResult shortHelp =
        dvrtest::runCommand(std::string(DVR_SERVER_TOOL) + " -h");
    const dvrtest::CommandResult longHelp =
        dvrtest::runCommand(std::string(DVR_SERVER_TOOL) + " --help");
    EXPECT_EQ(0, shortHelp.status);
    EXPECT_EQ(0, shortHelp.out.find("Usage: dvr_server [--runtime-cfg FILE]"));
    EXPECT_NE(std::string::npos, shortHelp.out.find("  --log-level LEVEL "));
    EXPECT_EQ(shortHelp.out, longHelp.out);
}

TEST(DvrServerOutput, EveryLogLineIsOneLineWithTimeInMillisecondsPidTidPriorityAndTag) {
    ServerProcess server;
    server.start();
    ASSERT_NE(nullptr, server.connect());
    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status));
    const std::vector<std::string> lines = dvrtest::linesOf(server.log());
    ASSERT_GT(lines.size(), 10u);
    for (const std::string &line : lines) {
        EXPECT_TRUE(isLogLine(line)) << "'" << line << "'";
    }
    // The service's own line feed is not doubled.
    EXPECT_EQ(std::string::npos, server.log().find("\n\n"));
    const std::vector<std::string> serving = linesWith(server.log(), "] Serving 'dvr' with up to");
    ASSERT_EQ(1u, serving.size());
    EXPECT_NE(std::string::npos, serving[0].find(" I DVRServer: [main:")) << serving[0];
}

TEST(DvrServerOutput, IntoTheJournalALineCarriesItsSyslogLevelInsteadOfTheTime) {
    ServerProcess server;
    // What systemd tells a service whose standard error is the journal: the
    // stream's device and inode.
    const std::string logPath = server.dir().write("server.log", "");
    struct stat log {};
    ASSERT_EQ(0, stat(logPath.c_str(), &log));
    setenv("JOURNAL_STREAM",
           (std::to_string(log.st_dev) + ":" + std::to_string(log.st_ino)).c_str(), 1);
    server.start();
    unsetenv("JOURNAL_STREAM");
    ASSERT_NE(nullptr, server.connect());
    ASSERT_TRUE(WIFEXITED(server.stop(SIGTERM)));
    for (const std::string &line : dvrtest::linesOf(server.log())) {
        EXPECT_TRUE(line.size() > 4 && line[0] == '<' &&
                    isdigit(static_cast<unsigned char>(line[1])) && line[2] == '>' &&
                    line.find(": ") != std::string::npos)
            << "'" << line << "'";
    }
    // INFO is syslog's 6, WARN its 4.
    const std::vector<std::string> serving =
        linesWith(server.log(), "] Serving 'dvr' with up to 15 binder threads");
    ASSERT_EQ(1u, serving.size());
    EXPECT_EQ(0u, serving[0].find("<6>DVRServer: [main:")) << serving[0];
    const std::vector<std::string> states =
        linesWith(server.log(), "] Switch to state: DVR_STM_IDLE");
    ASSERT_FALSE(states.empty()) << server.log();
    EXPECT_EQ(0u, states[0].find("<4>DVRRecorder: [")) << states[0];
}

TEST(DvrServerOutput, StorageTuningIsADebugLineAtTheFirstStartAndTheLastStopAndNoShellRuns) {
    ServerProcess server;
    server.start({"--log-level", "debug"});
    recordOnBothChannels(server);
    ASSERT_FALSE(HasFailure()) << server.log();
    ASSERT_TRUE(WIFEXITED(server.stop(SIGTERM)));
    const std::string log = server.log();
    const std::vector<std::string> firstIn = linesWith(log, kFirstIn);
    const std::vector<std::string> lastOut = linesWith(log, kLastOut);
    ASSERT_EQ(1u, firstIn.size()) << log;
    ASSERT_EQ(1u, lastOut.size()) << log;
    EXPECT_NE(std::string::npos, firstIn[0].find(" D DVRServer: [run:")) << firstIn[0];
    EXPECT_NE(std::string::npos, lastOut[0].find(" D DVRServer: [run:")) << lastOut[0];
    EXPECT_LT(log.find(kFirstIn), log.find(kLastOut));
    // The first start comes before the second channel's, the last stop after
    // the first channel's.
    EXPECT_LT(log.find(kFirstIn), log.find("]  [101] Switch to state: DVR_STM_RECORDING"));
    EXPECT_GT(log.find(kLastOut), log.find("]  [100] Switch to state: DVR_STM_READY"));
    EXPECT_EQ(std::string::npos, log.find("sh: ")) << log;
}

TEST(DvrServerOutput, StorageTuningLinesStayOutOfTheDefaultLog) {
    ServerProcess server;
    server.start();
    recordOnBothChannels(server);
    ASSERT_FALSE(HasFailure()) << server.log();
    ASSERT_TRUE(WIFEXITED(server.stop(SIGTERM)));
    EXPECT_EQ(std::string::npos, server.log().find("Storage tuning"));
    EXPECT_EQ(std::string::npos, server.log().find(" D "));
    EXPECT_EQ(std::string::npos, server.log().find("sh: "));
}

TEST(DvrServerOutput, BadLogLevelIsAUsageError) {
    std::string err;
    const int status = dvrtest::runServerCommand({"--log-level", "loud"}, &err);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(2, WEXITSTATUS(status));
    EXPECT_EQ(
        "dvr_server: --log-level takes debug, info, warn or error, not 'loud'\n"
        "Try 'dvr_server --help'.\n",
        err);
}

TEST(DvrServerOutput, ATakenNameIsRefusedBeforeAnyDeviceIsBuilt) {
    ServerProcess server;
    server.start();
    ASSERT_NE(nullptr, server.connect());
    std::string err;
    const int status = dvrtest::runServerCommand(
        {"--runtime-cfg", server.dir().file("runtime.cfg"), "--sim-config",
         server.dir().file("sim.json"), "--state-dir", server.dir().file("svc"), "--data",
         server.dir().file("vendor_data2"), "--binder-dir", server.dir().file("binder"),
         "--msg-dir", server.dir().file("msg2")},
        &err);
    ASSERT_TRUE(WIFEXITED(status)) << err;
    EXPECT_EQ(1, WEXITSTATUS(status));
    // One line and nothing else: no device, recorder or configuration image
    // was made.
    EXPECT_EQ(
        "dvr_server: the name 'dvr' is taken: a running server publishes it in the binder "
        "directory; stop that server or give another --name\n",
        err);
    struct stat msgDir {};
    EXPECT_NE(0, stat(server.dir().file("msg2").c_str(), &msgDir));
    // The first server goes on serving.
    EXPECT_EQ(2, server.connect()->getRecorderCount());
    const int first = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(first));
    EXPECT_EQ(0, WEXITSTATUS(first));
}

}  // namespace
