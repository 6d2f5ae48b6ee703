// Recording through a running dvr_server, driven over binder by this process
// or by a forked client: two channels with both stamps and audio, files of one
// second read back; SIGTERM in the middle of a recording; a client that dies
// while it names the files.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <thread>

#include "ClientCallback.h"
#include "LineReader.h"
#include "RecordingReader.h"
#include "ServerProcess.h"

namespace {

using dvrspace::IDVR;
using dvrspace::RecordingInfo;
using dvrspace::RecordingReader;
using dvrtest::ClientCallback;
using dvrtest::ServerProcess;

constexpr int kFramesPerFile = 10;  // 10 fps cameras, one-second files
constexpr auto kWait = std::chrono::seconds(60);

std::vector<std::string> filesIn(const std::string &directory) {
    std::vector<std::string> paths;
    if (DIR *dir = opendir(directory.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            if (entry->d_name[0] != '.') {
                paths.push_back(directory + "/" + entry->d_name);
            }
        }
        closedir(dir);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

size_t countStartingWith(const std::vector<std::string> &paths, const std::string &prefix) {
    return static_cast<size_t>(std::count_if(
        paths.begin(), paths.end(), [&](const std::string &p) { return p.rfind(prefix, 0) == 0; }));
}

// Camera, audio, both stamps, one-second files into the server's storage.
void prepareChannel(IDVR &dvr, int encoder, int camera, dvrspace::DVRFileFormat_e format) {
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.attachCamera(encoder, camera));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.attachAudio(encoder, ServerProcess::kAudioId));
    dvrspace::QVStampSettings_t time{true, 8, 8, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL, 7, 0};
    dvrspace::QVStampSettings_t user{true, 8, 200, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALL, 6, 500};
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.setTimestamp(encoder, &time));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.setSelfDefinedStamp(encoder, &user));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.setOutputFormat(encoder, format));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.setFileLength(encoder, 1));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr.setStoragePath(encoder, ServerProcess::kStorage));
}

// What every file of these recordings holds: H.264 at the cameras' size with
// mono 16 kHz audio, starting with a key frame.
void expectRecordedFile(const RecordingInfo &info, const std::string &path,
                        const std::string &audioCodec) {
    ASSERT_TRUE(info.opened) << path << ": " << info.error;
    EXPECT_EQ("h264", info.videoCodec) << path;
    EXPECT_EQ(320, info.width) << path;
    EXPECT_EQ(240, info.height) << path;
    ASSERT_GT(info.videoFrames(), 0u) << path;
    EXPECT_LE(info.videoFrames(), static_cast<size_t>(kFramesPerFile)) << path;
    EXPECT_TRUE(info.keyFrames.front()) << path;
    EXPECT_TRUE(info.hasAudio) << path;
    EXPECT_EQ(audioCodec, info.audioCodec) << path;
    EXPECT_EQ(16000, info.sampleRate) << path;
    EXPECT_EQ(1, info.channels) << path;
}

// "default_c<encoder>_[start]_[end].ts" with both times as
// YYYYMMDD_HH-MM-SS.
bool isDefaultName(const std::string &name, int encoder) {
    const std::string time = "########_##-##-##";
    const std::string shape =
        "default_c" + std::to_string(encoder) + "_[" + time + "]_[" + time + "].ts";
    if (name.size() != shape.size()) {
        return false;
    }
    for (size_t i = 0; i < shape.size(); ++i) {
        const bool digit = isdigit(static_cast<unsigned char>(name[i])) != 0;
        if (shape[i] == '#' ? !digit : name[i] != shape[i]) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> texts(const std::vector<ClientCallback::Call> &calls) {
    std::vector<std::string> result;
    for (const ClientCallback::Call &call : calls) {
        result.push_back(call.text);
    }
    return result;
}

size_t countOf(const std::vector<ClientCallback::Call> &calls, const std::string &kind, int index) {
    return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), [&](const auto &call) {
        return call.kind == kind && call.index == index;
    }));
}

class ServerRecording : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, mkdir(server.storageDir().c_str(), 0755)); }

    // Starts the server and subscribes this process to the record
    // notifications and the stamp query.
    void startAndSubscribe() {
        server.start();
        dvr = server.connect();
        ASSERT_NE(nullptr, dvr);
        client = new ClientCallback("E2E STAMP");
        ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr->establishCallback(getpid(), client));
        ASSERT_EQ(dvrspace::DVR_SUCCESS,
                  dvr->registerCallback(getpid(), 1, dvrspace::DVR_CBK_OBJ_RECORD));
        ASSERT_EQ(dvrspace::DVR_SUCCESS,
                  dvr->registerCallback(getpid(), 2, dvrspace::DVR_CBK_OBJ_STAMP));
    }

    // Both channels recording, their first files named by this client.
    void startBothChannels(dvrspace::DVRFileFormat_e format, const std::string &extension) {
        for (int channel = 0; channel < 2; ++channel) {
            const int encoder = ServerProcess::kEncoderIds[channel];
            prepareChannel(*dvr, encoder, ServerProcess::kCameraIds[channel], format);
            ASSERT_EQ(dvrspace::DVR_SUCCESS,
                      dvr->nextFile(encoder, firstFile(encoder, extension).c_str()));
        }
        ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr->setAudioRecording(-1, true));
        for (const int encoder : ServerProcess::kEncoderIds) {
            ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr->startRecord(encoder));
            EXPECT_EQ(dvrspace::DVR_STM_RECORDING, dvr->getCurrentState(encoder));
        }
    }

    // Waits until each channel has finished count files.
    bool waitForFinishedFiles(size_t count) {
        return client->waitUntil(
            [count](const std::vector<ClientCallback::Call> &calls) {
                for (const int encoder : ServerProcess::kEncoderIds) {
                    if (countOf(calls, "finish", encoder) < count) {
                        return false;
                    }
                }
                return true;
            },
            kWait);
    }

    std::string firstFile(int encoder, const std::string &extension) const {
        return server.storageDir() + "/first_" + std::to_string(encoder) + extension;
    }

    ServerProcess server;
    android::sp<IDVR> dvr;
    android::sp<ClientCallback> client;
};

