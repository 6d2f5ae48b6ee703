// The service following the encoder, camera and audio services: the test
// plays the service manager by writing their states into the directory the
// real monitor watches (or with svcctl), and the service's monitor thread
// reacts.
#include <gtest/gtest.h>
#include <malloc.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CommandResult.h"
#include "DVRSimulatorControl.h"
#include "DVRSystemFixture.h"
#include "MediaProbe.h"
#include "RecorderPeer.h"
#include "dvr_std.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// From the sanitizer runtime; GCC ships no header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr int kPid = 4321;
constexpr int kOtherPid = 4322;

class DVRServiceMonitor : public DVRSystemFixture {
protected:
    size_t serviceLogged(int priority, const std::string &function, const std::string &rest) {
        return logged(priority, "DVRService", function, rest);
    }
    bool waitForServiceLine(int priority, const std::string &function, const std::string &rest,
                            size_t count = 1) {
        return waitForLogged(priority, "DVRService", function, rest, count);
    }
    // Waits until the recorders were built for the count-th time (the
    // construction is the first).
    bool waitForRecorders(size_t count) {
        return waitForServiceLine(ANDROID_LOG_INFO, "initializeRecorder",
                                  "Recorder(s) initialized\n", count);
    }
    // The monitor's handler holds the service lock for its whole run; an
    // operation that takes the lock returns only after the handler.
    void waitForHandlerToFinish() {
        int encId = 0;
        (void)mService->getEncoder(0, &encId);
    }
    void startRecording(int encId) {
        const size_t starts = mClient->countEvents(DVR_CBK_RECORD_START);
        ASSERT_EQ(DVR_SUCCESS, mService->startRecord(encId));
        ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, starts + 1));
    }
    // A complete file: readable to its end, every picture decodable and in
    // sequence, the first one a key frame.
    static void expectComplete(const std::string &path, bool withAudio) {
        SCOPED_TRACE(path);
        const MediaProbe probe = MediaProbe::read(path);
        ASSERT_TRUE(probe.opened);
        EXPECT_EQ("mpegts", probe.container);
        EXPECT_EQ(0, probe.decodeErrors);
        ASSERT_FALSE(probe.frameNumbers.empty());
        ASSERT_FALSE(probe.keyFrames.empty());
        EXPECT_TRUE(probe.keyFrames[0]);
        for (size_t i = 1; i < probe.frameNumbers.size(); ++i) {
            EXPECT_EQ(probe.frameNumbers[i - 1] + 1, probe.frameNumbers[i]);
        }
        EXPECT_EQ(withAudio, probe.hasAudio);
    }
    // Records on channel 0 from start to stop and checks the file.
    void recordOneFile(bool withAudio) {
        ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, withAudio));
        ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));
        ASSERT_TRUE(waitForContent(mClient->namesGiven().back()));
        const size_t finishes = mClient->countEvents(DVR_CBK_RECORD_FINISH);
        ASSERT_EQ(DVR_SUCCESS, mService->stopRecord(kEncoder0));
        ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, finishes + 1));
        std::string finished;
        for (const EventClient::Event &event : mClient->events()) {
            if (event.cmd == DVR_CBK_RECORD_FINISH) {
                finished = event.text;
            }
        }
        expectComplete(finished, withAudio);
    }
    // The line with which the service takes up a report of service's state.
    size_t reported(const std::string &service, const std::string &state) {
        return serviceLogged(ANDROID_LOG_INFO, "serviceMonitor", service + ": " + state + "\n");
    }
    std::vector<std::string> serviceLines() {
        std::vector<std::string> lines;
        for (const LogLine &line : mCapture.lines()) {
            if (line.tag == "DVRService") {
                lines.push_back(std::to_string(line.priority) + " " +
                                withoutLineNumber(line.message));
            }
        }
        return lines;
    }
    static std::string withoutLineNumber(const std::string &message) {
        const size_t colon = message.find(':');
        const size_t close = message.find("] ");
        if (colon == std::string::npos || close == std::string::npos || colon > close) {
            return message;
        }
        return message.substr(0, colon) + message.substr(close);
    }
    // The encoder ids of the abnormal notifications client received.
    std::multiset<int> abnormalIndices(EventClient &client) {
        std::multiset<int> indices;
        for (const EventClient::Event &event : client.events()) {
            if (event.cmd == DVR_CBK_ABNORMAL) {
                EXPECT_EQ(0, event.value);
                indices.insert(event.index);
            }
        }
        return indices;
    }
    CommandResult svcctl(const std::string &arguments) {
        return runCommand(std::string(SVCCTL_TOOL) + " --dir " + mEnv.serviceDir() + " " +
                          arguments);
    }
};

