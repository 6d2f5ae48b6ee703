#include "DVRSimulator.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "DVRHalLog.h"

namespace dvrspace {

namespace {

std::string gArenaPathToRemove;

void removeArenaFile() {
    if (!gArenaPathToRemove.empty()) {
        unlink(gArenaPathToRemove.c_str());
    }
}

DVRSimConfig configFromEnvironment() {
    const char *path = getenv("DVR_SIM_CONFIG");
    if (path == nullptr || path[0] == '\0') {
        return DVRSimConfig::builtInDefault();
    }
    std::ifstream file(path);
    if (!file) {
        HAL_LOGE("Cannot read DVR_SIM_CONFIG %s, using the built-in devices\n", path);
        return DVRSimConfig::builtInDefault();
    }
    std::stringstream text;
    text << file.rdbuf();
    DVRSimConfig config;
    std::string error;
    if (!DVRSimConfig::fromJson(text.str(), &config, &error)) {
        HAL_LOGE("Invalid DVR_SIM_CONFIG %s: %s, using the built-in devices\n", path,
                 error.c_str());
        return DVRSimConfig::builtInDefault();
    }
    return config;
}

}  // namespace

namespace {

thread_local bool tInsideNeedData = false;

}  // namespace

void DVRSimulator::setInsideNeedData(bool inside) {
    tInsideNeedData = inside;
}

bool DVRSimulator::insideNeedData() {
    return tInsideNeedData;
}

DVRSimulator &DVRSimulator::instance() {
    // Never destroyed: devices the process still holds at exit keep their
    // frame memory; the arena's file is removed at exit all the same.
    static DVRSimulator *simulator = new DVRSimulator();
    return *simulator;
}

DVRSimulator::DVRSimulator() {
    reset();
}

void DVRSimulator::reset() {
    DVRSimConfig config = configFromEnvironment();
    std::lock_guard<std::mutex> lock(mLock);
    mConfig = config;
    mPacing.store(config.pacing);
    mCameraSources.clear();
    mVideoFaults.clear();
    mAudioFaults.clear();
    mCameraResults.clear();
    mAudioResults.clear();
    mEncoderResults.clear();
    mNeverPlaying.clear();
    mEncoderErrors.clear();
    mLateCallbacks.clear();
    mStarvations.clear();
}

DVRSimConfig DVRSimulator::config() {
    std::lock_guard<std::mutex> lock(mLock);
    return mConfig;
}

void DVRSimulator::setConfig(const DVRSimConfig &config) {
    std::lock_guard<std::mutex> lock(mLock);
    mConfig = config;
    mPacing.store(config.pacing);
}

DVRPhysicalArena *DVRSimulator::arena() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mArena == nullptr && !mArenaFailed) {
        if (mConfig.arenaPath.empty()) {
            DVRPhysicalArena::removeStale(DVRPhysicalArena::defaultDirectory());
        }
        const std::string path =
            mConfig.arenaPath.empty() ? DVRPhysicalArena::defaultPath() : mConfig.arenaPath;
        std::string error;
        mArena = DVRPhysicalArena::create(path, mConfig.arenaBytes, DVRPhysicalArena::kDefaultBase,
                                          &error);
        if (mArena == nullptr) {
            HAL_LOGE("No physical memory arena: %s\n", error.c_str());
            mArenaFailed = true;
        } else {
            HAL_LOGI("Physical memory arena %s: %zu bytes at 0x%08x\n", path.c_str(),
                     mArena->size(), mArena->base());
            gArenaPathToRemove = path;
            std::atexit(removeArenaFile);
        }
    }
    return mArena.get();
}

const char *DVRSimulator::intern(const std::string &name) {
    std::lock_guard<std::mutex> lock(mLock);
    return mInterned.insert(name).first->c_str();
}

void DVRSimulator::setCameraSources(const std::vector<int> &sources) {
    std::lock_guard<std::mutex> lock(mLock);
    mCameraSources = sources;
}

std::vector<int> DVRSimulator::cameraSources() {
    std::lock_guard<std::mutex> lock(mLock);
    return mCameraSources;
}

bool DVRSimulator::takeCounted(std::map<int, CountedFault> &faults, int id, int *result) {
    auto found = faults.find(id);
    if (found == faults.end()) {
        return false;
    }
    *result = found->second.result;
    if (--found->second.remaining <= 0) {
        faults.erase(found);
    }
    return true;
}

void DVRSimulator::failVideoFrames(int cameraId, int count, int result) {
    std::lock_guard<std::mutex> lock(mLock);
    if (count > 0) {
        mVideoFaults[cameraId] = CountedFault{count, result};
    } else {
        mVideoFaults.erase(cameraId);
    }
}

