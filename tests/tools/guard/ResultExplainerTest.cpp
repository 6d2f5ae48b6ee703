// The meaning and likely cause of each result code, as dvrctl prints them.
#include <gtest/gtest.h>

#include "ResultExplainer.h"

using dvrguard::ResultExplainer;
using dvrguard::Situation;

namespace {

Situation onChannel(const std::string &operation, int state, const std::string &stateName) {
    Situation situation;
    situation.operation = operation;
    situation.encId = 100;
    situation.state = state;
    situation.stateName = stateName;
    situation.cameraAttached = true;
    return situation;
}

}  // namespace

TEST(ResultExplainer, EachDocumentedCodeHasItsMeaning) {
    EXPECT_EQ("success", ResultExplainer::meaning(0));
    EXPECT_EQ("not found, or the lower layer failed", ResultExplainer::meaning(-1));
    EXPECT_EQ("invalid argument", ResultExplainer::meaning(-2));
    EXPECT_EQ("not allowed in the current state or during suspend", ResultExplainer::meaning(-3));
    EXPECT_EQ("a code of the recorder or the device layer", ResultExplainer::meaning(-5));
}

TEST(ResultExplainer, StartOfAnIdleChannelAsksForANextFileName) {
    EXPECT_EQ(
        "-3: channel 100 is idle: give it a next file name (nextFile, autoNextFile or "
        "setFileNameFormat)",
        ResultExplainer::explain(-3, onChannel("startRecord", 1, "idle")));
}

TEST(ResultExplainer, StartOfAReadyChannelMeansSuspend) {
    EXPECT_EQ("-3: channel 100 is ready, so the service is suspended",
              ResultExplainer::explain(-3, onChannel("startRecord", 2, "ready")));
}

TEST(ResultExplainer, StopOfAChannelNotRecordingNamesItsState) {
    EXPECT_EQ("-3: channel 100 is not recording (it is idle)",
              ResultExplainer::explain(-3, onChannel("stopRecord", 1, "idle")));
}

TEST(ResultExplainer, UnknownChannelIsNamed) {
    Situation situation;
    situation.operation = "startRecord";
    situation.encId = 7;
    situation.channelKnown = false;
    EXPECT_EQ("-1: no channel has encoder id 7 (getEncoder lists them)",
              ResultExplainer::explain(-1, situation));
}

TEST(ResultExplainer, ForcedResolutionSaysTheLockIsHeld) {
    EXPECT_EQ(
        "-2: only 'default' (follow the camera) is accepted while a camera is attached; channel "
        "100's settings lock is now held: its setters hang until the service restarts",
        ResultExplainer::explain(-2, onChannel("setResolution", 1, "idle")));
}

TEST(ResultExplainer, FrameRateWithoutCameraAsksForOne) {
    Situation situation = onChannel("setFrameRate", 1, "idle");
    situation.cameraAttached = false;
    EXPECT_EQ("-1: channel 100 has no camera attached (attachCamera)",
              ResultExplainer::explain(-1, situation));
}

TEST(ResultExplainer, ARecordersOwnCodePointsToTheLog) {
    EXPECT_EQ("-7: a code of the recorder or the device layer: the service's log tells more",
              ResultExplainer::explain(-7, onChannel("startRecord", 2, "ready")));
}