// Counts notifications without keeping them, and always names the same file,
// so that a long test's own bookkeeping does not grow.
class CountingClient : public BnDVRCallback {
public:
    int onRecordStart(int, int, const char *) override { return bump(&mStarts); }
    int onRecordFinish(int, int, const char *) override { return 0; }
    int onRecordError(int, int, int) override { return 0; }
    int onRecordErrorSevere(int, int, int) override { return 0; }
    int onRecordAbnormal(int, int, int) override { return bump(&mAbnormals); }
    int getStampString(int, int, char *buffer) override {
        strcpy(buffer, "CYCLE");
        return 0;
    }
    int fileNameGenerator(int, int, char *buffer, int length) override {
        snprintf(buffer, length, "./cycle.ts");
        return 0;
    }
    bool waitForStarts(int count) { return waitFor(&mStarts, count); }
    bool waitForAbnormals(int count) { return waitFor(&mAbnormals, count); }

private:
    int bump(int *counter) {
        std::lock_guard<std::mutex> lock(mLock);
        ++*counter;
        mChanged.notify_all();
        return 0;
    }
    bool waitFor(const int *counter, int count) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(60), [&] { return *counter >= count; });
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    int mStarts = 0;
    int mAbnormals = 0;
};

size_t entriesIn(const char *directory) {
    size_t count = 0;
    for (auto it = std::filesystem::directory_iterator(directory);
         it != std::filesystem::directory_iterator(); ++it) {
        ++count;
    }
    return count;
}

// Heap bytes in use: the sanitizer's allocator replaces malloc's arenas.
size_t heapInUse() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

struct ProcessUse {
    size_t fds;
    size_t threads;
    size_t heap;
};

ProcessUse processUse() {
    return ProcessUse{entriesIn("/proc/self/fd"), entriesIn("/proc/self/task"), heapInUse()};
}

}  // namespace