TEST_F(ServerRecording, TwoChannelsRecordOneSecondFilesThatReadBackCompletely) {
    startAndSubscribe();
    startBothChannels(dvrspace::DVR_FILE_FORMAT_TS, ".ts");
    ASSERT_TRUE(waitForFinishedFiles(2)) << server.log();
    // Into the middle of the third files.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    // No camera can be reselected under a running recording.
    EXPECT_EQ(dvrspace::DVR_INVALID_OPERATION, dvr->setCameraSources(2, {1, 0}));
    for (const int encoder : ServerProcess::kEncoderIds) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, dvr->stopRecord(encoder));
        EXPECT_NE(dvrspace::DVR_STM_RECORDING, dvr->getCurrentState(encoder));
    }
    // The last finish travels through the callback thread after the stop.
    ASSERT_TRUE(client->waitUntil(
        [](const std::vector<ClientCallback::Call> &calls) {
            for (const int encoder : ServerProcess::kEncoderIds) {
                if (countOf(calls, "start", encoder) != countOf(calls, "finish", encoder)) {
                    return false;
                }
            }
            return true;
        },
        kWait));

    std::vector<std::string> recorded;
    for (const int encoder : ServerProcess::kEncoderIds) {
        const std::vector<std::string> started = texts(client->calls("start", encoder));
        ASSERT_GE(started.size(), 3u);
        EXPECT_EQ(started, texts(client->calls("finish", encoder)));
        EXPECT_EQ(firstFile(encoder, ".ts"), started.front());
        for (size_t file = 0; file < started.size(); ++file) {
            const std::string path = server.onDisk(started[file]);
            if (file > 0) {
                const std::string prefix = std::string(ServerProcess::kStorage) + "/";
                ASSERT_EQ(0u, started[file].rfind(prefix, 0)) << started[file];
                const std::string name = started[file].substr(prefix.size());
                EXPECT_TRUE(isDefaultName(name, encoder)) << name;
            }
            // A file is announced when the one before it rolls over; a stop
            // before its first frame leaves it uncreated, as no data came.
            const bool last = file + 1 == started.size();
            if (last && access(path.c_str(), F_OK) != 0) {
                continue;
            }
            const RecordingInfo info = RecordingReader::read(path);
            expectRecordedFile(info, path, "aac");
            if (!last) {
                EXPECT_EQ(static_cast<size_t>(kFramesPerFile), info.videoFrames()) << path;
            }
            recorded.push_back(path);
        }
    }
    std::sort(recorded.begin(), recorded.end());
    EXPECT_EQ(recorded, filesIn(server.storageDir()));
    // The user stamp's text was asked of this client while recording.
    const std::vector<ClientCallback::Call> calls = client->calls();
    EXPECT_TRUE(std::any_of(calls.begin(), calls.end(),
                            [](const ClientCallback::Call &call) { return call.kind == "stamp"; }));
}

TEST_F(ServerRecording, SigtermDuringARecordingLeavesEveryFileComplete) {
    startAndSubscribe();
    startBothChannels(dvrspace::DVR_FILE_FORMAT_AVI, ".avi");
    ASSERT_TRUE(waitForFinishedFiles(1)) << server.log();
    // Into the middle of the second file.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    const int status = server.stop(SIGTERM);
    ASSERT_TRUE(WIFEXITED(status)) << server.log();
    EXPECT_EQ(0, WEXITSTATUS(status)) << server.log();

    const std::vector<std::string> files = filesIn(server.storageDir());
    for (const int encoder : ServerProcess::kEncoderIds) {
        EXPECT_GE(countStartingWith(
                      files, server.storageDir() + "/first_" + std::to_string(encoder) + ".avi"),
                  1u);
        EXPECT_GE(countStartingWith(
                      files, server.storageDir() + "/default_c" + std::to_string(encoder) + "_"),
                  1u)
            << testing::PrintToString(files);
    }
    for (const std::string &path : files) {
        const RecordingInfo info = RecordingReader::read(path);
        expectRecordedFile(info, path, "pcm_s16le");
        // An AVI states its frame count only once it was completed; the
        // count includes the empty chunks of slots a loaded machine dropped.
        EXPECT_EQ(static_cast<int64_t>(info.videoFrames()) + info.missingSlots(),
                  info.declaredVideoFrames)
            << path;
    }
}

