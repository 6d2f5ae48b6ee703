#include "ResultExplainer.h"

namespace dvrguard {

namespace {

constexpr int kIdle = 1;
constexpr int kReady = 2;
constexpr int kRecording = 3;
constexpr int kStopping = 4;

std::string channel(const Situation &situation) {
    return situation.encId ? "channel " + std::to_string(*situation.encId) : "the channel";
}

bool is(const Situation &situation, const char *operation) {
    return situation.operation == operation;
}

std::string notFound(const Situation &situation) {
    if (situation.encId && !situation.channelKnown) {
        return "no channel has encoder id " + std::to_string(*situation.encId) +
               " (getEncoder lists them)";
    }
    if (situation.cameraAttached == false &&
        (is(situation, "setFrameRate") || is(situation, "setResolution") ||
         is(situation, "takeSnapshot") || is(situation, "snapshot"))) {
        return channel(situation) + " has no camera attached (attachCamera)";
    }
    if (is(situation, "attachCamera") || is(situation, "getCameraCapability")) {
        return "no camera has that id (getCamera lists them)";
    }
    if (is(situation, "attachAudio") || is(situation, "getAudioCapability") ||
        is(situation, "setSamplingRate")) {
        return "no audio input has that id (getAudio lists them)";
    }
    if (is(situation, "destroyCallback")) {
        return "no client with that pid is attached";
    }
    if (is(situation, "getResolution") && situation.channelKnown) {
        return channel(situation) +
               "'s size is none of 1080p, 720p and 480p: it follows its camera "
               "(getCameraCapability)";
    }
    if (is(situation, "getAttachedCamera")) {
        return channel(situation) + " has no camera attached";
    }
    if (is(situation, "getAttachedAudio")) {
        return channel(situation) + " has no audio input attached";
    }
    return "not found, or the lower layer failed: the service's log tells which";
}

std::string invalidArgument(const Situation &situation) {
    if (is(situation, "setResolution")) {
        if (situation.cameraAttached == true) {
            return "only 'default' (follow the camera) is accepted while a camera is attached; " +
                   channel(situation) +
                   "'s settings lock is now held: its setters hang until the service restarts";
        }
        return "RESOLUTION must be 0 to 3 (default, 1080p, 720p, 480p)";
    }
    if (is(situation, "setBitRate")) {
        return "outside the encoder's bit-rate range (getEncoderCapability)";
    }
    if (is(situation, "setFrameRate")) {
        return "outside the encoder's frame-rate range or above the camera's "
               "(getEncoderCapability, getCameraCapability)";
    }
    if (is(situation, "setFileLength")) {
        return "outside the encoder's file-length range (getEncoderCapability)";
    }
    if (is(situation, "setOutputFormat")) {
        return "FORMAT must be avi (0) or ts (1)";
    }
    if (is(situation, "nextFile")) {
        return "the name is missing, empty, or not shorter than the encoder's file-name limit "
               "(getEncoderCapability)";
    }
    if (is(situation, "setStoragePath")) {
        return "the path is not shorter than the encoder's file-name limit (getEncoderCapability)";
    }
    if (is(situation, "setSamplingRate")) {
        return "the rate is not one getSupportSamplingRate lists, or the audio input refused it";
    }
    if (is(situation, "getCamera") || is(situation, "getAudio") || is(situation, "getEncoder")) {
        return "INDEX is outside the table (getCameraCount, getAudioCount, getRecorderCount)";
    }
    return "a value was rejected: the service's log tells which";
}

std::string notAllowed(const Situation &situation) {
    if (is(situation, "setCameraSources")) {
        return "a channel is recording or stopping: stop it first (stopRecordAll)";
    }
    if (is(situation, "startRecordAll")) {
        return "a channel is not ready (idle, already recording, or the service is suspended): "
               "see status";
    }
    if (!situation.state) {
        return "not allowed in the channel's state, or during suspend";
    }
    const std::string state = situation.stateName;
    if (is(situation, "startRecord")) {
        switch (*situation.state) {
            case kIdle:
                return channel(situation) +
                       " is idle: give it a next file name (nextFile, autoNextFile or "
                       "setFileNameFormat)";
            case kReady:
                return channel(situation) + " is ready, so the service is suspended";
            case kRecording:
                return channel(situation) + " is already recording";
            case kStopping:
                return channel(situation) + " is still stopping";
            default:
                break;
        }
    }
    if (is(situation, "stopRecord")) {
        return channel(situation) + " is not recording (it is " + state + ")";
    }
    return "not allowed while " + channel(situation) + " is " + state + ", or during suspend";
}

}  // namespace

std::string ResultExplainer::meaning(int code) {
    switch (code) {
        case 0:
            return "success";
        case -1:
            return "not found, or the lower layer failed";
        case -2:
            return "invalid argument";
        case -3:
            return "not allowed in the current state or during suspend";
        default:
            return code < 0 ? "a code of the recorder or the device layer" : "a value";
    }
}

std::string ResultExplainer::cause(int code, const Situation &situation) {
    switch (code) {
        case -1:
            return notFound(situation);
        case -2:
            return invalidArgument(situation);
        case -3:
            return notAllowed(situation);
        default:
            return meaning(code) + ": the service's log tells more";
    }
}

std::string ResultExplainer::explain(int code, const Situation &situation) {
    return std::to_string(code) + ": " + cause(code, situation);
}

}  // namespace dvrguard
