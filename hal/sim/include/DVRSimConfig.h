// What the device simulator simulates: its cameras, audio inputs and encoders.
// Filled from the JSON file named by DVR_SIM_CONFIG (see docs/hal.md for the
// keys), or the built-in default of two 1920x1080 30 fps cameras and one audio
// input; tests change it through DVRSimulatorControl.
#ifndef DVR_SIM_CONFIG_H
#define DVR_SIM_CONFIG_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "DVRTypes.h"
#include "EncoderCapability.h"

namespace dvrspace {

// How devices and encoders are paced: at their real rates, or as fast as the
// consumer asks (tests).
enum class DVRSimPacing { RealTime, Fast };

// What DVRCameraDeviceFactory::createDevice throws for a camera.
enum class DVRSimCreateException { None, NotReady, NumExceed };

struct DVRSimCameraConfig {
    int id = 0;
    QVDVRDeviceType_e type = QV_DVR_DEVICE_TYPE_SIMULATED;
    int frameRate = 30;
    int width = 1920;
    int height = 1080;
    int stride = 1920;  // bytes per line, at least width
    int format = DVR_VIDEO_FORMAT_NV12;
    int buffers = 4;  // frame ring, at least 3
    DVRSimCreateException createException = DVRSimCreateException::None;
    // What suspend() and resume() answer unless a test forces another result:
    // a rehearsal of a device that fails a system suspend, for a whole process.
    int suspendResult = 0;
    int resumeResult = 0;
};

struct DVRSimAudioConfig {
    int id = 0;
    int channels = 1;
    int bitsPerSample = 16;
    std::set<unsigned int> samplingRates{8000, 16000, 32000, 44100, 48000};
    unsigned int samplingRate = 16000;  // current rate after creation
    int chunkMs = 20;                   // duration of one chunk
    int toneHz = 440;
    // How far behind the capture a reader may fall before it loses chunks.
    int bufferMs = 2000;
    // A time mark in the sound: the tone pauses for the first chunk of every
    // markSeconds of capture, so a test can find capture times in the
    // decoded audio and compare them with the frame numbers in the pictures.
    // 0: an unbroken tone.
    int markSeconds = 0;
    int suspendResult = 0;  // as for cameras
    int resumeResult = 0;
};

struct DVREncoderSimConfig {
    std::vector<int> ids{100, 101};  // id of the encoder of each channel index
    std::set<unsigned int> samplingRates{8000, 16000, 22050, 32000, 44100, 48000};
    // Deliberately above the service's system limits (1920x1080, 25 Mbps) so its
    // corrections run.
    EncoderCapability_t capability{255, 3840, 2160, 3600, 1, 40, 1, 60, 1};
    std::string preset = "ultrafast";
    std::string tune = "zerolatency";
    int threads = 1;        // x264 threads per encoder
    int audioChannels = 1;  // channels of the 16-bit PCM that pushAudioData receives
    int audioChunkMs = 20;  // one audio request per this many milliseconds
    int keyFrameSeconds = 1;
};

struct DVRSimConfig {
    DVRSimPacing pacing = DVRSimPacing::RealTime;
    std::vector<DVRSimCameraConfig> cameras;
    std::vector<DVRSimAudioConfig> audioInputs;
    DVREncoderSimConfig encoder;
    std::string arenaPath;  // empty: DVRPhysicalArena::defaultPath()
    size_t arenaBytes = 64u << 20;
    std::string encoderServiceName = "es_server";
    std::string cameraServiceName = "camera_server";
    std::string audioServiceName = "audio_server";

    // Two cameras (ids 10 and 11) and one audio input (id 20), encoders 100 and 101.
    static DVRSimConfig builtInDefault();
    // Reads JSON text over the built-in default: keys present replace defaults.
    // False with *error set (and *config untouched) for malformed text or values.
    static bool fromJson(const std::string &text, DVRSimConfig *config, std::string *error);
};

}  // namespace dvrspace

#endif  // DVR_SIM_CONFIG_H