TEST_F(DVRServiceMonitor, EncoderServiceStoppedWhileTwoChannelsRecordIsRestartedAndRebuilt) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    const android::sp<EventClient> watcher = new EventClient();
    ASSERT_EQ(DVR_SUCCESS, mService->establishCallback(kOtherPid, watcher));
    ASSERT_EQ(DVR_SUCCESS, mService->registerCallback(kOtherPid, 3, DVR_CBK_OBJ_ABNORMAL));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, true));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder1, kCamera1, false));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder1));
    const std::vector<std::string> names = mClient->namesGiven();
    ASSERT_EQ(2u, names.size());
    // Both files hold pictures by now.
    for (const std::string &name : names) {
        ASSERT_TRUE(waitForContent(name)) << name;
    }

    setServiceState(encoderService(), "stopped");
    ASSERT_TRUE(waitForRecorders(2));
    waitForHandlerToFinish();

    // One notification per recorder for each subscriber, each before the
    // end of that channel's file.
    EXPECT_EQ(2u, mClient->countEvents(DVR_CBK_ABNORMAL));
    EXPECT_EQ(2u, watcher->countEvents(DVR_CBK_ABNORMAL));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*watcher));
    EXPECT_EQ(0u, watcher->countEvents(DVR_CBK_RECORD_FINISH));
    const std::vector<EventClient::Event> events = mClient->events();
    for (int encId : {kEncoder0, kEncoder1}) {
        SCOPED_TRACE(encId);
        size_t abnormalAt = events.size();
        size_t finishAt = events.size();
        for (size_t i = 0; i < events.size(); ++i) {
            if (events[i].index == encId && events[i].cmd == DVR_CBK_ABNORMAL) {
                abnormalAt = i;
            }
            if (events[i].index == encId && events[i].cmd == DVR_CBK_RECORD_FINISH) {
                finishAt = i;
            }
        }
        ASSERT_LT(finishAt, events.size());
        EXPECT_LT(abnormalAt, finishAt);
    }

    EXPECT_EQ(1u, reported(encoderService(), "stopped"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "IN\n"));
    // Both channels recorded, so stopping them all succeeded.
    EXPECT_EQ(0u,
              serviceLogged(ANDROID_LOG_WARN, "abnormal", "stopRecordAllInternal failed: -3\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "DVRRecorder", "~Recorder", " [100] DESTRUCTOR\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "DVRRecorder", "~Recorder", " [101] DESTRUCTOR\n"));
    // Restarted by the service and reported running again.
    EXPECT_EQ("running", serviceState(encoderService()));
    EXPECT_EQ(1u, reported(encoderService(), "running"));
    EXPECT_EQ(2u, logged(ANDROID_LOG_INFO, "DVRRecorder", "Recorder", " [0] CONSTRUCTOR\n"));
    EXPECT_EQ(2u, logged(ANDROID_LOG_INFO, "DVRRecorder", "Recorder", " [1] CONSTRUCTOR\n"));

    // The last recording channel to stop puts the storage back to idle.
    EXPECT_EQ(tuningCommands(), (std::vector<std::string>{kTuningRecording, kTuningIdle}));
    // What was recorded before the failure is complete.
    expectComplete(names[0], true);
    expectComplete(names[1], false);

    // New recorders, idle, under the same encoder ids; a new recording works.
    EXPECT_EQ(2, mService->getRecorderCount());
    int encId = 0;
    ASSERT_EQ(DVR_SUCCESS, mService->getEncoder(1, &encId));
    EXPECT_EQ(kEncoder1, encId);
    EXPECT_EQ(DVR_STM_IDLE, mService->getCurrentState(kEncoder0));
    EXPECT_EQ(DVR_STM_IDLE, mService->getCurrentState(kEncoder1));
    ASSERT_NO_FATAL_FAILURE(recordOneFile(true));
}

TEST_F(DVRServiceMonitor, EncoderServiceRestartingTearsDownAndWaitsForItsRunningReport) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, false));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));

    setServiceState(encoderService(), "restarting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(1u, reported(encoderService(), "restarting"));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    // Channel 1 was idle and refused its stop; that is accepted.
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "stopRecordAllInternal",
                                "Stop recorder #1 failed with error code -3\n"));
    EXPECT_EQ(1u,
              serviceLogged(ANDROID_LOG_WARN, "abnormal", "stopRecordAllInternal failed: -3\n"));
    // Nobody restarts a restarting service, and nothing is rebuilt meanwhile.
    EXPECT_EQ("restarting", serviceState(encoderService()));
    EXPECT_EQ(1u,
              serviceLogged(ANDROID_LOG_INFO, "initializeRecorder", "Recorder(s) initialized\n"));
    EXPECT_EQ(DVR_FAILURE, mService->startRecord(kEncoder0));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "startRecord",
                                "Encoder index not found with enc_id(100)\n"));
    EXPECT_EQ(2, mService->getRecorderCount());

    setServiceState(encoderService(), "running");
    ASSERT_TRUE(waitForRecorders(2));
    EXPECT_EQ(1u, reported(encoderService(), "running"));
    ASSERT_NO_FATAL_FAILURE(recordOneFile(false));
}

