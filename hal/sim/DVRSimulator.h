// The simulator's process-wide state: configuration, shared memory and the
// faults DVRSimulatorControl arms. Devices and encoders consult it on every
// operation that a fault can affect. Any thread.
#ifndef DVR_SIMULATOR_H
#define DVR_SIMULATOR_H

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DVRPhysicalArena.h"
#include "DVRSimConfig.h"
#include "DVRSimulatorControl.h"

namespace dvrspace {

class DVRSimulator {
public:
    struct EncoderError {
        int frameIndex;
        int severity;
        int code;
    };
    struct LateCallback {
        DVRSimLateCallback kind;
        int delayMs;
    };
    struct Starvation {
        int everyFrames = 0;  // 0: not starved
        int delayMs = 0;
    };

    static DVRSimulator &instance();

    // Whether the calling thread is inside an encoder's need-data callback:
    // set by the encoder around it, read by the cameras to tell the
    // encoder's reads from other readers (a snapshot).
    static void setInsideNeedData(bool inside);
    static bool insideNeedData();

    void reset();
    DVRSimConfig config();
    void setConfig(const DVRSimConfig &config);
    DVRSimPacing pacing() const { return mPacing.load(); }
    void setPacing(DVRSimPacing pacing) { mPacing.store(pacing); }
    DVRPhysicalArena *arena();
    // A pointer to text equal to name that stays valid for the process's life.
    const char *intern(const std::string &name);

    void setCameraSources(const std::vector<int> &sources);
    std::vector<int> cameraSources();

    void failVideoFrames(int cameraId, int count, int result);
    void failAudioData(int audioId, int count, int result);
    // True and *result set when a fault armed for the device is due now.
    bool takeVideoFault(int cameraId, int *result);
    bool takeAudioFault(int audioId, int *result);

    void setCameraResult(int cameraId, DVRSimDeviceOp op, int result);
    void setAudioResult(int audioId, DVRSimDeviceOp op, int result);
    void setEncoderResult(int encoderId, DVRSimEncoderOp op, int result);
    int cameraResult(int cameraId, DVRSimDeviceOp op);
    int audioResult(int audioId, DVRSimDeviceOp op);
    int encoderResult(int encoderId, DVRSimEncoderOp op);

    void setEncoderNeverPlaying(int encoderId, bool neverPlaying);
    bool encoderNeverPlaying(int encoderId);
    void injectEncoderError(int encoderId, int frameIndex, int severity, int code);
    // The armed error of the encoder when frameIndex reaches its frame; one-shot.
    bool takeEncoderError(int encoderId, int frameIndex, EncoderError *error);
    void injectLateCallback(int encoderId, DVRSimLateCallback kind, int delayMs);
    bool takeLateCallback(int encoderId, LateCallback *callback);
    void starveEncoder(int encoderId, int everyFrames, int delayMs);
    Starvation starvation(int encoderId);

private:
    struct CountedFault {
        int remaining;
        int result;
    };

    DVRSimulator();
    static bool takeCounted(std::map<int, CountedFault> &faults, int id, int *result);

    std::mutex mLock;
    std::atomic<DVRSimPacing> mPacing{DVRSimPacing::RealTime};
    DVRSimConfig mConfig;
    std::unique_ptr<DVRPhysicalArena> mArena;
    bool mArenaFailed = false;
    std::set<std::string> mInterned;
    std::vector<int> mCameraSources;
    std::map<int, CountedFault> mVideoFaults;
    std::map<int, CountedFault> mAudioFaults;
    std::map<std::pair<int, DVRSimDeviceOp>, int> mCameraResults;
    std::map<std::pair<int, DVRSimDeviceOp>, int> mAudioResults;
    std::map<std::pair<int, DVRSimEncoderOp>, int> mEncoderResults;
    std::map<int, bool> mNeverPlaying;
    std::map<int, EncoderError> mEncoderErrors;
    std::map<int, LateCallback> mLateCallbacks;
    std::map<int, Starvation> mStarvations;
};

}  // namespace dvrspace

#endif  // DVR_SIMULATOR_H