// The forked client: names every file of both channels until it is killed.
[[noreturn]] void runNamingClient(const std::string &storage, int reportFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    android::ProcessState::self()->startThreadPool();
    const android::sp<IDVR> dvr =
        android::interface_cast<IDVR>(android::defaultServiceManager()->waitForService(
            android::String16(ServerProcess::kName), 30000));
    if (dvr == nullptr) {
        _exit(3);
    }
    const android::sp<ClientCallback> callback = new ClientCallback("", reportFd);
    callback->nameFiles(storage, ".ts");
    bool ready =
        dvr->establishCallback(getpid(), callback) == dvrspace::DVR_SUCCESS &&
        dvr->registerCallback(getpid(), 5, dvrspace::DVR_CBK_OBJ_FILENAME) == dvrspace::DVR_SUCCESS;
    for (int channel = 0; channel < 2 && ready; ++channel) {
        const int encoder = ServerProcess::kEncoderIds[channel];
        ready = dvr->attachCamera(encoder, ServerProcess::kCameraIds[channel]) == 0 &&
                dvr->attachAudio(encoder, ServerProcess::kAudioId) == 0 &&
                dvr->setFileLength(encoder, 1) == 0 &&
                dvr->setStoragePath(encoder, ServerProcess::kStorage) == 0 &&
                dvr->autoNextFile(encoder, true) == 0 && dvr->startRecord(encoder) == 0;
    }
    const std::string line = ready ? "ready\n" : "failed\n";
    (void)!write(reportFd, line.data(), line.size());
    for (;;) {
        pause();
    }
}

TEST_F(ServerRecording, DeadClientLeavesTheRecordingRunningWithDefaultNames) {
    server.start();
    int report[2];
    ASSERT_EQ(0, pipe(report));
    // Forked before this process uses binder.
    const pid_t clientPid = fork();
    ASSERT_GE(clientPid, 0);
    if (clientPid == 0) {
        close(report[0]);
        runNamingClient(server.storageDir(), report[1]);
    }
    close(report[1]);
    // Ready, then each camera's second client-named file begun on disk.
    const std::string storage = server.storageDir();
    const std::vector<std::string> lines = dvrtest::LineReader(report[0]).readUntil(
        [](const std::vector<std::string> &got) {
            return std::find(got.begin(), got.end(), "ready") != got.end() ||
                   std::find(got.begin(), got.end(), "failed") != got.end();
        },
        kWait);
    const auto named = [&storage](int camera, int number) {
        return storage + "/client_" + std::to_string(camera) + "_" + std::to_string(number) + ".ts";
    };
    const auto begunDeadline = std::chrono::steady_clock::now() + kWait;
    while (std::chrono::steady_clock::now() < begunDeadline &&
           (access(named(ServerProcess::kCameraIds[0], 2).c_str(), F_OK) != 0 ||
            access(named(ServerProcess::kCameraIds[1], 2).c_str(), F_OK) != 0)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(report[0]);
    kill(clientPid, SIGKILL);
    waitpid(clientPid, nullptr, 0);
    ASSERT_NE(lines.end(), std::find(lines.begin(), lines.end(), "ready")) << server.log();
    EXPECT_TRUE(server.waitForLog("] DVR client(PID=" + std::to_string(clientPid) + ") died\n"));
    EXPECT_TRUE(server.waitForLog("] Client died but keep recording\n"));

    // After the client's death the recorders name their files themselves.
    dvr = server.connect();
    ASSERT_NE(nullptr, dvr);
    const auto deadline = std::chrono::steady_clock::now() + kWait;
    std::vector<std::string> files;
    auto defaultFiles = [&](int encoder) {
        return countStartingWith(files, storage + "/default_c" + std::to_string(encoder) + "_");
    };
    while (std::chrono::steady_clock::now() < deadline &&
           (defaultFiles(ServerProcess::kEncoderIds[0]) < 2 ||
            defaultFiles(ServerProcess::kEncoderIds[1]) < 2)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        files = filesIn(storage);
    }
    for (const int encoder : ServerProcess::kEncoderIds) {
        ASSERT_GE(defaultFiles(encoder), 2u) << server.log();
        EXPECT_EQ(dvrspace::DVR_STM_RECORDING, dvr->getCurrentState(encoder));
        EXPECT_EQ(dvrspace::DVR_SUCCESS, dvr->stopRecord(encoder));
    }
    files = filesIn(storage);
    for (const int camera : ServerProcess::kCameraIds) {
        for (const int number : {1, 2}) {
            EXPECT_NE(files.end(), std::find(files.begin(), files.end(), named(camera, number)))
                << named(camera, number);
        }
    }
    for (const std::string &path : files) {
        expectRecordedFile(RecordingReader::read(path), path, "aac");
    }
}

}  // namespace
