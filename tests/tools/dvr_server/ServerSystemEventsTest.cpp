// A running dvr_server facing the system: suspend and resume announced on the
// message channel (this process plays the power manager), and the encoder
// service stopped and restarted under two recording channels (this process
// plays the service manager).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "ClientCallback.h"
#include "RecordingReader.h"
#include "ServerProcess.h"
#include "SvcStateDir.h"
#include "SystemMessenger.h"

namespace {

using dvrspace::IDVR;
using dvrtest::ClientCallback;
using dvrtest::ServerProcess;
using system_extension::MessageSocketDir;
using system_extension::ServiceMessage;
using system_extension::SystemMessenger;

constexpr auto kWait = std::chrono::seconds(60);
constexpr int kReplyTimeoutMs = 20000;
constexpr int kEncoder = ServerProcess::kEncoderIds[0];
constexpr int kCamera = ServerProcess::kCameraIds[0];

class ServerSystemEvents : public testing::Test {
protected:
    void startServer() {
        ASSERT_EQ(0, mkdir(mServer.storageDir().c_str(), 0755));
        mServer.start();
        mDvr = mServer.connect();
        ASSERT_NE(nullptr, mDvr) << mServer.log();
        std::string error;
        mSystem = SystemMessenger::open(MessageSocketDir(mServer.dir().file("msg")), &error);
        ASSERT_NE(nullptr, mSystem) << error;
    }
    // Announces value to the service as the power manager does.
    void announce(const std::string &value) {
        ASSERT_EQ(0, mSystem->send("dvr_server", {"dvr_server", "hibernationstate", value}))
            << mServer.log();
    }
    // The service's answer to the last announcement, "" when none came.
    std::string reply() {
        ServiceMessage message;
        if (!mSystem->receive(&message, kReplyTimeoutMs)) {
            return "";
        }
        EXPECT_EQ("dvr_server", message.name);
        EXPECT_EQ("hibernationstate", message.message);
        return message.value;
    }
    void prepareChannel(int encoder, int camera, const std::string &firstFile) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->attachCamera(encoder, camera));
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->attachAudio(encoder, ServerProcess::kAudioId));
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->setFileLength(encoder, 1));
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->setStoragePath(encoder, ServerProcess::kStorage));
        const std::string name = std::string(ServerProcess::kStorage) + "/" + firstFile;
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->nextFile(encoder, name.c_str()));
    }
    // Subscribes a callback object of this process to every notification.
    android::sp<ClientCallback> subscribe() {
        android::sp<ClientCallback> client = new ClientCallback("");
        EXPECT_EQ(dvrspace::DVR_SUCCESS, mDvr->establishCallback(getpid(), client));
        for (auto type : {dvrspace::DVR_CBK_OBJ_RECORD, dvrspace::DVR_CBK_OBJ_ABNORMAL}) {
            EXPECT_EQ(dvrspace::DVR_SUCCESS, mDvr->registerCallback(getpid(), 1, type));
        }
        return client;
    }
    // Polls a control call until it gives want (messages are handled on the
    // service's own thread, after the reply this process may already have).
    template <typename Call>
    bool becomes(int want, Call call) {
        const auto deadline = std::chrono::steady_clock::now() + kWait;
        while (std::chrono::steady_clock::now() < deadline) {
            if (call() == want) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    ServerProcess mServer;
    android::sp<IDVR> mDvr;
    std::unique_ptr<SystemMessenger> mSystem;
};

size_t count(const std::vector<ClientCallback::Call> &calls, const std::string &kind, int index) {
    size_t n = 0;
    for (const ClientCallback::Call &call : calls) {
        n += call.kind == kind && call.index == index ? 1 : 0;
    }
    return n;
}

// Whether finish's file had its start reported after its channel's abnormal
// notification.
bool startedAfterAbnormal(const std::vector<ClientCallback::Call> &calls,
                          const ClientCallback::Call &finish) {
    bool abnormal = false;
    for (const ClientCallback::Call &call : calls) {
        if (call.index != finish.index) {
            continue;
        }
        abnormal = abnormal || call.kind == "abnormal";
        if (call.kind == "start" && call.text == finish.text) {
            return abnormal;
        }
    }
    return false;
}

}  // namespace

TEST_F(ServerSystemEvents, SuspendWhileRecordingFailsAndTheRecordingGoesOn) {
    startServer();
    const android::sp<ClientCallback> client = subscribe();
    prepareChannel(kEncoder, kCamera, "suspend.ts");
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->startRecord(kEncoder));
    ASSERT_TRUE(client->waitUntil(
        [](const auto &calls) { return count(calls, "start", kEncoder) >= 1; }, kWait))
        << mServer.log();

    announce("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    EXPECT_EQ(dvrspace::DVR_STM_RECORDING, mDvr->getCurrentState(kEncoder));
    // Still recording: the one-second files keep rolling over.
    ASSERT_TRUE(client->waitUntil(
        [](const auto &calls) { return count(calls, "finish", kEncoder) >= 2; }, kWait))
        << mServer.log();
    EXPECT_EQ(dvrspace::DVR_SUCCESS, mDvr->stopRecord(kEncoder));
    EXPECT_TRUE(mServer.waitForLog("Recorder #0 is under DVR_STM_RECORDING, NOT ready to suspend"))
        << mServer.log();
}

