// Client callbacks with the client in a process of its own: the test process
// is the service (a DVR published through a front that passes the callback
// operations of IDVR to it), a forked process is the client.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "DVR.h"
#include "LineReader.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"
#include "RecordingDVR.h"
#include "StampFrame.h"

namespace {

using dvrspace::DVR;
using dvrspace::DVRPeer;

const char *const kServiceName = "dvr_callback_test";

// The service side: the four callback operations reach the DVR, the rest are
// answered by the recording test service.
class CallbackFront : public dvrtest::RecordingDVR {
public:
    CallbackFront(const android::sp<DVR> &service, const std::string &transcript)
        : RecordingDVR(Plan{}, transcript), mService(service) {}

    dvrspace::DVRResult_e registerCallback(int pid, int cbkId,
                                           dvrspace::DVRCbkObjType_e type) override {
        return mService->registerCallback(pid, cbkId, type);
    }
    dvrspace::DVRResult_e unregisterCallback(int pid, int cbkId,
                                             dvrspace::DVRCbkObjType_e type) override {
        return mService->unregisterCallback(pid, cbkId, type);
    }
    dvrspace::DVRResult_e establishCallback(
        int pid, const android::sp<dvrspace::IDVRCallback> &callback) override {
        return mService->establishCallback(pid, callback);
    }
    dvrspace::DVRResult_e destroyCallback(int pid) override {
        return mService->destroyCallback(pid);
    }

private:
    android::sp<DVR> mService;
};

// What the client process does and answers.
struct ClientScript {
    std::vector<std::pair<int, dvrspace::DVRCbkObjType_e>> subscriptions;  // cbkId, type
    std::string stamp;
    std::string fileName;
    // A notification with this file name waits for a line from the test.
    std::string holdOn;
};

// The client's callback object: each call becomes a line on the report pipe.
class PipeCallback : public dvrspace::BnDVRCallback {
public:
    PipeCallback(const ClientScript &script, int reportFd, int goFd)
        : mScript(script), mReportFd(reportFd), mGoFd(goFd) {}

    int onRecordStart(int cbkId, int index, const char *fileName) override {
        if (mScript.holdOn == fileName) {
            char go = 0;
            (void)!read(mGoFd, &go, 1);
        }
        report("start " + std::to_string(cbkId) + " " + std::to_string(index) + " " + fileName);
        return 0;
    }
    int onRecordFinish(int cbkId, int index, const char *fileName) override {
        report("finish " + std::to_string(cbkId) + " " + std::to_string(index) + " " + fileName);
        return 0;
    }
    int onRecordError(int cbkId, int index, int code) override {
        report("error " + std::to_string(cbkId) + " " + std::to_string(index) + " " +
               std::to_string(code));
        return 0;
    }
    int onRecordErrorSevere(int cbkId, int index, int code) override {
        report("severe " + std::to_string(cbkId) + " " + std::to_string(index) + " " +
               std::to_string(code));
        return 0;
    }
    int onRecordAbnormal(int cbkId, int index, int value) override {
        report("abnormal " + std::to_string(cbkId) + " " + std::to_string(index) + " " +
               std::to_string(value));
        return 0;
    }
    int getStampString(int cbkId, int index, char *buffer) override {
        report("stamp " + std::to_string(cbkId) + " " + std::to_string(index));
        snprintf(buffer, kStampStringCapacity, "%s", mScript.stamp.c_str());
        return 0;
    }
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override {
        report("name " + std::to_string(cbkId) + " " + std::to_string(index) + " " +
               std::to_string(length));
        snprintf(buffer, length, "%s", mScript.fileName.c_str());
        return 0;
    }

    void report(const std::string &line) {
        const std::string text = line + "\n";
        (void)!write(mReportFd, text.data(), text.size());
    }

private:
    const ClientScript mScript;
    const int mReportFd;
    const int mGoFd;
};

[[noreturn]] void runClient(const ClientScript &script, int reportFd, int goFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    android::ProcessState::self()->startThreadPool();
    const android::sp<android::IBinder> binder =
        android::defaultServiceManager()->waitForService(android::String16(kServiceName), 20000);
    const android::sp<dvrspace::IDVR> service = android::interface_cast<dvrspace::IDVR>(binder);
    if (service == nullptr) {
        _exit(3);
    }
    const android::sp<PipeCallback> callback = new PipeCallback(script, reportFd, goFd);
    const int established = service->establishCallback(getpid(), callback);
    callback->report("established " + std::to_string(established));
    for (const auto &subscription : script.subscriptions) {
        const int registered =
            service->registerCallback(getpid(), subscription.first, subscription.second);
        callback->report("registered " + std::to_string(registered));
    }
    callback->report("ready");
    for (;;) {
        pause();
    }
}

class DVRClientProcess : public ::testing::Test {
protected:
    void TearDown() override {
        killClient();
        if (mService != nullptr) {
            DVRPeer::forgetDeathRecipients(*mService);
        }
        // The published front keeps the service; the process ends soon anyway.
    }

