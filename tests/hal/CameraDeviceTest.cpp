#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "DVRCameraDeviceFactory.h"
#include "DVRTestPattern.h"
#include "SimulatorFixture.h"

using namespace dvrspace;

namespace {

class CameraDevice : public SimulatorFixture {
protected:
    std::unique_ptr<DVRCameraDevice> create(int index) {
        return std::unique_ptr<DVRCameraDevice>(
            DVRCameraDeviceFactory::getFactory()->createDevice(index));
    }

    struct Frame {
        void *va[2] = {nullptr, nullptr};
        uint32_t pa[2] = {0, 0};
        uint64_t stamp = 0;

        int grab(DVRCameraDevice &camera) { return camera.getVideoFrame(va, pa, &stamp); }
        // Frame number read back from the frame's own pixels.
        int64_t number() const {
            return DVRTestPattern::readFrameNumber(static_cast<const uint8_t *>(va[0]), 320, 240,
                                                   320);
        }
    };

    std::unique_ptr<DVRCameraDevice> started(int index) {
        auto camera = create(index);
        camera->start();
        return camera;
    }

    // A 1 fps camera whose second frame is awaited on another thread until
    // release() lets it go; returns that call's result and frame number.
    std::pair<int, int64_t> releaseWaitingReader(
        const std::function<void(DVRCameraDevice &)> &release) {
        setPacing(DVRSimPacing::RealTime, 1);
        auto camera = started(0);
        Frame frame;
        EXPECT_EQ(0, frame.grab(*camera));  // frame 0 is due at once
        int result = -100;
        std::thread reader([&] { result = frame.grab(*camera); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const auto released = std::chrono::steady_clock::now();
        release(*camera);
        reader.join();
        EXPECT_LT(std::chrono::steady_clock::now() - released, std::chrono::milliseconds(900));
        return {result, result == 0 ? frame.number() : -1};
    }

    void setPacing(DVRSimPacing pacing, int frameRate) {
        DVRSimConfig config = DVRSimulatorControl::config();
        config.pacing = pacing;
        config.cameras[0].frameRate = frameRate;
        DVRSimulatorControl::setConfig(config);
    }
};

}  // namespace

TEST_F(CameraDevice, FactoryCreatesTheConfiguredCamerasAndNullPastTheLast) {
    auto first = create(0);
    auto second = create(1);
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, second);
    EXPECT_EQ(10, first->getID());
    EXPECT_EQ(11, second->getID());
    EXPECT_EQ(nullptr, create(2));
    EXPECT_EQ(nullptr, create(-1));
    EXPECT_EQ(DVRCameraDeviceFactory::getFactory(), DVRCameraDeviceFactory::getFactory());
    EXPECT_STREQ("camera_server", DVRCameraDeviceFactory::getFactory()->getServiceName());
}

TEST_F(CameraDevice, BuiltInDefaultIsTwo1080pCamerasAt30Fps) {
    DVRSimulatorControl::reset();
    auto camera = create(0);
    ASSERT_NE(nullptr, camera);
    const DVRCameraCaps_t *caps = camera->getCaps();
    EXPECT_EQ(30, caps->frameRate);
    EXPECT_EQ(1920, caps->width);
    EXPECT_EQ(1080, caps->height);
    EXPECT_EQ(1920, caps->stride);
    EXPECT_EQ(DVR_VIDEO_FORMAT_NV12, caps->format);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_SIMULATED, camera->getDeviceType());
    EXPECT_NE(nullptr, create(1));
    EXPECT_EQ(nullptr, create(2));
}

TEST_F(CameraDevice, ConfiguredExceptionsAreThrownAtTheirIndex) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.cameras[0].createException = DVRSimCreateException::NotReady;
    config.cameras[1].createException = DVRSimCreateException::NumExceed;
    DVRSimulatorControl::setConfig(config);
    EXPECT_THROW(create(0), DeviceNotReadyException);
    try {
        create(1);
        FAIL() << "no exception";
    } catch (const DeviceNumExceedException &exception) {
        EXPECT_STREQ("camera 1 beyond the available cameras", exception.what());
    }
}

TEST_F(CameraDevice, DuplicateIdsAreServedAsConfigured) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.cameras[1].id = config.cameras[0].id;
    DVRSimulatorControl::setConfig(config);
    EXPECT_EQ(create(0)->getID(), create(1)->getID());
}

TEST_F(CameraDevice, NoFrameBeforeStartOrAfterStop) {
    auto camera = create(0);
    Frame frame;
    EXPECT_EQ(-1, frame.grab(*camera));
    camera->start();
    EXPECT_EQ(0, frame.grab(*camera));
    camera->stop();
    EXPECT_EQ(-1, frame.grab(*camera));
}

TEST_F(CameraDevice, FramesAreNv12InTheArenaWithTheirNumberDrawnIn) {
    auto camera = started(0);
    Frame frame;
    for (int64_t expected = 0; expected < 5; ++expected) {
        ASSERT_EQ(0, frame.grab(*camera));
        ASSERT_NE(nullptr, frame.va[0]);
        EXPECT_EQ(static_cast<uint8_t *>(frame.va[0]) + 320 * 240, frame.va[1]);
        EXPECT_EQ(frame.pa[0] + 320 * 240, frame.pa[1]);
        EXPECT_EQ(frame.va[0], DVRSimulatorControl::arena()->translate(frame.pa[0], 320 * 240));
        EXPECT_EQ(frame.va[1], DVRSimulatorControl::arena()->translate(frame.pa[1], 320 * 120));
        EXPECT_EQ(expected, frame.number());
    }
}