TEST_F(ServerSystemEvents, IdleSuspendRefusesRecordingUntilTheResumeIsConfirmed) {
    startServer();
    prepareChannel(kEncoder, kCamera, "after_resume.ts");
    announce("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    EXPECT_EQ(dvrspace::DVR_INVALID_OPERATION, mDvr->startRecord(kEncoder));

    announce("resumebegin");
    ASSERT_EQ("resumesuccess", reply());
    // Devices run again, but recording waits for the system's confirmation.
    EXPECT_EQ(dvrspace::DVR_INVALID_OPERATION, mDvr->startRecord(kEncoder));

    announce("resumesuccess");
    EXPECT_TRUE(becomes(dvrspace::DVR_SUCCESS, [this] { return mDvr->startRecord(kEncoder); }))
        << mServer.log();
    EXPECT_TRUE(mServer.waitForLog("STD finalized")) << mServer.log();
    EXPECT_EQ(dvrspace::DVR_SUCCESS, mDvr->stopRecord(kEncoder));
}

TEST_F(ServerSystemEvents, CameraThatAnswersOneOnResumeGivesResumeIgnored) {
    mServer.dir().write("sim.json", R"({
      "pacing": "realtime",
      "cameras": [
        {"id": 10, "frameRate": 10, "width": 320, "height": 240, "resumeResult": 1},
        {"id": 11, "frameRate": 10, "width": 320, "height": 240}
      ],
      "audioInputs": [{"id": 20}],
      "arena": {"bytes": 16777216}
    })");
    startServer();
    announce("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    announce("resumebegin");
    EXPECT_EQ("resumeignored", reply());
    EXPECT_TRUE(mServer.waitForLog("Camera device[0] cause recoverable error: 1")) << mServer.log();
}

TEST_F(ServerSystemEvents, StoppedEncoderServiceEndsTheRecordingsAndTheServiceIsRebuilt) {
    startServer();
    const android::sp<ClientCallback> client = subscribe();
    prepareChannel(ServerProcess::kEncoderIds[0], ServerProcess::kCameraIds[0], "a.ts");
    prepareChannel(ServerProcess::kEncoderIds[1], ServerProcess::kCameraIds[1], "b.ts");
    for (int encoder : ServerProcess::kEncoderIds) {
        ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->startRecord(encoder));
    }
    ASSERT_TRUE(client->waitUntil(
        [](const auto &calls) {
            return count(calls, "finish", ServerProcess::kEncoderIds[0]) >= 1 &&
                   count(calls, "finish", ServerProcess::kEncoderIds[1]) >= 1;
        },
        kWait));

    // The service manager reports the encoder service gone.
    const SvcStateDir states(mServer.dir().file("svc"));
    std::string error;
    ASSERT_TRUE(states.write("es_server", "stopped", &error)) << error;

    // One abnormal notification per recorder, then each recording's last file.
    ASSERT_TRUE(client->waitUntil(
        [](const auto &calls) {
            for (int encoder : ServerProcess::kEncoderIds) {
                if (count(calls, "abnormal", encoder) != 1) {
                    return false;
                }
            }
            return true;
        },
        kWait))
        << mServer.log();
    // The server restarts the service; its report of running rebuilds the recorders.
    ASSERT_TRUE(mServer.waitForLog("es_server: running")) << mServer.log();
    std::string state;
    ASSERT_TRUE(states.read("es_server", &state, &error)) << error;
    EXPECT_EQ("running", state);

    // Every file written before the failure is complete. A roll-over that
    // came between the abnormal report and the stop reported its next file's
    // start, but the stop left that file without data, so the encoder never
    // made it (a file is made with its first frame); its finish is reported
    // all the same.
    const std::vector<ClientCallback::Call> calls = client->calls();
    size_t finished = 0;
    for (const ClientCallback::Call &call : calls) {
        if (call.kind != "finish") {
            continue;
        }
        const dvrspace::RecordingInfo info =
            dvrspace::RecordingReader::read(mServer.onDisk(call.text));
        if (!info.opened && startedAfterAbnormal(calls, call)) {
            continue;
        }
        ASSERT_TRUE(info.opened) << call.text << ": " << info.error;
        EXPECT_GT(info.videoFrames(), 0u) << call.text;
        EXPECT_TRUE(info.keyFrames.front()) << call.text;
        ++finished;
    }
    EXPECT_GE(finished, 2u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(1u, count(calls, "abnormal", ServerProcess::kEncoderIds[i]));
    }

    // The rebuilt channels record again.
    EXPECT_TRUE(
        becomes(dvrspace::DVR_STM_IDLE, [this] { return mDvr->getCurrentState(kEncoder); }));
    prepareChannel(kEncoder, kCamera, "again.ts");
    ASSERT_EQ(dvrspace::DVR_SUCCESS, mDvr->startRecord(kEncoder));
    ASSERT_TRUE(client->waitUntil(
        [](const auto &calls) {
            for (const ClientCallback::Call &call : calls) {
                if (call.kind == "finish" && call.text.find("again.ts") != std::string::npos) {
                    return true;
                }
            }
            return false;
        },
        kWait));
    EXPECT_EQ(dvrspace::DVR_SUCCESS, mDvr->stopRecord(kEncoder));
    EXPECT_EQ(0, mServer.stop(SIGTERM)) << mServer.log();
}