    // Forks the client (before this process uses binder or starts a thread),
    // then builds and publishes the service and waits until the client is ready.
    void startClient(const ClientScript &script) {
        setenv("DVR_BINDER_DIR", mEnv.dir().path().c_str(), 1);
        int report[2];
        int go[2];
        ASSERT_EQ(0, pipe(report));
        ASSERT_EQ(0, pipe(go));
        mClientPid = fork();
        ASSERT_GE(mClientPid, 0);
        if (mClientPid == 0) {
            close(report[0]);
            close(go[1]);
            runClient(script, report[1], go[0]);
        }
        close(report[1]);
        close(go[0]);
        mReports = dvrtest::LineReader(report[0]);
        mGoFd = go[1];

        mService = new DVR();
        mFront = new CallbackFront(mService, mEnv.dir().file("transcript"));
        ASSERT_EQ(android::OK, android::defaultServiceManager()->addService(
                                   android::String16(kServiceName), mFront));
        android::ProcessState::self()->startThreadPool();
        const std::vector<std::string> setup = readLines(2 + script.subscriptions.size());
        std::vector<std::string> expected = {"established 0"};
        for (size_t i = 0; i < script.subscriptions.size(); ++i) {
            expected.push_back("registered 0");
        }
        expected.push_back("ready");
        ASSERT_EQ(expected, setup);
    }

    // The next count lines the client reported, fewer after 20 s.
    std::vector<std::string> readLines(size_t count) { return mReports.read(count); }

    void releaseHeldCall() { ASSERT_EQ(1, write(mGoFd, "g", 1)); }

    void killClient() {
        if (mClientPid > 0) {
            kill(mClientPid, SIGKILL);
            waitpid(mClientPid, nullptr, 0);
            mClientPid = -1;
        }
    }

    // Waits up to 20 s for a service line.
    bool waitForLog(int priority, const std::string &function, const std::string &rest) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            if (dvrtest::countLogged(mCapture, priority, "DVRService", function, rest) > 0) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    dvrtest::RecorderTestEnv mEnv;
    dvrtest::LogCapture mCapture;
    pid_t mClientPid = -1;
    dvrtest::LineReader mReports;
    int mGoFd = -1;
    android::sp<DVR> mService;
    android::sp<CallbackFront> mFront;
};

TEST_F(DVRClientProcess, ClientReceivesItsRecordAndErrorNotificationsInOrder) {
    ClientScript script;
    script.subscriptions = {{21, dvrspace::DVR_CBK_OBJ_RECORD}, {22, dvrspace::DVR_CBK_OBJ_ERROR}};
    startClient(script);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START,
                         "/rec/one.ts", 0);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_ERROR, NULL, -71);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_ABNORMAL, dvrspace::DVR_CBK_ABNORMAL, NULL, 0);
    mService->doCallback(1, dvrspace::DVR_CBK_OBJ_ERROR, dvrspace::DVR_CBK_ERROR_SEVERE, NULL, -72);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_FINISH,
                         "/rec/one.ts", 0);
    EXPECT_EQ(readLines(4), (std::vector<std::string>{
                                "start 21 0 /rec/one.ts",
                                "error 22 0 -71",
                                "severe 22 1 -72",
                                "finish 21 0 /rec/one.ts",
                            }));
}

TEST_F(DVRClientProcess, FileNameClientNamesTheNextFile) {
    ClientScript script;
    script.subscriptions = {{3, dvrspace::DVR_CBK_OBJ_FILENAME}};
    script.fileName = "/rec/from-client.avi";
    startClient(script);
    char name[255] = {};
    mService->getFileNameFromUser(1, name, sizeof(name));
    EXPECT_STREQ("/rec/from-client.avi", name);
    EXPECT_EQ(readLines(1), (std::vector<std::string>{"name 3 1 255"}));
}

