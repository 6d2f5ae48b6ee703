// Suspend to disk and resume as the system announces them: the test holds the
// system's end of the real message channel, sends ("<service>",
// "hibernationstate", value) and reads the service's answer.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "CommandResult.h"
#include "DVRSimulatorControl.h"
#include "DVRSystemFixture.h"
#include "MediaProbe.h"
#include "MessageSocketDir.h"
#include "RecorderPeer.h"
#include "ServiceMessage.h"
#include "SystemMessenger.h"
#include "dvr_std.h"

using namespace dvrspace;
using namespace dvrtest;
using system_extension::MessageSocketDir;
using system_extension::ServiceMessage;
using system_extension::SystemMessenger;

namespace {

constexpr int kPid = 4321;
constexpr const char *kHibernation = "hibernationstate";
// Long enough for a suspend that waits 8 s for a stopping recorder on a
// loaded machine.
constexpr int kReplyTimeoutMs = 60000;
// After a reply that proves the earlier messages were handled, this is only
// how long a wrong extra answer gets to show up.
constexpr int kNoReplyMs = 300;

class DVRSuspendResume : public DVRSystemFixture {
protected:
    void SetUp() override {
        DVRSystemFixture::SetUp();
        std::string error;
        mSystem = SystemMessenger::open(MessageSocketDir::fromEnvironment(), &error);
        ASSERT_NE(nullptr, mSystem) << error;
    }

    // Sends (name, message, value) to the socket of service; the send result.
    int sendAs(const std::string &service, const std::string &name, const std::string &message,
               const std::string &value) {
        return mSystem->send(service, ServiceMessage{name, message, value});
    }
    void send(const std::string &value) {
        ASSERT_EQ(0, sendAs(mSvcName, mSvcName, kHibernation, value));
    }
    // The value of the service's next answer, "" when none came in time.
    std::string reply(int timeoutMs = kReplyTimeoutMs) {
        ServiceMessage answer;
        if (!mSystem->receive(&answer, timeoutMs)) {
            return "";
        }
        EXPECT_EQ(mSvcName, answer.name);
        EXPECT_EQ(kHibernation, answer.message);
        return answer.value;
    }
    // "resumesuccess" or "resumeignored" confirm the resume; no answer comes.
    void confirm(const std::string &value) {
        send(value);
        ASSERT_TRUE(
            waitForLogged(ANDROID_LOG_INFO, "DVRService", "onResumeSuccess", "STD finalized\n", 1));
    }
    size_t serviceLogged(int priority, const std::string &function, const std::string &rest) {
        return logged(priority, "DVRService", function, rest);
    }
    size_t recorderErrors(int encId, const std::string &function, const std::string &text) {
        return logged(ANDROID_LOG_ERROR, "DVRRecorder", function,
                      " [" + std::to_string(encId) + "] " + text);
    }
    void recordOn(int encId, int camId) {
        ASSERT_NO_FATAL_FAILURE(prepareChannel(encId, camId, false));
        const size_t starts = mClient->countEvents(DVR_CBK_RECORD_START);
        ASSERT_EQ(DVR_SUCCESS, mService->startRecord(encId));
        ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, starts + 1));
    }

    std::string mSvcName = "dvr_server";
    std::unique_ptr<SystemMessenger> mSystem;
};

bool isNobodyListening(int result) {
    return result == -ENOENT || result == -ECONNREFUSED;
}

}  // namespace

TEST_F(DVRSuspendResume, WithoutSvcNameTheReceiverLogsAndAnswersAsDvrServer) {
    build();
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "DVR_STD", "DVRSvcReceiver",
                         "CANNOT get SVC_NAME, use default 'dvr_server'"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "DVR_STD", "DVRSvcReceiver", "CONSTRUCTOR\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "DVR", "STD initialized\n"));
    send("suspendbegin");
    EXPECT_EQ("suspendsuccess", reply());
}

