#include "DVRSimulatorControl.h"

#include "DVRSimulator.h"

namespace dvrspace {

void DVRSimulatorControl::reset() {
    DVRSimulator::instance().reset();
}

DVRSimConfig DVRSimulatorControl::config() {
    return DVRSimulator::instance().config();
}

void DVRSimulatorControl::setConfig(const DVRSimConfig &config) {
    DVRSimulator::instance().setConfig(config);
}

bool DVRSimulatorControl::loadConfigText(const std::string &json, std::string *error) {
    DVRSimConfig config;
    if (!DVRSimConfig::fromJson(json, &config, error)) {
        return false;
    }
    DVRSimulator::instance().setConfig(config);
    return true;
}

void DVRSimulatorControl::setPacing(DVRSimPacing pacing) {
    DVRSimulator::instance().setPacing(pacing);
}

DVRPhysicalArena *DVRSimulatorControl::arena() {
    return DVRSimulator::instance().arena();
}

std::vector<int> DVRSimulatorControl::cameraSources() {
    return DVRSimulator::instance().cameraSources();
}

void DVRSimulatorControl::failVideoFrames(int cameraId, int count, int result) {
    DVRSimulator::instance().failVideoFrames(cameraId, count, result);
}

void DVRSimulatorControl::failAudioData(int audioId, int count, int result) {
    DVRSimulator::instance().failAudioData(audioId, count, result);
}

void DVRSimulatorControl::setCameraResult(int cameraId, DVRSimDeviceOp op, int result) {
    DVRSimulator::instance().setCameraResult(cameraId, op, result);
}

void DVRSimulatorControl::setAudioResult(int audioId, DVRSimDeviceOp op, int result) {
    DVRSimulator::instance().setAudioResult(audioId, op, result);
}

void DVRSimulatorControl::setEncoderResult(int encoderId, DVRSimEncoderOp op, int result) {
    DVRSimulator::instance().setEncoderResult(encoderId, op, result);
}

void DVRSimulatorControl::setEncoderNeverPlaying(int encoderId, bool neverPlaying) {
    DVRSimulator::instance().setEncoderNeverPlaying(encoderId, neverPlaying);
}

void DVRSimulatorControl::injectEncoderError(int encoderId, int frameIndex, int severity,
                                             int code) {
    DVRSimulator::instance().injectEncoderError(encoderId, frameIndex, severity, code);
}

void DVRSimulatorControl::injectLateCallback(int encoderId, DVRSimLateCallback kind, int delayMs) {
    DVRSimulator::instance().injectLateCallback(encoderId, kind, delayMs);
}

void DVRSimulatorControl::starveEncoder(int encoderId, int everyFrames, int delayMs) {
    DVRSimulator::instance().starveEncoder(encoderId, everyFrames, delayMs);
}

}  // namespace dvrspace
