// SIGKILL of dvr_server in the middle of a file: the files it closed are
// complete, the MPEG-TS file it was writing plays to within a second of the
// kill, and the AVI file it was writing gets its index back from the next
// server's start-up repair, unless another process still has it open.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "DVRTestPattern.h"
#include "RecordingReader.h"
#include "RecordingRepair.h"
#include "ServerProcess.h"

namespace {

using dvrspace::IDVR;
using dvrspace::RecordingInfo;
using dvrspace::RecordingReader;
using dvrtest::ServerProcess;

constexpr int kFps = 10;  // the cameras of ServerProcess's configuration
constexpr int kEncoder = 100;

struct RecordedFile {
    std::string path;
    int64_t modifiedNs = 0;
};

// The recordings in directory, oldest modification first: the last one is
// the file that was open at the kill.
std::vector<RecordedFile> recordingsIn(const std::string &directory) {
    std::vector<RecordedFile> files;
    if (DIR *dir = opendir(directory.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            const std::string name = entry->d_name;
            struct stat info {};
            const std::string path = directory + "/" + name;
            if (name[0] != '.' && stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
                files.push_back({path, static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 +
                                           info.st_mtim.tv_nsec});
            }
        }
        closedir(dir);
    }
    std::sort(files.begin(), files.end(), [](const RecordedFile &a, const RecordedFile &b) {
        return a.modifiedNs < b.modifiedNs;
    });
    return files;
}

std::vector<int64_t> frameNumbers(const std::string &path) {
    std::vector<int64_t> numbers;
    RecordingReader::read(path, [&numbers](const uint8_t *luma, int width, int height, int stride) {
        numbers.push_back(dvrspace::DVRTestPattern::readFrameNumber(luma, width, height, stride));
    });
    return numbers;
}

class ServerKill : public ::testing::Test {
protected:
    // Records two-second files with audio into the default storage path and
    // kills the server 5.5 s after the start, in the middle of the third
    // file. Returns the frames the camera had produced by the kill.
    int64_t recordAndKill(dvrspace::DVRFileFormat_e format, const std::string &extension) {
        server.start();
        android::sp<IDVR> dvr = server.connect();
        EXPECT_NE(nullptr, dvr);
        if (dvr == nullptr) {
            return 0;
        }
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->attachCamera(kEncoder, ServerProcess::kCameraIds[0]));
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->attachAudio(kEncoder, ServerProcess::kAudioId));
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->setOutputFormat(kEncoder, format));
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->setFileLength(kEncoder, 2));
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->setAudioRecording(kEncoder, true));
        EXPECT_EQ(dvrspace::DVR_SUCCESS,
                  dvr->nextFile(kEncoder, ("default/first" + extension).c_str()));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->startRecord(kEncoder));
        std::this_thread::sleep_for(std::chrono::milliseconds(5500));
        const auto killed = std::chrono::steady_clock::now();
        EXPECT_TRUE(WIFSIGNALED(server.stop(SIGKILL)));
        return std::chrono::duration_cast<std::chrono::milliseconds>(killed - start).count() *
               kFps / 1000;
    }

    // Every file but the last (open at the kill) is complete, spans its
    // time and decodes.
    void expectClosedFilesComplete(const std::vector<RecordedFile> &files) {
        for (size_t index = 0; index + 1 < files.size(); ++index) {
            const RecordingInfo info = RecordingReader::verify(files[index].path);
            ASSERT_TRUE(info.opened) << files[index].path << ": " << info.error;
            EXPECT_TRUE(info.decodedToEnd) << files[index].path;
            // Two seconds of camera time; frames a busy machine kept from
            // the encoder are counted as missing slots, not lost from view.
            const int64_t slots = static_cast<int64_t>(info.videoFrames()) + info.missingSlots();
            EXPECT_GE(slots, 2 * kFps - 2) << files[index].path;
            EXPECT_LE(slots, 2 * kFps) << files[index].path;
            EXPECT_TRUE(info.hasAudio) << files[index].path;
            EXPECT_FALSE(dvrspace::RecordingRepair::needsRepair(files[index].path));
        }
    }

    ServerProcess server;
};

}  // namespace

TEST_F(ServerKill, TransportStreamOpenAtAKillPlaysToWithinOneSecondOfIt) {
    const int64_t framesAtKill = recordAndKill(dvrspace::DVR_FILE_FORMAT_TS, ".ts");
    const std::vector<RecordedFile> files = recordingsIn(server.defaultPath());
    ASSERT_EQ(3u, files.size()) << server.log();
    expectClosedFilesComplete(files);
    const std::string open = files.back().path;
    const RecordingInfo info = RecordingReader::verify(open);
    ASSERT_TRUE(info.opened) << open << ": " << info.error;
    EXPECT_TRUE(info.decodedToEnd) << open;
    const std::vector<int64_t> numbers = frameNumbers(open);
    ASSERT_FALSE(numbers.empty()) << open;
    // Flushed at every key frame (each second): at most a second is lost,
    // and a frame of slack for the time the kill takes.
    EXPECT_GE(numbers.back(), framesAtKill - kFps - 1) << open;
    EXPECT_LE(numbers.back(), framesAtKill) << open;
}

TEST_F(ServerKill, AviOpenAtAKillIsRepairedByTheNextServerUnlessOpenElsewhere) {
    const int64_t framesAtKill = recordAndKill(dvrspace::DVR_FILE_FORMAT_AVI, ".avi");
    const std::vector<RecordedFile> files = recordingsIn(server.defaultPath());
    ASSERT_EQ(3u, files.size()) << server.log();
    expectClosedFilesComplete(files);
    const std::string open = files.back().path;
    ASSERT_TRUE(dvrspace::RecordingRepair::needsRepair(open)) << open;
    // The name as the server sees it: DVR_DEFAULT_PATH is "default".
    const std::string serverName = "default" + open.substr(open.rfind('/'));

    // Another process (this one) has the file open: the server leaves it.
    const int holder = ::open(open.c_str(), O_RDONLY);
    ASSERT_GE(holder, 0);
    server.start();
    EXPECT_TRUE(
        server.waitForLog("Not repairing " + serverName + ": another process has it open\n"))
        << server.log();
    EXPECT_EQ(0, WEXITSTATUS(server.stop(SIGTERM))) << server.log();
    EXPECT_TRUE(dvrspace::RecordingRepair::needsRepair(open));
    ::close(holder);

    server.start();
    EXPECT_TRUE(server.waitForLog("Repaired " + serverName + ": ")) << server.log();
    EXPECT_EQ(0, WEXITSTATUS(server.stop(SIGTERM))) << server.log();
    const RecordingInfo info = RecordingReader::verify(open);
    ASSERT_TRUE(info.opened) << open << ": " << info.error;
    EXPECT_FALSE(dvrspace::RecordingRepair::needsRepair(open));
    EXPECT_TRUE(info.decodedToEnd) << open;
    EXPECT_EQ(static_cast<int64_t>(info.videoFrames()), info.declaredVideoFrames) << open;
    EXPECT_NEAR(static_cast<double>(info.videoFrames()) / kFps, info.durationSeconds, 1.0 / kFps)
        << open;
    const std::vector<int64_t> numbers = frameNumbers(open);
    ASSERT_FALSE(numbers.empty()) << open;
    // Flushed at every key frame too: at most a second is lost.
    EXPECT_GE(numbers.back(), framesAtKill - kFps - 1) << open;
    EXPECT_LE(numbers.back(), framesAtKill) << open;
    // The first two files were left as they were, and the closed files too.
    expectClosedFilesComplete(recordingsIn(server.defaultPath()));
}