void DVRSimulator::failAudioData(int audioId, int count, int result) {
    std::lock_guard<std::mutex> lock(mLock);
    if (count > 0) {
        mAudioFaults[audioId] = CountedFault{count, result};
    } else {
        mAudioFaults.erase(audioId);
    }
}

bool DVRSimulator::takeVideoFault(int cameraId, int *result) {
    std::lock_guard<std::mutex> lock(mLock);
    return takeCounted(mVideoFaults, cameraId, result);
}

bool DVRSimulator::takeAudioFault(int audioId, int *result) {
    std::lock_guard<std::mutex> lock(mLock);
    return takeCounted(mAudioFaults, audioId, result);
}

void DVRSimulator::setCameraResult(int cameraId, DVRSimDeviceOp op, int result) {
    std::lock_guard<std::mutex> lock(mLock);
    mCameraResults[{cameraId, op}] = result;
}

void DVRSimulator::setAudioResult(int audioId, DVRSimDeviceOp op, int result) {
    std::lock_guard<std::mutex> lock(mLock);
    mAudioResults[{audioId, op}] = result;
}

void DVRSimulator::setEncoderResult(int encoderId, DVRSimEncoderOp op, int result) {
    std::lock_guard<std::mutex> lock(mLock);
    mEncoderResults[{encoderId, op}] = result;
}

int DVRSimulator::cameraResult(int cameraId, DVRSimDeviceOp op) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mCameraResults.find({cameraId, op});
    if (found != mCameraResults.end()) {
        return found->second;
    }
    for (const DVRSimCameraConfig &camera : mConfig.cameras) {
        if (camera.id == cameraId) {
            return op == DVRSimDeviceOp::Suspend ? camera.suspendResult : camera.resumeResult;
        }
    }
    return 0;
}

int DVRSimulator::audioResult(int audioId, DVRSimDeviceOp op) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mAudioResults.find({audioId, op});
    if (found != mAudioResults.end()) {
        return found->second;
    }
    for (const DVRSimAudioConfig &audio : mConfig.audioInputs) {
        if (audio.id == audioId) {
            return op == DVRSimDeviceOp::Suspend ? audio.suspendResult : audio.resumeResult;
        }
    }
    return 0;
}

int DVRSimulator::encoderResult(int encoderId, DVRSimEncoderOp op) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mEncoderResults.find({encoderId, op});
    return found == mEncoderResults.end() ? 0 : found->second;
}

void DVRSimulator::setEncoderNeverPlaying(int encoderId, bool neverPlaying) {
    std::lock_guard<std::mutex> lock(mLock);
    mNeverPlaying[encoderId] = neverPlaying;
}

bool DVRSimulator::encoderNeverPlaying(int encoderId) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mNeverPlaying.find(encoderId);
    return found != mNeverPlaying.end() && found->second;
}

void DVRSimulator::injectEncoderError(int encoderId, int frameIndex, int severity, int code) {
    std::lock_guard<std::mutex> lock(mLock);
    mEncoderErrors[encoderId] = EncoderError{frameIndex, severity, code};
}

bool DVRSimulator::takeEncoderError(int encoderId, int frameIndex, EncoderError *error) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mEncoderErrors.find(encoderId);
    if (found == mEncoderErrors.end() || frameIndex < found->second.frameIndex) {
        return false;
    }
    *error = found->second;
    mEncoderErrors.erase(found);
    return true;
}

void DVRSimulator::injectLateCallback(int encoderId, DVRSimLateCallback kind, int delayMs) {
    std::lock_guard<std::mutex> lock(mLock);
    mLateCallbacks[encoderId] = LateCallback{kind, delayMs};
}

bool DVRSimulator::takeLateCallback(int encoderId, LateCallback *callback) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mLateCallbacks.find(encoderId);
    if (found == mLateCallbacks.end()) {
        return false;
    }
    *callback = found->second;
    mLateCallbacks.erase(found);
    return true;
}

void DVRSimulator::starveEncoder(int encoderId, int everyFrames, int delayMs) {
    std::lock_guard<std::mutex> lock(mLock);
    if (everyFrames <= 0 || delayMs <= 0) {
        mStarvations.erase(encoderId);
    } else {
        mStarvations[encoderId] = Starvation{everyFrames, delayMs};
    }
}

DVRSimulator::Starvation DVRSimulator::starvation(int encoderId) {
    std::lock_guard<std::mutex> lock(mLock);
    auto found = mStarvations.find(encoderId);
    return found == mStarvations.end() ? Starvation{} : found->second;
}

}  // namespace dvrspace