TEST_F(DVRSuspendResume, SvcNameFromTheEnvironmentIsTheNameOnTheChannel) {
    setenv("SVC_NAME", "dvr_cabin", 1);
    mSvcName = "dvr_cabin";
    build();
    EXPECT_EQ(0u, logged(ANDROID_LOG_ERROR, "DVR_STD", "DVRSvcReceiver",
                         "CANNOT get SVC_NAME, use default 'dvr_server'"));
    EXPECT_TRUE(
        isNobodyListening(sendAs("dvr_server", "dvr_server", kHibernation, "suspendbegin")));
    // Delivered to its socket, but addressed to the default name: ignored.
    ASSERT_EQ(0, sendAs(mSvcName, "dvr_server", kHibernation, "suspendbegin"));
    send("suspendbegin");
    EXPECT_EQ("suspendsuccess", reply());
    EXPECT_EQ("", reply(kNoReplyMs));
}

TEST_F(DVRSuspendResume, OtherServiceNamesMessagesAndValuesAreIgnoredWithoutReply) {
    build();
    ASSERT_EQ(0, sendAs(mSvcName, "dvr_server2", kHibernation, "suspendbegin"));
    ASSERT_EQ(0, sendAs(mSvcName, "dvr_serve", kHibernation, "suspendbegin"));
    ASSERT_EQ(0, sendAs(mSvcName, mSvcName, "hibernationstatus", "suspendbegin"));
    ASSERT_EQ(0, sendAs(mSvcName, mSvcName, "powerstate", "resumesuccess"));
    send("suspend");
    send("");
    // Messages are handled in order: the answer to this one comes after
    // whatever the others caused. A resume of running devices changes nothing.
    send("resumebegin");
    EXPECT_EQ("resumesuccess", reply());
    EXPECT_EQ("", reply(kNoReplyMs));
    EXPECT_FALSE(mService->isSuspend());
    EXPECT_TRUE(cameraDelivers(camera(0)));
    EXPECT_TRUE(audioDelivers(audio(0)));
    EXPECT_EQ(0u, serviceLogged(ANDROID_LOG_INFO, "onResumeSuccess", "STD finalized\n"));
    // Delivery goes on: the receiver is still there.
    send("suspendbegin");
    EXPECT_EQ("suspendsuccess", reply());
}

TEST_F(DVRSuspendResume, IdleSuspendRefusesRecordingUntilTheResumeIsConfirmed) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(prepareChannel(kEncoder0, kCamera0, true));
    ASSERT_FALSE(mService->isSuspend());

    send("suspendbegin");
    EXPECT_EQ("suspendsuccess", reply());
    EXPECT_TRUE(mService->isSuspend());
    EXPECT_FALSE(cameraDelivers(camera(0)));
    EXPECT_FALSE(cameraDelivers(camera(1)));
    EXPECT_FALSE(audioDelivers(audio(0)));
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->startRecord(kEncoder0));
    EXPECT_EQ(1u, recorderErrors(kEncoder0, "start", "Invalid operation during suspend\n"));

    send("resumebegin");
    EXPECT_EQ("resumesuccess", reply());
    EXPECT_TRUE(cameraDelivers(camera(0)));
    EXPECT_TRUE(cameraDelivers(camera(1)));
    EXPECT_TRUE(audioDelivers(audio(0)));
    // Devices run again, but the system has not confirmed the whole resume.
    EXPECT_TRUE(mService->isSuspend());
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->startRecord(kEncoder0));
    EXPECT_EQ(2u, recorderErrors(kEncoder0, "start", "Invalid operation during suspend\n"));

    confirm("resumesuccess");
    EXPECT_EQ("", reply(kNoReplyMs));
    EXPECT_FALSE(mService->isSuspend());
    ASSERT_EQ(DVR_SUCCESS, mService->startRecord(kEncoder0));
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_START, 1));
    ASSERT_TRUE(waitForContent(mClient->namesGiven().back()));
    ASSERT_EQ(DVR_SUCCESS, mService->stopRecord(kEncoder0));
    ASSERT_TRUE(mClient->waitForEvents(DVR_CBK_RECORD_FINISH, 1));
    const auto names = mClient->namesGiven();
    ASSERT_FALSE(names.empty());
    const MediaProbe probe = MediaProbe::read(names[0]);
    ASSERT_TRUE(probe.opened);
    EXPECT_EQ(0, probe.decodeErrors);
    EXPECT_FALSE(probe.frameNumbers.empty());
    EXPECT_TRUE(probe.hasAudio);
}