TEST_F(CameraDevice, AFrameStaysIntactWhileTheNextTwoAreCaptured) {
    auto camera = started(0);
    Frame first;
    Frame later;
    ASSERT_EQ(0, first.grab(*camera));
    ASSERT_EQ(0, later.grab(*camera));
    EXPECT_NE(first.pa[0], later.pa[0]);
    ASSERT_EQ(0, later.grab(*camera));
    EXPECT_NE(first.pa[0], later.pa[0]);
    EXPECT_EQ(0, first.number());
}

TEST_F(CameraDevice, RealTimePacingDeliversOneFramePerPeriod) {
    setPacing(DVRSimPacing::RealTime, 100);
    auto camera = started(0);
    Frame frame;
    uint64_t stamps[6] = {};
    const auto begin = std::chrono::steady_clock::now();
    for (uint64_t &stamp : stamps) {
        ASSERT_EQ(0, frame.grab(*camera));
        stamp = frame.stamp;
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    for (int index = 1; index < 6; ++index) {
        // A slow reader skips frames like a real sensor, but never gets one early.
        EXPECT_GE(stamps[index] - stamps[index - 1], 10000u);
        EXPECT_EQ(0u, (stamps[index] - stamps[0]) % 10000u);
    }
}

TEST_F(CameraDevice, FastPacingReturnsAtOnce) {
    setPacing(DVRSimPacing::Fast, 1);
    auto camera = started(0);
    Frame frame;
    const auto begin = std::chrono::steady_clock::now();
    for (int index = 0; index < 3; ++index) {
        ASSERT_EQ(0, frame.grab(*camera));
    }
    // Three frames at 1 fps would take two seconds in real time.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
}

TEST_F(CameraDevice, PrepareStopReleasesAWaitingCallerWithAFrame) {
    const auto released =
        releaseWaitingReader([](DVRCameraDevice &camera) { camera.prepareStop(); });
    EXPECT_EQ(0, released.first);
    EXPECT_EQ(1, released.second);
}

TEST_F(CameraDevice, StopReleasesAWaitingCallerWithAnError) {
    const auto released = releaseWaitingReader([](DVRCameraDevice &camera) { camera.stop(); });
    EXPECT_EQ(-1, released.first);
}

TEST_F(CameraDevice, SuspendedCameraDeliversNothingUntilResumed) {
    auto camera = started(0);
    Frame frame;
    EXPECT_EQ(0, camera->suspend());
    EXPECT_EQ(-1, frame.grab(*camera));
    EXPECT_EQ(0, camera->resume());
    EXPECT_EQ(0, frame.grab(*camera));
}

TEST_F(CameraDevice, ForcedSuspendAndResumeResultsIncludingRecoverable) {
    auto camera = create(0);
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Suspend, -1);
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Resume, 1);
    EXPECT_EQ(-1, camera->suspend());
    EXPECT_EQ(1, camera->resume());
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Resume, -1);
    EXPECT_EQ(-1, camera->resume());
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Suspend, 0);
    DVRSimulatorControl::setCameraResult(10, DVRSimDeviceOp::Resume, 0);
    EXPECT_EQ(0, camera->suspend());
    EXPECT_EQ(0, camera->resume());
    EXPECT_EQ(0, create(1)->suspend());  // other cameras unaffected
}

TEST_F(CameraDevice, InjectedFrameFailuresComeNTimesThenFramesAgain) {
    auto camera = started(0);
    Frame frame;
    DVRSimulatorControl::failVideoFrames(10, 2, -5);
    EXPECT_EQ(-5, frame.grab(*camera));
    EXPECT_EQ(-5, frame.grab(*camera));
    EXPECT_EQ(0, frame.grab(*camera));
    EXPECT_NE(nullptr, frame.va[0]);
    EXPECT_EQ(0, frame.number());
}

TEST_F(CameraDevice, InjectedNothingReturnsSuccessWithoutAFrame) {
    auto camera = started(0);
    Frame frame;
    frame.pa[0] = frame.pa[1] = 1;
    DVRSimulatorControl::failVideoFrames(10, 1, 0);
    EXPECT_EQ(0, frame.grab(*camera));
    EXPECT_EQ(nullptr, frame.va[0]);
    EXPECT_EQ(0u, frame.pa[0]);
    EXPECT_EQ(0, frame.grab(*camera));
    EXPECT_NE(nullptr, frame.va[0]);
}

TEST_F(CameraDevice, CameraSourcesAreRecordedAndABadCountIsRefused) {
    DVRCameraDeviceFactory *factory = DVRCameraDeviceFactory::getFactory();
    EXPECT_EQ(0, factory->setCameraSources(2, {3, 1, 7}));
    EXPECT_EQ((std::vector<int>{3, 1}), DVRSimulatorControl::cameraSources());
    EXPECT_EQ(-22, factory->setCameraSources(4, {3, 1}));
    EXPECT_EQ((std::vector<int>{3, 1}), DVRSimulatorControl::cameraSources());
}

TEST_F(CameraDevice, FullArenaGivesNoCamera) {
    // Each process has one arena, sized at its first use: this test fixes it small.
    DVRSimConfig config = DVRSimulatorControl::config();
    config.arenaBytes = 1 << 20;
    DVRSimulatorControl::setConfig(config);
    ASSERT_NE(nullptr, DVRSimulatorControl::arena());
    auto first = create(0);  // 4 x 115200 bytes
    EXPECT_NE(nullptr, first);
    EXPECT_NE(nullptr, create(1));
    config.cameras[0].width = config.cameras[0].stride = 640;
    config.cameras[0].height = 480;
    DVRSimulatorControl::setConfig(config);
    EXPECT_EQ(nullptr, create(0));
}