TEST_F(DVRServiceMonitor, CameraServiceStoppedIsRestartedAndItsCamerasRediscovered) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, false));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));

    // As an operator would, with the service manager's tool.
    const CommandResult set = svcctl("set " + cameraService() + " stopped");
    ASSERT_EQ(0, set.status) << set.err;
    const CommandResult wait = svcctl("wait " + cameraService() + " running --timeout 60000");
    ASSERT_EQ(0, wait.status) << wait.err;
    ASSERT_TRUE(waitForRecorders(2));
    waitForHandlerToFinish();

    EXPECT_EQ(1u, reported(cameraService(), "stopped"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "IN\n"));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "finalizeCameraDevice",
                                "All Camera device(s) finalized\n"));
    EXPECT_EQ(1u, reported(cameraService(), "running"));
    EXPECT_EQ(2u, serviceLogged(ANDROID_LOG_INFO, "initializeCameraDevice",
                                "Total 2 camera devices supported\n"));
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    int camId = 0;
    QVDVRDeviceType_e type{};
    ASSERT_EQ(DVR_SUCCESS, mService->getCamera(1, &camId, &type));
    EXPECT_EQ(kCamera1, camId);
    // Audio inputs belong to another service and stay.
    EXPECT_EQ(1, mService->getAudioCount());
    EXPECT_EQ(0u, serviceLogged(ANDROID_LOG_INFO, "finalizeAudioDevice",
                                "All Audio device(s) finalized\n"));
    ASSERT_NO_FATAL_FAILURE(recordOneFile(false));
}

TEST_F(DVRServiceMonitor, CameraServiceRestartingDropsTheCamerasUntilItRuns) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    setServiceState(cameraService(), "restarting");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_INFO, "finalizeCameraDevice",
                                   "All Camera device(s) finalized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(1u, reported(cameraService(), "restarting"));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    EXPECT_EQ(0, mService->getCameraCount());
    EXPECT_EQ("restarting", serviceState(cameraService()));
    EXPECT_EQ(DVR_FAILURE, mService->attachCamera(kEncoder0, kCamera0));

    setServiceState(cameraService(), "running");
    ASSERT_TRUE(waitForRecorders(2));
    EXPECT_EQ(1u, reported(cameraService(), "running"));
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
    ASSERT_NO_FATAL_FAILURE(recordOneFile(false));
}

TEST_F(DVRServiceMonitor, AudioServiceStoppedIsRestartedAndItsInputsRediscovered) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, true));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));

    setServiceState(audioService(), "stopped");
    ASSERT_TRUE(waitForRecorders(2));
    waitForHandlerToFinish();
    EXPECT_EQ(1u, reported(audioService(), "stopped"));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "finalizeAudioDevice",
                                "All Audio device(s) finalized\n"));
    EXPECT_EQ("running", serviceState(audioService()));
    EXPECT_EQ(1u, reported(audioService(), "running"));
    EXPECT_EQ(2u, serviceLogged(ANDROID_LOG_INFO, "initializeAudioDevice",
                                "Total 1 audio input devices supported\n"));
    EXPECT_EQ(1, mService->getAudioCount());
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(0u, serviceLogged(ANDROID_LOG_INFO, "finalizeCameraDevice",
                                "All Camera device(s) finalized\n"));
    ASSERT_NO_FATAL_FAILURE(recordOneFile(true));
}

TEST_F(DVRServiceMonitor, AudioServiceRestartingDropsTheInputsUntilItRuns) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    setServiceState(audioService(), "restarting");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_INFO, "finalizeAudioDevice",
                                   "All Audio device(s) finalized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(1u, reported(audioService(), "restarting"));
    EXPECT_EQ((std::multiset<int>{kEncoder0, kEncoder1}), abnormalIndices(*mClient));
    EXPECT_EQ(0, mService->getAudioCount());
    EXPECT_EQ("restarting", serviceState(audioService()));
    EXPECT_EQ(DVR_FAILURE, mService->attachAudio(kEncoder0, kAudio0));

    setServiceState(audioService(), "running");
    ASSERT_TRUE(waitForRecorders(2));
    EXPECT_EQ(1, mService->getAudioCount());
    ASSERT_NO_FATAL_FAILURE(recordOneFile(true));
}

