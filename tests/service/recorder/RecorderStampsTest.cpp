// Stamp overlay and snapshot: what _renderStamp draws where, the user text
// asked from the stamp client, and takeSnapshot's results.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "DVRSimulatorControl.h"
#include "IDVRCallback.h"
#include "RecorderFixture.h"
#include "StampFrame.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kStride = 1920;
constexpr int kClientPid = 4321;
// Clients choose colour 1: the renderer's 7, white.
constexpr uint8_t kWhiteSelector = 1;
// Every time stamp has the width of "YYYY/mm/dd HH:MM:SS" in the monospaced font.
const char *const kSomeTime = "2000/01/01 00:00:00";

// A black frame of the simulated camera's geometry.
class Frame : public Nv12Frame {
public:
    Frame() : Nv12Frame(kWidth, kHeight, kStride) {}
};

class RecorderStamp : public RecorderFixture {
protected:
    // Stages both stamps and brings them into force, as start() does.
    void useStamps(const QVStampSettings_t &timestamp, const QVStampSettings_t &user) {
        ASSERT_EQ(DVR_SUCCESS, mRecorder->setTimestamp(timestamp));
        ASSERT_EQ(DVR_SUCCESS, mRecorder->setSelfDefinedStamp(&user));
        peer().applyStagedSettings();
    }
    android::sp<StampClient> subscribeStampClient(const std::string &text) {
        android::sp<StampClient> client = new StampClient(text);
        CallbackManager &manager = DVRPeer::callbackManager(*mService);
        EXPECT_EQ(0, manager.addClient(kClientPid, client));
        EXPECT_EQ(0, manager.addCallbackObject(kClientPid, 5, DVR_CBK_OBJ_STAMP));
        return client;
    }
    int render(Nv12Frame &frame) {
        void *planes[2] = {frame.address(), nullptr};
        return peer().renderStamp(planes);
    }
    // render() on a black frame of the camera's geometry.
    Drawing renderOnBlack() {
        return drawOnBlack(kWidth, kHeight, kStride,
                           [this](Nv12Frame &frame) { return render(frame); });
    }
    size_t serviceLogged(int priority, const std::string &function, const std::string &rest) {
        return countLogged(mCapture, priority, "DVRRecorder", function, rest);
    }
};

const QVStampSettings_t kOff{false, 0, 0, QV_DVR_STAMP_FONT_SIZE_SMALLEST, kWhiteSelector, 0};

TEST_F(RecorderStamp, BothStampsDisabledDrawNothing) {
    buildWithCamera();
    useStamps(kOff, kOff);
    subscribeStampClient("never asked");
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(0, drawn.result);
    EXPECT_EQ(drawn.before.bytes(), drawn.after.bytes());
}

TEST_F(RecorderStamp, TimestampIsDrawnInsideItsBoxOnly) {
    buildWithCamera();
    useStamps({true, 100, 60, QV_DVR_STAMP_FONT_SIZE_MEDIUM, kWhiteSelector, 0}, kOff);
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(0, drawn.result);
    expectDrawnOnlyInside(drawn, textBox(drawn.after, 100, 60, 3, kSomeTime), 100);
}

TEST_F(RecorderStamp, FactoryDefaultStampWithoutAFontSizeIsDrawnAtTheDefaultSize) {
    // The shipped defaults enable the time stamp but carry no font size.
    mEnv.installShippedConfigWith(
        {{"DVR_TIMESTAMP_POSX", "100"}, {"DVR_TIMESTAMP_POSY", "60"}, {"DVR_USER_STAMP_EN", "n"}});
    buildWithCamera();
    peer().applyStagedSettings();
    ASSERT_TRUE(settings().timestamp.enabled);
    ASSERT_EQ(0, settings().timestamp.fontSize);
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(0, drawn.result);
    expectDrawnOnlyInside(drawn, textBox(drawn.after, 100, 60, 3, kSomeTime), 100);
}

TEST_F(RecorderStamp, UserTextFromTheStampClientIsDrawnInsideItsBoxOnly) {
    buildWithCamera();
    useStamps(kOff, {true, 400, 500, QV_DVR_STAMP_FONT_SIZE_LARGE, kWhiteSelector, 1000});
    const android::sp<StampClient> client = subscribeStampClient("GATE 7 NORTH");
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(0, drawn.result);
    EXPECT_EQ(1, client->mAsked);
    EXPECT_EQ(mCamera->getID(), client->mAskedIndex);
    expectDrawnOnlyInside(drawn, textBox(drawn.after, 400, 500, 4, "GATE 7 NORTH"), 100);
}

TEST_F(RecorderStamp, UserTextIsAskedForOnEveryFrame) {
    buildWithCamera();
    useStamps(kOff, {true, 0, 0, QV_DVR_STAMP_FONT_SIZE_SMALL, kWhiteSelector, 60000});
    const android::sp<StampClient> client = subscribeStampClient("x");
    Frame frame;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, render(frame));
    }
    EXPECT_EQ(3, client->mAsked);
}

