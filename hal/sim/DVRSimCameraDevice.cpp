#include "DVRSimCameraDevice.h"

#include <algorithm>

#include "DVRHalLog.h"
#include "DVRSimulator.h"

namespace dvrspace {

namespace {

DVRCameraCaps_t capsOf(const DVRSimCameraConfig &config) {
    return DVRCameraCaps_t{config.frameRate, config.width, config.height, config.stride,
                           config.format};
}

uint64_t microsecondsSinceEpoch(std::chrono::steady_clock::time_point time) {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count());
}

}  // namespace

DVRSimCameraDevice *DVRSimCameraDevice::create(const DVRSimCameraConfig &config,
                                               DVRPhysicalArena *arena) {
    if (arena == nullptr) {
        return nullptr;
    }
    const size_t frameBytes = static_cast<size_t>(config.stride) * config.height * 3 / 2;
    std::vector<DVRPhysicalArena::Buffer> ring;
    for (int slot = 0; slot < config.buffers; ++slot) {
        DVRPhysicalArena::Buffer buffer{};
        if (!arena->allocate(frameBytes, &buffer)) {
            HAL_LOGE("Camera %d: no room for %d frames of %zu bytes in the arena\n", config.id,
                     config.buffers, frameBytes);
            for (const auto &taken : ring) {
                arena->release(taken.pa);
            }
            return nullptr;
        }
        ring.push_back(buffer);
    }
    return new DVRSimCameraDevice(config, arena, std::move(ring));
}

DVRSimCameraDevice::DVRSimCameraDevice(const DVRSimCameraConfig &config, DVRPhysicalArena *arena,
                                       std::vector<DVRPhysicalArena::Buffer> ring)
    : DVRCameraDevice(config.id, capsOf(config), config.type),
      mArena(arena),
      mRing(std::move(ring)),
      mLumaBytes(static_cast<size_t>(config.stride) * config.height),
      mPattern(config.width, config.height, config.stride),
      mFramePeriod(std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) /
                   config.frameRate) {}

DVRSimCameraDevice::~DVRSimCameraDevice() {
    for (const auto &buffer : mRing) {
        mArena->release(buffer.pa);
    }
    if (mSnapshot.va != nullptr) {
        mArena->release(mSnapshot.pa);
    }
}

int DVRSimCameraDevice::getVideoFrame(void *frameVA[2], uint32_t framePA[2], uint64_t *timestamp) {
    int faultResult = 0;
    if (DVRSimulator::instance().takeVideoFault(mId, &faultResult)) {
        frameVA[0] = frameVA[1] = nullptr;
        framePA[0] = framePA[1] = 0;
        return faultResult;
    }
    std::unique_lock<std::mutex> lock(mLock);
    if (!mStarted || mSuspended) {
        return -1;
    }
    if (DVRSimulator::insideNeedData()) {
        mFeedsEncoder = true;
    } else if (mFeedsEncoder && copyLatest(lock, frameVA, framePA, timestamp)) {
        // A snapshot sees the picture without taking it from the encoder.
        return 0;
    }
    Clock::time_point captureTime = Clock::now();
    const bool realTime = DVRSimulator::instance().pacing() == DVRSimPacing::RealTime;
    if (realTime && !mDraining) {
        // Deliver the oldest captured picture the driver's queue still
        // holds (the ring less the one being filled), so a reader late by a
        // few periods loses nothing; when every captured picture was
        // delivered, wait for the next one like a real sensor.
        const uint32_t elapsedFrames =
            static_cast<uint32_t>((captureTime - mStartTime) / mFramePeriod);
        const uint32_t queued = static_cast<uint32_t>(mRing.size()) - 1;
        const uint32_t latest = mFirstFrameOfRun + elapsedFrames;
        mNextFrame = std::max(mNextFrame, latest >= queued - 1 ? latest - (queued - 1) : 0);
        captureTime = mStartTime + mFramePeriod * (mNextFrame - mFirstFrameOfRun);
        mWake.wait_until(lock, captureTime,
                         [this] { return !mStarted || mSuspended || mDraining; });
        if (!mStarted || mSuspended) {
            return -1;
        }
    }
    if (!realTime) {
        // A sensor as fast as its reader: every frame one period after the last.
        captureTime = mStartTime + mFramePeriod * (mNextFrame - mFirstFrameOfRun);
    }
    const uint32_t frameNumber = mNextFrame++;
    const DVRPhysicalArena::Buffer &buffer = mRing[mDelivered++ % mRing.size()];
    handOut(lock, buffer, frameNumber, captureTime, frameVA, framePA, timestamp);
    return 0;
}