TEST_F(DVRServiceMonitor, EncoderRunningWhileRecordersExistOnlyLogsAlreadyInitialized) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, false));
    ASSERT_NO_FATAL_FAILURE(startRecording(kEncoder0));
    // A state nobody acts upon first, so that "running" is a change again.
    setServiceState(encoderService(), "starting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "serviceMonitor", encoderService() + ": starting\n"));
    waitForHandlerToFinish();
    mCapture.clear();

    setServiceState(encoderService(), "running");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_WARN, "initializeRecorder",
                                   "Recorder(s) already initialized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(serviceLines(), (std::vector<std::string>{
                                  std::to_string(ANDROID_LOG_INFO) + " [serviceMonitor] " +
                                      encoderService() + ": running\n",
                                  std::to_string(ANDROID_LOG_WARN) +
                                      " [initializeRecorder] Recorder(s) already initialized\n",
                              }));
    EXPECT_EQ(0u, logged(ANDROID_LOG_INFO, "DVRRecorder", "~Recorder", " [100] DESTRUCTOR\n"));
    EXPECT_EQ(0u, mClient->countEvents(DVR_CBK_ABNORMAL));
    // The recording went on untouched and ends normally.
    EXPECT_EQ(DVR_STM_RECORDING, mService->getCurrentState(kEncoder0));
    ASSERT_EQ(DVR_SUCCESS, mService->stopRecord(kEncoder0));
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    expectComplete(mClient->namesGiven()[0], false);
}

TEST_F(DVRServiceMonitor, CameraRunningWhileCamerasExistKeepsCamerasAndRecorders) {
    build();
    DVRCameraDevice *const listed = camera(1);
    setServiceState(cameraService(), "starting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "serviceMonitor", cameraService() + ": starting\n"));
    waitForHandlerToFinish();
    mCapture.clear();

    setServiceState(cameraService(), "running");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_WARN, "initializeRecorder",
                                   "Recorder(s) already initialized\n"));
    waitForHandlerToFinish();
    // Rediscovery finds the listed cameras under their own indices again.
    EXPECT_EQ(serviceLines(),
              (std::vector<std::string>{
                  std::to_string(ANDROID_LOG_INFO) + " [serviceMonitor] " + cameraService() +
                      ": running\n",
                  std::to_string(ANDROID_LOG_INFO) +
                      " [initializeCameraDevice] Total 2 camera devices supported\n",
                  std::to_string(ANDROID_LOG_WARN) +
                      " [initializeRecorder] Recorder(s) already initialized\n",
              }));
    EXPECT_EQ(listed, camera(1));
    EXPECT_EQ(2, mService->getCameraCount());
    EXPECT_EQ(2, mService->getRecorderCount());
}

TEST_F(DVRServiceMonitor, AudioRunningWhileInputsExistOnlyLogsAlreadyInitialized) {
    build();
    DVRAudioDevice *const listed = audio(0);
    setServiceState(audioService(), "starting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "serviceMonitor", audioService() + ": starting\n"));
    waitForHandlerToFinish();
    mCapture.clear();

    setServiceState(audioService(), "running");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_WARN, "initializeRecorder",
                                   "Recorder(s) already initialized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(serviceLines(), (std::vector<std::string>{
                                  std::to_string(ANDROID_LOG_INFO) + " [serviceMonitor] " +
                                      audioService() + ": running\n",
                                  std::to_string(ANDROID_LOG_WARN) +
                                      " [initializeRecorder] Recorder(s) already initialized\n",
                              }));
    EXPECT_EQ(listed, audio(0));
    EXPECT_EQ(1, mService->getAudioCount());
}

