// A recorder on the simulated devices, built when the test has prepared its
// configuration, and taken apart again in the required order.
#ifndef DVR_TEST_RECORDER_FIXTURE_H
#define DVR_TEST_RECORDER_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "DVR.h"
#include "DVRSimulatorControl.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"

namespace dvrtest {

// The first simulated encoder's id, which the recorder of channel 0 takes.
constexpr int kEncoderId = 100;

class RecorderFixture : public ::testing::Test {
protected:
    // The service detaches the devices and deletes them with its recorders.
    void TearDown() override { mService.clear(); }

    // The whole service on the simulated devices, with one recorder per
    // camera; the test works on the recorder of channel 0.
    void build(size_t cameras = 1) {
        dvrspace::DVRSimConfig sim = dvrspace::DVRSimulatorControl::config();
        sim.cameras.resize(cameras);
        dvrspace::DVRSimulatorControl::setConfig(sim);
        mService = new dvrspace::DVR();
        mRecorder = dvrspace::DVRPeer::recorder(*mService, 0);
    }
    // build() with one camera, the simulator's first as configured or the
    // given one, attached to the recorder of channel 0.
    void buildWithCamera() {
        build();
        attachCamera();
    }
    void buildWithCamera(const dvrspace::DVRSimCameraConfig &camera) {
        dvrspace::DVRSimConfig sim = dvrspace::DVRSimulatorControl::config();
        sim.cameras = {camera};
        dvrspace::DVRSimulatorControl::setConfig(sim);
        buildWithCamera();
    }
    void attachCamera() {
        mCamera = dvrspace::DVRPeer::camera(*mService, 0);
        ASSERT_NE(nullptr, mCamera);
        mRecorder->attachCamera(mCamera);
    }
    // Destroys the recorder of channel 0 as it stands (devices attached or not).
    void destroyRecorder() {
        delete dvrspace::DVRPeer::takeRecorder(*mService, 0);
        mRecorder = nullptr;
    }
    dvrspace::RecordSettings_t settings() {
        dvrspace::RecordSettings_t copy;
        mRecorder->getCurrentSettings(&copy);
        return copy;
    }
    dvrspace::RecorderPeer peer() { return dvrspace::RecorderPeer(*mRecorder); }

    // Line counts with the function name and the exact text after it; rec()
    // puts the encoder-id part of recorder lines in front of a text.
    size_t logged(int priority, const std::string &function, const std::string &rest) const {
        return countLogged(mCapture, priority, "DVRRecorder", function, rest);
    }
    static std::string rec(const std::string &text, int id = kEncoderId) {
        return " [" + std::to_string(id) + "] " + text;
    }

    RecorderTestEnv mEnv;
    LogCapture mCapture;
    // Reference counted, like every service object.
    android::sp<dvrspace::DVR> mService;
    dvrspace::Recorder *mRecorder = nullptr;
    dvrspace::DVRCameraDevice *mCamera = nullptr;
};

}  // namespace dvrtest

#endif  // DVR_TEST_RECORDER_FIXTURE_H