TEST_F(DVRClientProcess, StampClientTextAppearsInTheRenderedFrameInsideItsBoxOnly) {
    ClientScript script;
    script.subscriptions = {{9, dvrspace::DVR_CBK_OBJ_STAMP}};
    script.stamp = "DOCK 4";
    startClient(script);
    dvrspace::Recorder &recorder = *DVRPeer::recorder(*mService, 0);
    dvrspace::DVRCameraDevice *camera = DVRPeer::camera(*mService, 0);
    ASSERT_NE(nullptr, camera);
    recorder.attachCamera(camera);
    const dvrspace::QVStampSettings_t off{false, 0, 0, dvrspace::QV_DVR_STAMP_FONT_SIZE_SMALLEST,
                                          1,     0};
    const dvrspace::QVStampSettings_t user{true, 300, 200, dvrspace::QV_DVR_STAMP_FONT_SIZE_LARGE,
                                           1,    0};
    ASSERT_EQ(dvrspace::DVR_SUCCESS, recorder.setTimestamp(off));
    ASSERT_EQ(dvrspace::DVR_SUCCESS, recorder.setSelfDefinedStamp(&user));
    dvrspace::RecorderPeer peer(recorder);
    peer.applyStagedSettings();

    const dvrspace::DVRCameraCaps_t caps = *camera->getCaps();
    dvrtest::Nv12Frame frame(caps.width, caps.height, caps.stride);
    const dvrtest::Nv12Frame before = frame;
    void *planes[2] = {frame.address(), nullptr};
    EXPECT_EQ(0, peer.renderStamp(planes));
    EXPECT_EQ(readLines(1),
              (std::vector<std::string>{"stamp 9 " + std::to_string(camera->getID())}));
    const dvrtest::PixelChanges changes =
        dvrtest::comparePixels(before, frame, {dvrtest::textBox(frame, 300, 200, 4, "DOCK 4")});
    EXPECT_GT(changes.inside, 100);
    EXPECT_EQ(0, changes.outside);
    recorder.detachCamera();
}

TEST_F(DVRClientProcess, KilledClientIsBuriedAndTheServiceGoesOn) {
    ClientScript script;
    script.subscriptions = {{5, dvrspace::DVR_CBK_OBJ_RECORD}, {6, dvrspace::DVR_CBK_OBJ_FILENAME}};
    script.fileName = "/rec/never.ts";
    startClient(script);
    const pid_t clientPid = mClientPid;
    killClient();
    ASSERT_TRUE(waitForLog(ANDROID_LOG_WARN, "clientDied", "Client died but keep recording\n"));
    EXPECT_EQ(1u, dvrtest::countLogged(mCapture, ANDROID_LOG_WARN, "DVRService", "binderDied",
                                       "DVR client(PID=" + std::to_string(clientPid) + ") died\n"));
    // The line is logged just before the client is removed: wait for that.
    for (int waited = 0;
         waited < 500 && DVRPeer::callbackManager(*mService).getClient(clientPid) != nullptr;
         ++waited) {
        usleep(10000);
    }
    EXPECT_EQ(nullptr, DVRPeer::callbackManager(*mService).getClient(clientPid));
    // Nobody is subscribed any more; notifications and queries go nowhere.
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START,
                         "/rec/after.ts", 0);
    char name[32] = "kept";
    mService->getFileNameFromUser(0, name, sizeof(name));
    EXPECT_STREQ("kept", name);
    EXPECT_EQ(dvrspace::DVR_FAILURE, mService->destroyCallback(clientPid));
}

TEST_F(DVRClientProcess, ExitAndWaitDeliversTenPendingRecordsInOrderThenReturnsZero) {
    ClientScript script;
    script.subscriptions = {{1, dvrspace::DVR_CBK_OBJ_RECORD}};
    script.holdOn = "/rec/held.ts";
    startClient(script);
    mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_START,
                         "/rec/held.ts", 0);
    std::vector<std::string> expected = {"start 1 0 /rec/held.ts"};
    for (int i = 0; i < 10; ++i) {
        const std::string file = "/rec/" + std::to_string(i) + ".ts";
        mService->doCallback(0, dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_RECORD_FINISH,
                             file.c_str(), 0);
        expected.push_back("finish 1 0 " + file);
    }
    android::status_t status = -1;
    std::thread stopper([&] { status = DVRPeer::callbackThread(*mService)->exitAndWait(); });
    releaseHeldCall();
    stopper.join();
    EXPECT_EQ(0, status);
    EXPECT_FALSE(DVRPeer::callbackThread(*mService)->isRunning());
    EXPECT_EQ(readLines(11), expected);
}

}  // namespace
