// Drives a simulated encoder the way the recording service does: it owns a
// camera and an audio input, answers need-data callbacks by fetching and
// pushing, gives next file names at roll-over, and records every callback.
#ifndef DVR_TEST_ENCODER_HARNESS_H
#define DVR_TEST_ENCODER_HARNESS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DVRAudioDevice.h"
#include "DVRCameraDevice.h"
#include "DVREncoderHAL.h"

struct EncoderEvent {
    std::string kind;  // "start", "finish", "fileFinish", "error", "needVideo", "needAudio"
    std::string file;
    int severity = 0;
    int code = 0;
};

class EncoderHarness {
public:
    // Encoder of channel index, camera 0 and audio input 0 of the simulator.
    explicit EncoderHarness(int index = 0);
    ~EncoderHarness();

    dvrspace::DVREncoderHAL *encoder() { return mEncoder; }
    dvrspace::DVRCameraDevice *camera() { return mCamera.get(); }
    // Settings for the attached camera: format, 2 Mbps, fps, -1 x -1, length.
    static dvrspace::RecordSettings_t settings(int format, int frameRate, int fileLength,
                                               bool audio = false, unsigned int rate = 16000);
    // configure + setFileName + start, devices started first (devicesAhead
    // before the encoder, as a service's slow start would).
    int record(const dvrspace::RecordSettings_t &settings, const std::string &firstFile,
               std::chrono::milliseconds devicesAhead = std::chrono::milliseconds(0));
    // prepareStop on the devices, encoder stop, devices stopped.
    int stop();

    // Names handed out at each file-finish, in order; none left: no name.
    void setNextNames(std::vector<std::string> names);
    // Pushes at most frames video frames (each logged as "pushedVideo"); later
    // requests get nothing, so a recording stops at a known frame however
    // late the test thread gets to stop it.
    void setFrameLimit(size_t frames);
    // The same for audio: at most chunks audio chunks are pushed.
    void setAudioChunkLimit(size_t chunks);
    // Runs inside the error callback (the service stops the encoder there).
    void onError(std::function<void()> action);

    std::vector<EncoderEvent> events();
    // The events without the need-data requests.
    std::vector<EncoderEvent> fileEvents();
    size_t count(const std::string &kind);
    // Waits until count(kind) >= n; false after the timeout.
    bool waitFor(const std::string &kind, size_t n,
                 std::chrono::milliseconds timeout = std::chrono::seconds(60));
    size_t framesPushed();
    size_t audioChunksPushed();

private:
    static void recordStart(int id, const char *file);
    static void recordFinish(int id, const char *file);
    static void fileFinish(int id, const char *file);
    static void needData(int id, dvrspace::ENCNeedDataType_e type);
    static void error(int id, dvrspace::DVRErrorServerity_e severity, int code);
    static EncoderHarness *find(int id);
    void add(EncoderEvent event);

    dvrspace::DVREncoderHAL *mEncoder = nullptr;
    std::unique_ptr<dvrspace::DVRCameraDevice> mCamera;
    std::unique_ptr<dvrspace::DVRAudioDevice> mAudio;
    int mAudioHandle = -1;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<EncoderEvent> mEvents;
    std::vector<std::string> mNextNames;
    std::function<void()> mOnError;
    size_t mFramesPushed = 0;
    size_t mFrameLimit = SIZE_MAX;
    size_t mAudioChunksPushed = 0;
    size_t mAudioChunkLimit = SIZE_MAX;
};

#endif  // DVR_TEST_ENCODER_HARNESS_H
