// Base fixture of the simulator tests: a fresh simulator configuration with
// small, fast devices, so recordings take milliseconds instead of seconds.
#ifndef DVR_TEST_SIMULATOR_FIXTURE_H
#define DVR_TEST_SIMULATOR_FIXTURE_H

#include <gtest/gtest.h>

#include "DVRSimulatorControl.h"

class SimulatorFixture : public testing::Test {
protected:
    void SetUp() override {
        dvrspace::DVRSimulatorControl::reset();
        dvrspace::DVRSimConfig config = dvrspace::DVRSimulatorControl::config();
        config.pacing = dvrspace::DVRSimPacing::Fast;
        for (auto &camera : config.cameras) {
            camera.width = 320;
            camera.height = 240;
            camera.stride = 320;
        }
        dvrspace::DVRSimulatorControl::setConfig(config);
    }
    void TearDown() override { dvrspace::DVRSimulatorControl::reset(); }
};

#endif  // DVR_TEST_SIMULATOR_FIXTURE_H