TEST_F(DVRServiceMonitor, OtherServicesAndOtherStatesChangeNothing) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    setServiceState("other_server", "stopped");
    setServiceState(encoderService() + "_old", "restarting");
    // Reports are handled in order on the monitor's thread: once this one
    // is logged, the others have been handled.
    setServiceState(encoderService(), "starting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "serviceMonitor", encoderService() + ": starting\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(0u, reported("other_server", "stopped"));
    EXPECT_EQ(0u, reported(encoderService() + "_old", "restarting"));
    EXPECT_EQ(0u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "IN\n"));
    EXPECT_EQ(0u, serviceLogged(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    EXPECT_EQ("stopped", serviceState("other_server"));
    EXPECT_EQ(0u, mClient->countEvents(DVR_CBK_ABNORMAL));
    ASSERT_NO_FATAL_FAILURE(recordOneFile(false));
}

TEST_F(DVRServiceMonitor, SecondServiceFailureFindsNoRecordersAndRebuildWaitsForTheEncoder) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    setServiceState(encoderService(), "restarting");
    ASSERT_TRUE(
        waitForServiceLine(ANDROID_LOG_INFO, "finalizeRecorder", "Recorder(s) finalized\n"));
    setServiceState(cameraService(), "restarting");
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_INFO, "finalizeCameraDevice",
                                   "All Camera device(s) finalized\n"));
    waitForHandlerToFinish();
    EXPECT_EQ(2u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "IN\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "Recorder #0 does NOT exist!\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "abnormal", "Recorder #1 does NOT exist!\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "stopRecordAllInternal",
                                "Recorder #0 does NOT exist!\n"));
    EXPECT_EQ(
        1u, serviceLogged(ANDROID_LOG_WARN, "finalizeRecorder", "Recorder(s) already finalized\n"));
    // Only the first failure had recorders to announce.
    EXPECT_EQ(2u, mClient->countEvents(DVR_CBK_ABNORMAL));

    // The cameras come back first: each new recorder waits for the encoder
    // service, holding the monitor's thread, until its state reads running.
    setServiceState(cameraService(), "running");
    ASSERT_TRUE(waitForLogged(ANDROID_LOG_WARN, "DVRRecorder", "Recorder",
                              " [0] es_server NOT ready: restarting\n", 1));
    setServiceState(encoderService(), "running");
    ASSERT_TRUE(waitForRecorders(2));
    ASSERT_TRUE(waitForServiceLine(ANDROID_LOG_WARN, "initializeRecorder",
                                   "Recorder(s) already initialized\n"));
    EXPECT_EQ(2, mService->getCameraCount());
    ASSERT_NO_FATAL_FAILURE(recordOneFile(false));
}

TEST_F(DVRServiceMonitor, RepeatedEncoderServiceRestartsWhileRecordingLeakNothing) {
    build();
    const android::sp<CountingClient> client = new CountingClient();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, client, 7));
    int cycles = 0;
    const auto cycle = [&] {
        ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, true));
        ASSERT_EQ(DVR_SUCCESS, mService->startRecord(kEncoder0));
        ASSERT_TRUE(client->waitForStarts(cycles + 1));
        // Captured lines would grow with every cycle.
        mCapture.clear();
        setServiceState(encoderService(), "stopped");
        ASSERT_TRUE(waitForRecorders(1));
        ASSERT_TRUE(client->waitForAbnormals(2 * (cycles + 1)));
        waitForHandlerToFinish();
        ++cycles;
    };
    // Threads that end (the old callback thread, the encoder's) leave the
    // process a moment after they were joined.
    const auto settledAt = [](const ProcessUse &baseline) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        ProcessUse now = processUse();
        while ((now.fds != baseline.fds || now.threads != baseline.threads) &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            now = processUse();
        }
        return now;
    };

    // The first cycles make what the process keeps once made (codec tables,
    // the allocator's per-thread caches).
    for (int i = 0; i < 3; ++i) {
        cycle();
        ASSERT_FALSE(HasFatalFailure());
    }
    const ProcessUse before = settledAt(processUse());
    for (int i = 0; i < 30; ++i) {
        cycle();
        ASSERT_FALSE(HasFatalFailure()) << "cycle " << i;
    }
    const ProcessUse after = settledAt(before);

    EXPECT_EQ(before.fds, after.fds);
    EXPECT_EQ(before.threads, after.threads);
    // Between two idle moments the heap grew by 8 to 14 KiB whether 10, 30
    // or 90 cycles ran: buffers and caches that reach their size once,
    // not a leak, which grows with the cycles. The bound leaves room for
    // that and still catches anything above about 600 bytes a cycle; a
    // leaked recorder, encoder, thread or file-name buffer is larger.
    constexpr size_t kHeapTolerance = 32 * 1024;
    EXPECT_LE(after.heap, before.heap + kHeapTolerance)
        << "before " << before.heap << " after " << after.heap;
    RecordProperty("heap_before", std::to_string(before.heap));
    RecordProperty("heap_after", std::to_string(after.heap));
    printf("fds %zu -> %zu, threads %zu -> %zu, heap %zu -> %zu bytes\n", before.fds, after.fds,
           before.threads, after.threads, before.heap, after.heap);
}