TEST_F(DVRSuspendResume, SuspendWhileRecordingFailsButSuspendsTheAudioInputs) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(recordOn(kEncoder0, kCamera0));

    send("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend",
                                "Recorder #0 is under DVR_STM_RECORDING, NOT ready to suspend\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "NOT ready to suspend!\n"));
    EXPECT_TRUE(mService->isSuspend());
    EXPECT_FALSE(audioDelivers(audio(0)));
    // The loop ended at channel 0: camera 1 was never asked.
    EXPECT_TRUE(cameraDelivers(camera(1)));
    // Suspend never stops a recording; the client has to.
    EXPECT_EQ(DVR_STM_RECORDING, mService->getCurrentState(kEncoder0));
    EXPECT_EQ(DVR_SUCCESS, mService->stopRecord(kEncoder0));
    // A failed suspend still counts as suspended until a confirmed resume.
    EXPECT_EQ(DVR_INVALID_OPERATION, mService->startRecord(kEncoder0));
    EXPECT_EQ(1u, recorderErrors(kEncoder0, "start", "Invalid operation during suspend\n"));
}

TEST_F(DVRSuspendResume, RecorderStuckStoppingTimesOutAfterEightSeconds) {
    build();
    ASSERT_NO_FATAL_FAILURE(attachClient(kPid, mClient, 7));
    ASSERT_NO_FATAL_FAILURE(recordOn(kEncoder0, kCamera0));
    DVRSimulatorControl::setEncoderNeverPlaying(kEncoder0, true);
    ASSERT_EQ(DVR_INVALID_OPERATION, mService->stopRecord(kEncoder0));
    ASSERT_EQ(DVR_STM_STOPPING, mService->getCurrentState(kEncoder0));

    send("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "Timeout (cnt_down=0)\n"));
    // Channel 1 is idle: its encoder is suspended, then the earlier timeout
    // ends the loop before its camera.
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "NOT ready to suspend!\n"));
    EXPECT_TRUE(cameraDelivers(camera(1)));
    EXPECT_FALSE(audioDelivers(audio(0)));
    EXPECT_TRUE(mService->isSuspend());

    // Let the teardown stop the recording the encoder still makes.
    DVRSimulatorControl::setEncoderNeverPlaying(kEncoder0, false);
    RecorderPeer(*DVRPeer::recorder(*mService, 0)).setState(DVR_STM_RECORDING);
}

TEST_F(DVRSuspendResume, EncoderThatFailsToSuspendFailsTheSuspend) {
    build();
    DVRSimulatorControl::setEncoderResult(kEncoder0, DVRSimEncoderOp::Suspend, -5);
    send("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    // The recorder reports any encoder failure as -1.
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend",
                                "Encoder device[0] suspend failed: -1\n"));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "NOT ready to suspend!\n"));
    EXPECT_TRUE(cameraDelivers(camera(0)));
    EXPECT_FALSE(audioDelivers(audio(0)));
}

TEST_F(DVRSuspendResume, CameraThatFailsToSuspendEndsTheSuspendBeforeTheAudioInputs) {
    build();
    DVRSimulatorControl::setCameraResult(kCamera1, DVRSimDeviceOp::Suspend, -5);
    send("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    EXPECT_EQ(
        1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "Camera device[1] suspend failed: -5\n"));
    EXPECT_FALSE(cameraDelivers(camera(0)));
    EXPECT_TRUE(audioDelivers(audio(0)));
    EXPECT_TRUE(mService->isSuspend());
}

TEST_F(DVRSuspendResume, AudioInputThatFailsToSuspendFailsTheSuspend) {
    build();
    DVRSimulatorControl::setAudioResult(kAudio0, DVRSimDeviceOp::Suspend, -3);
    send("suspendbegin");
    EXPECT_EQ("suspendfailed", reply());
    EXPECT_EQ(
        1u, serviceLogged(ANDROID_LOG_ERROR, "onSuspend", "Audio device[0] suspend failed: -3\n"));
    EXPECT_FALSE(cameraDelivers(camera(1)));
}

