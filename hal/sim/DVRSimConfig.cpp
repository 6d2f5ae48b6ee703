#include "DVRSimConfig.h"

#include <nlohmann/json.hpp>

namespace dvrspace {

namespace {

using nlohmann::json;

// Reads key into value when present; throws json::exception on a wrong type.
template <typename T>
void readOptional(const json &object, const char *key, T *value) {
    auto found = object.find(key);
    if (found != object.end()) {
        *value = found->get<T>();
    }
}

void require(bool condition, const std::string &message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

DVRSimCameraConfig readCamera(const json &object, int index) {
    DVRSimCameraConfig camera;
    camera.id = 10 + index;
    require(object.is_object(), "cameras[" + std::to_string(index) + "] is not an object");
    readOptional(object, "id", &camera.id);
    int type = camera.type;
    readOptional(object, "type", &type);
    camera.type = static_cast<QVDVRDeviceType_e>(type);
    readOptional(object, "frameRate", &camera.frameRate);
    readOptional(object, "width", &camera.width);
    readOptional(object, "height", &camera.height);
    camera.stride = camera.width;
    readOptional(object, "stride", &camera.stride);
    readOptional(object, "format", &camera.format);
    readOptional(object, "buffers", &camera.buffers);
    readOptional(object, "suspendResult", &camera.suspendResult);
    readOptional(object, "resumeResult", &camera.resumeResult);
    std::string exception = "none";
    readOptional(object, "createException", &exception);
    const std::string where = "cameras[" + std::to_string(index) + "]";
    require(camera.frameRate > 0, where + ".frameRate must be positive");
    require(
        camera.width > 0 && camera.height > 0 && camera.width % 2 == 0 && camera.height % 2 == 0,
        where + ": width and height must be positive and even");
    require(camera.stride >= camera.width, where + ".stride must be at least the width");
    require(camera.buffers >= 3, where + ".buffers must be at least 3");
    if (exception == "notReady") {
        camera.createException = DVRSimCreateException::NotReady;
    } else if (exception == "numExceed") {
        camera.createException = DVRSimCreateException::NumExceed;
    } else {
        require(exception == "none",
                where + ".createException must be none, notReady or numExceed");
    }
    return camera;
}

DVRSimAudioConfig readAudio(const json &object, int index) {
    DVRSimAudioConfig audio;
    audio.id = 20 + index;
    const std::string where = "audioInputs[" + std::to_string(index) + "]";
    require(object.is_object(), where + " is not an object");
    readOptional(object, "id", &audio.id);
    readOptional(object, "channels", &audio.channels);
    readOptional(object, "bitsPerSample", &audio.bitsPerSample);
    readOptional(object, "samplingRates", &audio.samplingRates);
    if (object.contains("samplingRates") && !object.contains("samplingRate") &&
        !audio.samplingRates.empty()) {
        audio.samplingRate = *audio.samplingRates.begin();
    }
    readOptional(object, "samplingRate", &audio.samplingRate);
    readOptional(object, "chunkMs", &audio.chunkMs);
    readOptional(object, "toneHz", &audio.toneHz);
    readOptional(object, "bufferMs", &audio.bufferMs);
    readOptional(object, "markSeconds", &audio.markSeconds);
    readOptional(object, "suspendResult", &audio.suspendResult);
    readOptional(object, "resumeResult", &audio.resumeResult);
    require(audio.channels == 1 || audio.channels == 2, where + ".channels must be 1 or 2");
    require(audio.bitsPerSample == 16, where + ".bitsPerSample must be 16");
    require(!audio.samplingRates.empty() && audio.samplingRates.count(0) == 0,
            where + ".samplingRates must hold positive rates");
    require(audio.samplingRates.count(audio.samplingRate) == 1,
            where + ".samplingRate must be one of samplingRates");
    require(audio.chunkMs > 0 && audio.chunkMs <= 1000, where + ".chunkMs must be 1 to 1000");
    require(audio.bufferMs >= audio.chunkMs && audio.bufferMs <= 60000,
            where + ".bufferMs must be chunkMs to 60000");
    require(audio.markSeconds >= 0 && audio.markSeconds <= 3600 &&
                (audio.markSeconds == 0 || 1000 % audio.chunkMs == 0),
            where + ".markSeconds must be 0 to 3600, with a chunkMs that divides a second");
    return audio;
}

void readEncoder(const json &object, DVREncoderSimConfig *encoder) {
    require(object.is_object(), "encoder is not an object");
    readOptional(object, "ids", &encoder->ids);
    readOptional(object, "samplingRates", &encoder->samplingRates);
    readOptional(object, "preset", &encoder->preset);
    readOptional(object, "tune", &encoder->tune);
    readOptional(object, "threads", &encoder->threads);
    readOptional(object, "audioChannels", &encoder->audioChannels);
    readOptional(object, "keyFrameSeconds", &encoder->keyFrameSeconds);
    readOptional(object, "audioChunkMs", &encoder->audioChunkMs);
    auto capability = object.find("capability");
    if (capability != object.end()) {
        require(capability->is_object(), "encoder.capability is not an object");
        EncoderCapability_t &caps = encoder->capability;
        readOptional(*capability, "fileNameLengthLimit", &caps.file_name_length_limit);
        readOptional(*capability, "maxWidth", &caps.max_width);
        readOptional(*capability, "maxHeight", &caps.max_height);
        readOptional(*capability, "maxFileLength", &caps.max_file_length);
        readOptional(*capability, "minFileLength", &caps.min_file_length);
        readOptional(*capability, "maxBitRate", &caps.max_bit_rate);
        readOptional(*capability, "minBitRate", &caps.min_bit_rate);
        readOptional(*capability, "maxFrameRate", &caps.max_frame_rate);
        readOptional(*capability, "minFrameRate", &caps.min_frame_rate);
    }
    require(encoder->threads >= 0, "encoder.threads must not be negative");
    require(encoder->audioChannels == 1 || encoder->audioChannels == 2,
            "encoder.audioChannels must be 1 or 2");
    require(encoder->audioChunkMs > 0 && encoder->audioChunkMs <= 1000,
            "encoder.audioChunkMs must be 1 to 1000");
    require(encoder->keyFrameSeconds > 0, "encoder.keyFrameSeconds must be positive");
}

}  // namespace

DVRSimConfig DVRSimConfig::builtInDefault() {
    DVRSimConfig config;
    for (int index = 0; index < 2; ++index) {
        DVRSimCameraConfig camera;
        camera.id = 10 + index;
        config.cameras.push_back(camera);
    }
    DVRSimAudioConfig audio;
    audio.id = 20;
    config.audioInputs.push_back(audio);
    return config;
}

bool DVRSimConfig::fromJson(const std::string &text, DVRSimConfig *config, std::string *error) {
    try {
        const json root = json::parse(text);
        require(root.is_object(), "the configuration is not a JSON object");
        DVRSimConfig result = builtInDefault();
        std::string pacing = "realtime";
        readOptional(root, "pacing", &pacing);
        require(pacing == "realtime" || pacing == "fast", "pacing must be realtime or fast");
        result.pacing = pacing == "fast" ? DVRSimPacing::Fast : DVRSimPacing::RealTime;
        auto cameras = root.find("cameras");
        if (cameras != root.end()) {
            require(cameras->is_array(), "cameras is not an array");
            result.cameras.clear();
            for (size_t index = 0; index < cameras->size(); ++index) {
                result.cameras.push_back(readCamera((*cameras)[index], static_cast<int>(index)));
            }
        }
        auto audioInputs = root.find("audioInputs");
        if (audioInputs != root.end()) {
            require(audioInputs->is_array(), "audioInputs is not an array");
            result.audioInputs.clear();
            for (size_t index = 0; index < audioInputs->size(); ++index) {
                result.audioInputs.push_back(
                    readAudio((*audioInputs)[index], static_cast<int>(index)));
            }
        }
        auto encoder = root.find("encoder");
        if (encoder != root.end()) {
            readEncoder(*encoder, &result.encoder);
        }
        auto arena = root.find("arena");
        if (arena != root.end()) {
            require(arena->is_object(), "arena is not an object");
            readOptional(*arena, "path", &result.arenaPath);
            readOptional(*arena, "bytes", &result.arenaBytes);
        }
        auto names = root.find("serviceNames");
        if (names != root.end()) {
            require(names->is_object(), "serviceNames is not an object");
            readOptional(*names, "encoder", &result.encoderServiceName);
            readOptional(*names, "camera", &result.cameraServiceName);
            readOptional(*names, "audio", &result.audioServiceName);
        }
        *config = result;
        return true;
    } catch (const std::exception &failure) {
        *error = failure.what();
        return false;
    }
}

}  // namespace dvrspace