using DVRServiceMonitorDeathTest = DVRServiceMonitor;

TEST_F(DVRServiceMonitorDeathTest, ReportFromAnotherServiceManagerAborts) {
    const svc_state_t states[] = {{"es_server", "stopped"}};
    EXPECT_DEATH(service_monitor("inetd", states, 1, nullptr),
                 "Assertion failed: 0 == strcmp\\(svc_name, SVC_MON_INIT_NAME\\)");
}

TEST_F(DVRServiceMonitorDeathTest, ReportWithoutServiceObjectAborts) {
    const svc_state_t states[] = {{"es_server", "stopped"}};
    EXPECT_DEATH(service_monitor(SVC_MON_INIT_NAME, states, 1, nullptr),
                 "Assertion failed: dvr != NULL");
}

TEST_F(DVRServiceMonitorDeathTest, ReportWithoutStatesAborts) {
    build();
    EXPECT_DEATH(service_monitor(SVC_MON_INIT_NAME, nullptr, 0, mService.get()),
                 "Assertion failed: state_data != NULL");
}

TEST_F(DVRServiceMonitorDeathTest, FirstStateWithoutNameOrValueAborts) {
    build();
    const char *const expected =
        "Assertion failed: state_data\\[0\\]\\.key != NULL && state_data\\[0\\]\\.value != NULL";
    const svc_state_t noName[] = {{nullptr, "stopped"}};
    EXPECT_DEATH(service_monitor(SVC_MON_INIT_NAME, noName, 1, mService.get()), expected);
    const svc_state_t noValue[] = {{"es_server", nullptr}};
    EXPECT_DEATH(service_monitor(SVC_MON_INIT_NAME, noValue, 1, mService.get()), expected);
}

TEST_F(DVRServiceMonitorDeathTest, LaterStateWithoutNameAborts) {
    build();
    const svc_state_t states[] = {{"other_server", "running"}, {nullptr, "stopped"}};
    EXPECT_DEATH(service_monitor(SVC_MON_INIT_NAME, states, 2, mService.get()),
                 "Assertion failed: who != NULL && status != NULL");
}

TEST_F(DVRServiceMonitorDeathTest, CamerasReturningInOtherNumberThanTheRecordersAbort) {
    build();
    EXPECT_DEATH(
        {
            setServiceState(cameraService(), "restarting");
            (void)waitForServiceLine(ANDROID_LOG_INFO, "finalizeCameraDevice",
                                     "All Camera device(s) finalized\n");
            DVRSimConfig sim = DVRSimulatorControl::config();
            sim.cameras.resize(1);
            DVRSimulatorControl::setConfig(sim);
            setServiceState(cameraService(), "running");
            std::this_thread::sleep_for(std::chrono::seconds(60));
        },
        "Assertion failed: mRecCount == mCameraCount");
}