TEST_F(DVRSuspendResume, EncoderThatFailsToResumeAnswersResumeFailed) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setEncoderResult(kEncoder0, DVRSimEncoderOp::Resume, -5);
    send("resumebegin");
    EXPECT_EQ("resumefailed", reply());
    EXPECT_EQ(
        1u, serviceLogged(ANDROID_LOG_ERROR, "onResume", "Encoder device[0] resume failed: -1\n"));
    // Stopped at the first problem: nothing after the encoder was resumed.
    EXPECT_FALSE(cameraDelivers(camera(0)));
    EXPECT_FALSE(cameraDelivers(camera(1)));
    EXPECT_FALSE(audioDelivers(audio(0)));
    EXPECT_TRUE(mService->isSuspend());
}

TEST_F(DVRSuspendResume, CameraAnsweringRecoverableLeavesLaterDevicesSuspendedUntilTheNextResume) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setCameraResult(kCamera0, DVRSimDeviceOp::Resume, 1);
    send("resumebegin");
    EXPECT_EQ("resumeignored", reply());
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "onResume",
                                "Camera device[0] cause recoverable error: 1\n"));
    EXPECT_FALSE(cameraDelivers(camera(1)));
    EXPECT_FALSE(audioDelivers(audio(0)));

    // The system's next resume goes through every device again.
    DVRSimulatorControl::setCameraResult(kCamera0, DVRSimDeviceOp::Resume, 0);
    send("resumebegin");
    EXPECT_EQ("resumesuccess", reply());
    EXPECT_TRUE(cameraDelivers(camera(0)));
    EXPECT_TRUE(cameraDelivers(camera(1)));
    EXPECT_TRUE(audioDelivers(audio(0)));
    confirm("resumeignored");
    EXPECT_FALSE(mService->isSuspend());
}

TEST_F(DVRSuspendResume, CameraThatFailsToResumeAnswersResumeFailed) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setCameraResult(kCamera1, DVRSimDeviceOp::Resume, -1);
    send("resumebegin");
    EXPECT_EQ("resumefailed", reply());
    EXPECT_EQ(1u,
              serviceLogged(ANDROID_LOG_ERROR, "onResume", "Camera device[1] resume failed: -1\n"));
    EXPECT_TRUE(cameraDelivers(camera(0)));
    EXPECT_FALSE(audioDelivers(audio(0)));
}

TEST_F(DVRSuspendResume, CameraResultsOtherThanOneAndMinusOneCountAsResumed) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setCameraResult(kCamera0, DVRSimDeviceOp::Resume, 7);
    send("resumebegin");
    EXPECT_EQ("resumesuccess", reply());
    EXPECT_TRUE(cameraDelivers(camera(1)));
    EXPECT_TRUE(audioDelivers(audio(0)));
}

TEST_F(DVRSuspendResume, AudioInputAnsweringRecoverableAnswersResumeIgnored) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setAudioResult(kAudio0, DVRSimDeviceOp::Resume, 1);
    send("resumebegin");
    EXPECT_EQ("resumeignored", reply());
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_WARN, "onResume",
                                "Audio device[0] cause recoverable error: 1\n"));
    EXPECT_TRUE(cameraDelivers(camera(1)));
}

TEST_F(DVRSuspendResume, AudioInputThatFailsToResumeAnswersResumeFailed) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    DVRSimulatorControl::setAudioResult(kAudio0, DVRSimDeviceOp::Resume, -1);
    send("resumebegin");
    EXPECT_EQ("resumefailed", reply());
    EXPECT_EQ(1u,
              serviceLogged(ANDROID_LOG_ERROR, "onResume", "Audio device[0] resume failed: -1\n"));
}

TEST_F(DVRSuspendResume, ResumeWithoutRecordersFails) {
    build();
    // The encoder service went away: no recorder table until it runs again.
    setServiceState(encoderService(), "restarting");
    ASSERT_TRUE(waitForLogged(ANDROID_LOG_INFO, "DVRService", "finalizeRecorder",
                              "Recorder(s) finalized\n", 1));
    send("resumebegin");
    EXPECT_EQ("resumefailed", reply());
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "onResume", "Invalid NULL mRecorder\n"));
}