TEST_F(RecorderStamp, BothStampsAreDrawnInTheirBoxes) {
    buildWithCamera();
    useStamps({true, 20, 20, QV_DVR_STAMP_FONT_SIZE_SMALL, kWhiteSelector, 0},
              {true, 20, 900, QV_DVR_STAMP_FONT_SIZE_MEDIUM, kWhiteSelector, 0});
    subscribeStampClient("CAM A");
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(0, drawn.result);
    const Box timeBox = textBox(drawn.after, 20, 20, 2, kSomeTime);
    const Box userBox = textBox(drawn.after, 20, 900, 3, "CAM A");
    EXPECT_GT(comparePixels(drawn.before, drawn.after, {timeBox}).inside, 50);
    EXPECT_GT(comparePixels(drawn.before, drawn.after, {userBox}).inside, 50);
    EXPECT_EQ(0, comparePixels(drawn.before, drawn.after, {timeBox, userBox}).outside);
}

TEST_F(RecorderStamp, EmptyUserTextStillDrawsTheTimestampAndReportsMinusOne) {
    buildWithCamera();
    useStamps({true, 100, 60, QV_DVR_STAMP_FONT_SIZE_MEDIUM, kWhiteSelector, 0},
              {true, 400, 500, QV_DVR_STAMP_FONT_SIZE_LARGE, kWhiteSelector, 0});
    subscribeStampClient("");
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(-1, drawn.result);
    expectDrawnOnlyInside(drawn, textBox(drawn.after, 100, 60, 3, kSomeTime), 100);
}

TEST_F(RecorderStamp, UserStampWithoutAStampClientReportsMinusOne) {
    buildWithCamera();
    useStamps(kOff, {true, 400, 500, QV_DVR_STAMP_FONT_SIZE_LARGE, kWhiteSelector, 0});
    const Drawing drawn = renderOnBlack();
    EXPECT_EQ(-1, drawn.result);
    EXPECT_EQ(drawn.before.bytes(), drawn.after.bytes());
}

TEST_F(RecorderStamp, SnapshotWithoutACameraFails) {
    build();
    SnapshotPA_t snapshot{};
    EXPECT_EQ(DVR_FAILURE, mRecorder->takeSnapshot(snapshot));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "takeSnapshot", "Camera device not attached\n"));
}

TEST_F(RecorderStamp, SnapshotFailsWhenTheCameraGivesNoFrame) {
    buildWithCamera();
    DVRSimulatorControl::failVideoFrames(mCamera->getID(), 1, -5);
    SnapshotPA_t snapshot{};
    EXPECT_EQ(DVR_FAILURE, mRecorder->takeSnapshot(snapshot));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "takeSnapshot", "getVideoFrame failed: -5\n"));
}

TEST_F(RecorderStamp, SnapshotReturnsTheFramesAddressesGeometryAndTime) {
    buildWithCamera();
    useStamps(kOff, kOff);
    ASSERT_EQ(0, mCamera->start());
    SnapshotPA_t snapshot{};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->takeSnapshot(snapshot));
    EXPECT_NE(0u, snapshot.planePA[0]);
    EXPECT_NE(0u, snapshot.planePA[1]);
    EXPECT_EQ(kWidth, snapshot.width);
    EXPECT_EQ(kHeight, snapshot.height);
    EXPECT_EQ(kStride, snapshot.stride);
    SnapshotPA_t next{};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->takeSnapshot(next));
    EXPECT_GT(next.timestamp, snapshot.timestamp);
    mCamera->stop();
}

TEST_F(RecorderStamp, SnapshotWithAnEmptyUserTextStillSucceedsAfterItsErrorLine) {
    buildWithCamera();
    useStamps({true, 100, 60, QV_DVR_STAMP_FONT_SIZE_MEDIUM, kWhiteSelector, 0},
              {true, 400, 500, QV_DVR_STAMP_FONT_SIZE_LARGE, kWhiteSelector, 0});
    subscribeStampClient("");
    ASSERT_EQ(0, mCamera->start());
    SnapshotPA_t snapshot{};
    EXPECT_EQ(DVR_SUCCESS, mRecorder->takeSnapshot(snapshot));
    EXPECT_EQ(1u, serviceLogged(ANDROID_LOG_ERROR, "takeSnapshot", "_renderStamp() failed: -1"));
    mCamera->stop();
}

using RecorderStampDeathTest = RecorderStamp;

TEST_F(RecorderStampDeathTest, StampOnAFrameThatIsNotNV12Aborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    DVRSimCameraConfig camera = DVRSimulatorControl::config().cameras[0];
    camera.format = DVR_VIDEO_FORMAT_YUYV;
    buildWithCamera(camera);
    useStamps({true, 100, 60, QV_DVR_STAMP_FONT_SIZE_MEDIUM, kWhiteSelector, 0}, kOff);
    Frame frame;
    EXPECT_DEATH(render(frame),
                 "\\[format_translate:[0-9]+\\] Unsupport format: 0x2\n(.|\n)*"
                 "Assertion failed: videoFormat == DVR_VIDEO_FORMAT_NV12, file Recorder.cpp");
}

TEST_F(RecorderStampDeathTest, RenderingWithoutACameraAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    build();
    Frame frame;
    EXPECT_DEATH(render(frame), "Assertion failed: mCamera != NULL, file Recorder.cpp");
}

}  // namespace