void DVRSimCameraDevice::handOut(std::unique_lock<std::mutex> &lock,
                                 const DVRPhysicalArena::Buffer &buffer, uint32_t frameNumber,
                                 Clock::time_point captureTime, void *frameVA[2],
                                 uint32_t framePA[2], uint64_t *timestamp) {
    // Drawn unlocked so that prepareStop() and stop() never wait for it.
    lock.unlock();
    uint8_t *luma = static_cast<uint8_t *>(buffer.va);
    mPattern.draw(luma, luma + mLumaBytes, frameNumber);
    frameVA[0] = luma;
    frameVA[1] = luma + mLumaBytes;
    framePA[0] = buffer.pa;
    framePA[1] = buffer.pa + static_cast<uint32_t>(mLumaBytes);
    if (timestamp != nullptr) {
        *timestamp = microsecondsSinceEpoch(captureTime);
    }
}

bool DVRSimCameraDevice::copyLatest(std::unique_lock<std::mutex> &lock, void *frameVA[2],
                                    uint32_t framePA[2], uint64_t *timestamp) {
    const size_t frameBytes = mLumaBytes * 3 / 2;
    if (mSnapshot.va == nullptr && !mArena->allocate(frameBytes, &mSnapshot)) {
        mSnapshot = DVRPhysicalArena::Buffer{};
        return false;
    }
    const bool realTime = DVRSimulator::instance().pacing() == DVRSimPacing::RealTime;
    // In real time the sensor's latest picture; in fast pacing the sensor
    // is as fast as its reader, so the one delivered last.
    uint32_t frameNumber = mNextFrame > mFirstFrameOfRun ? mNextFrame - 1 : mNextFrame;
    if (realTime) {
        frameNumber =
            mFirstFrameOfRun + static_cast<uint32_t>((Clock::now() - mStartTime) / mFramePeriod);
    }
    const Clock::time_point captureTime =
        mStartTime + mFramePeriod * (frameNumber - mFirstFrameOfRun);
    handOut(lock, mSnapshot, frameNumber, captureTime, frameVA, framePA, timestamp);
    return true;
}

int DVRSimCameraDevice::start() {
    std::lock_guard<std::mutex> lock(mLock);
    mStarted = true;
    mDraining = false;
    mFeedsEncoder = false;
    mStartTime = Clock::now();
    mFirstFrameOfRun = mNextFrame;
    return 0;
}

int DVRSimCameraDevice::stop() {
    std::lock_guard<std::mutex> lock(mLock);
    mStarted = false;
    mWake.notify_all();
    return 0;
}

int DVRSimCameraDevice::prepareStop() {
    std::lock_guard<std::mutex> lock(mLock);
    mDraining = true;
    mWake.notify_all();
    return 0;
}

int DVRSimCameraDevice::suspend() {
    const int result = DVRSimulator::instance().cameraResult(mId, DVRSimDeviceOp::Suspend);
    if (result == 0) {
        std::lock_guard<std::mutex> lock(mLock);
        mSuspended = true;
        mWake.notify_all();
    }
    return result;
}

int DVRSimCameraDevice::resume() {
    const int result = DVRSimulator::instance().cameraResult(mId, DVRSimDeviceOp::Resume);
    if (result == 0) {
        std::lock_guard<std::mutex> lock(mLock);
        mSuspended = false;
    }
    return result;
}

}  // namespace dvrspace