TEST_F(DVRSuspendResume, AnswerThatNobodyReceivesIsLoggedAndDropped) {
    build();
    // No system side listens: the question comes from an unbound socket.
    mSystem.reset();
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    const MessageSocketDir dir = MessageSocketDir::fromEnvironment();
    EXPECT_EQ(0, MessageSocketDir::sendTo(
                     fd, dir.serviceSocket(mSvcName),
                     ServiceMessage{mSvcName, kHibernation, "suspendbegin"}.encode()));
    close(fd);
    EXPECT_TRUE(waitForLogged(
        ANDROID_LOG_ERROR, "DVR_STD", "onMessageReceived",
        "ServiceMessager::sendMessage(dvr_server, hibernationstate, suspendsuccess) failed: " +
            std::to_string(-ENOENT) + "\n",
        1));
    EXPECT_TRUE(mService->isSuspend());
}

TEST_F(DVRSuspendResume, SecondResumeConfirmationFindsNothingToEnd) {
    build();
    send("suspendbegin");
    ASSERT_EQ("suspendsuccess", reply());
    send("resumebegin");
    ASSERT_EQ("resumesuccess", reply());
    confirm("resumesuccess");
    EXPECT_FALSE(mService->isSuspend());
    // The first confirmation ended delivery: whatever reaches the name now
    // goes unanswered, and its socket goes away.
    (void)sendAs(mSvcName, mSvcName, kHibernation, "resumesuccess");
    (void)sendAs(mSvcName, mSvcName, kHibernation, "suspendbegin");
    EXPECT_EQ("", reply(kNoReplyMs));
    const std::string socketPath = MessageSocketDir::fromEnvironment().serviceSocket(mSvcName);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::filesystem::exists(socketPath) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(std::filesystem::exists(socketPath));
    EXPECT_TRUE(isNobodyListening(sendAs(mSvcName, mSvcName, kHibernation, "resumesuccess")));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_INFO, "onResumeSuccess", "STD finalized\n"));
    EXPECT_FALSE(mService->isSuspend());
    // Even called once more, there is no receiver or messager left to destroy.
    mService->onResumeSuccess();
    EXPECT_EQ(2u, serviceLogged(ANDROID_LOG_INFO, "onResumeSuccess", "STD finalized\n"));
    EXPECT_FALSE(mService->isSuspend());
}

TEST_F(DVRSuspendResume, WholeCycleFromTheSysmsgToolEndsTheSuspendHandling) {
    build();
    // The tool takes the system's end of the channel itself.
    mSystem.reset();
    const CommandResult cycle =
        runCommand(std::string(SYSMSG_TOOL) + " --dir " +
                   MessageSocketDir::fromEnvironment().path() + " cycle dvr_server");
    EXPECT_EQ(0, cycle.status) << cycle.err;
    EXPECT_EQ(
        "dvr_server hibernationstate suspendsuccess\n"
        "dvr_server hibernationstate resumesuccess\n",
        cycle.out);
    ASSERT_TRUE(
        waitForLogged(ANDROID_LOG_INFO, "DVRService", "onResumeSuccess", "STD finalized\n", 1));
    EXPECT_FALSE(mService->isSuspend());
    EXPECT_TRUE(cameraDelivers(camera(1)));
    EXPECT_TRUE(audioDelivers(audio(0)));
}

// The two translations abort for a result outside 0, 1 and -1; the service's
// suspend and resume never produce one, so that abort cannot be reached here.

using DVRSuspendResumeDeathTest = DVRSuspendResume;

TEST_F(DVRSuspendResumeDeathTest, MonitorThatCannotBeCreatedAborts) {
    // A state directory that cannot be made.
    setenv("DVR_SVC_DIR", (mEnv.dir().write("plain", "x") + "/svc").c_str(), 1);
    EXPECT_DEATH(build(), "Assertion failed: mSvcMonHandle != NULL");
}

TEST_F(DVRSuspendResumeDeathTest, MessageChannelThatCannotBeOpenedAborts) {
    setenv("DVR_MSG_DIR", (mEnv.dir().write("plain", "x") + "/msg").c_str(), 1);
    EXPECT_DEATH(build(), "Assertion failed: mSvcMsgr != NULL");
}

TEST_F(DVRSuspendResumeDeathTest, ReceiverWithoutServiceOrMessagerAborts) {
    EXPECT_DEATH(DVRSvcReceiver(nullptr, nullptr), "Assertion failed: dvr != NULL");
    build();
    EXPECT_DEATH(DVRSvcReceiver(mService.get(), nullptr), "Assertion failed: msgr != NULL");
}
