// Control of the device simulator for tests and demos: its configuration,
// its pacing, its shared memory, and the faults it can be told to produce so
// that every failure the service must survive can be provoked on purpose.
//
// All functions may be called from any thread. Configuration changes apply
// to devices and encoders created afterwards (pacing applies at once); faults
// apply at once, also to devices that exist already. Devices are addressed by
// their ids (getID(), DVREncoderHAL::mId), not by index.
#ifndef DVR_SIMULATOR_CONTROL_H
#define DVR_SIMULATOR_CONTROL_H

#include <string>
#include <vector>

#include "DVRPhysicalArena.h"
#include "DVRSimConfig.h"

namespace dvrspace {

// Device operations whose result can be forced.
enum class DVRSimDeviceOp { Suspend, Resume };

// Encoder operations whose result can be forced.
enum class DVRSimEncoderOp { Configure, Start, SetFileName, Stop, Suspend, Resume };

// The callback an encoder issues after its stop() has returned.
enum class DVRSimLateCallback { NeedVideo, NeedAudio, FileFinish, RecordFinish };

class DVRSimulatorControl {
public:
    // Back to the configuration of DVR_SIM_CONFIG (or the built-in default when
    // it is unset or unreadable) and no faults.
    static void reset();
    static DVRSimConfig config();
    static void setConfig(const DVRSimConfig &config);
    // Replaces the configuration with the JSON text; false with *error set and
    // nothing changed when it is malformed.
    static bool loadConfigText(const std::string &json, std::string *error);
    static void setPacing(DVRSimPacing pacing);

    // The process-wide simulated physical memory that camera frames live in,
    // made at first use; null when its file cannot be made.
    static DVRPhysicalArena *arena();

    // The sources last selected through DVRCameraDeviceFactory::setCameraSources.
    static std::vector<int> cameraSources();

    // The camera's next count getVideoFrame() calls fail: a non-zero result is
    // returned as it is; 0 returns 0 with null frame addresses ("nothing").
    static void failVideoFrames(int cameraId, int count, int result);
    // The audio input's next count getAudioData() calls fail: a negative result
    // is returned as it is; 0 returns 0 with length 0 ("nothing yet").
    static void failAudioData(int audioId, int count, int result);
    // Forces the result of a camera's or audio input's suspend()/resume() until
    // set back to 0 (1 is the recoverable value of resume()).
    static void setCameraResult(int cameraId, DVRSimDeviceOp op, int result);
    static void setAudioResult(int audioId, DVRSimDeviceOp op, int result);
    // Forces the result of an encoder operation until set back to 0. A forced
    // stop() still stops; the others fail without doing anything.
    static void setEncoderResult(int encoderId, DVRSimEncoderOp op, int result);
    // The encoder's isPlaying() answers 0 even while it encodes.
    static void setEncoderNeverPlaying(int encoderId, bool neverPlaying);
    // Once the encoder has asked for its frameIndex-th video frame (counted
    // from 1 at each start), it calls the error callback with severity and
    // code; a recording then goes on until stop(). Severity is passed through
    // unchecked, so invalid values can be provoked too.
    static void injectEncoderError(int encoderId, int frameIndex, int severity, int code);
    // After the encoder's next stop() returns, it issues the callback kind once
    // more, delayMs later, from its own thread.
    static void injectLateCallback(int encoderId, DVRSimLateCallback kind, int delayMs);
    // Starves the encoder the way a loaded machine does: after every
    // everyFrames-th video frame it asks for, its thread stalls for delayMs
    // (real-time pacing), so the camera's frames of that time never reach
    // the file. everyFrames or delayMs 0 ends it.
    static void starveEncoder(int encoderId, int everyFrames, int delayMs);
};

}  // namespace dvrspace

#endif  // DVR_SIMULATOR_CONTROL_H
