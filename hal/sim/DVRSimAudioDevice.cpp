#include "DVRSimAudioDevice.h"

#include <cmath>

#include "DVRSimulator.h"

namespace dvrspace {

DVRSimAudioDevice::DVRSimAudioDevice(const DVRSimAudioConfig &config)
    : DVRAudioDevice(config.id, DVRAudioCaps_t{config.channels, config.bitsPerSample}),
      mRates(config.samplingRates),
      mChunkMs(config.chunkMs),
      mToneHz(config.toneHz),
      mRate(config.samplingRate) {}

bool DVRSimAudioDevice::isKnownHandle(int handle) const {
    return handle == -1 ? !mHandles.empty() : mHandles.count(handle) == 1;
}

int DVRSimAudioDevice::getAudioData(int handle, void **data, int *length, uint64_t *timestamp) {
    *data = nullptr;
    *length = 0;
    int faultResult = 0;
    if (DVRSimulator::instance().takeAudioFault(mId, &faultResult)) {
        return faultResult;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle) || !mStarted || mSuspended) {
        return -1;
    }
    const auto chunkPeriod = std::chrono::milliseconds(mChunkMs);
    // A chunk can be read once it has been captured, one period after it began.
    const Clock::time_point captured = mStartTime + chunkPeriod * (mChunksOfRun + 1);
    if (DVRSimulator::instance().pacing() == DVRSimPacing::RealTime && !mDraining &&
        Clock::now() < captured) {
        return 0;
    }
    std::vector<int16_t> &chunk = mChunks[mNextChunk];
    mNextChunk = (mNextChunk + 1) % mChunks.size();
    synthesize(&chunk);
    ++mChunksOfRun;
    *data = chunk.data();
    *length = static_cast<int>(chunk.size() * sizeof(int16_t));
    if (timestamp != nullptr) {
        *timestamp = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                               (captured - chunkPeriod).time_since_epoch())
                                               .count());
    }
    return 0;
}

void DVRSimAudioDevice::synthesize(std::vector<int16_t> *chunk) {
    const size_t frames = static_cast<size_t>(mRate) * mChunkMs / 1000;
    const size_t channels = static_cast<size_t>(mCaps.channels);
    chunk->resize(frames * channels);
    const double step = 2.0 * M_PI * mToneHz / mRate;
    for (size_t frame = 0; frame < frames; ++frame) {
        const auto sample = static_cast<int16_t>(
            8000.0 * std::sin(step * static_cast<double>((mSamplesDone + frame) % mRate)));
        for (size_t channel = 0; channel < channels; ++channel) {
            (*chunk)[frame * channels + channel] = sample;
        }
    }
    mSamplesDone += frames;
}

int DVRSimAudioDevice::open() {
    std::lock_guard<std::mutex> lock(mLock);
    const int handle = mNextHandle++;
    mHandles.insert(handle);
    return handle;
}

int DVRSimAudioDevice::close(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    return mHandles.erase(handle) == 1 ? 0 : -1;
}

int DVRSimAudioDevice::start(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    mStarted = true;
    mDraining = false;
    mStartTime = Clock::now();
    mChunksOfRun = 0;
    return 0;
}

int DVRSimAudioDevice::stop(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    mStarted = false;
    return 0;
}

int DVRSimAudioDevice::prepareStop(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    mDraining = true;
    return 0;
}

int DVRSimAudioDevice::suspend() {
    const int result = DVRSimulator::instance().audioResult(mId, DVRSimDeviceOp::Suspend);
    if (result == 0) {
        std::lock_guard<std::mutex> lock(mLock);
        mSuspended = true;
    }
    return result;
}

int DVRSimAudioDevice::resume() {
    const int result = DVRSimulator::instance().audioResult(mId, DVRSimDeviceOp::Resume);
    if (result == 0) {
        std::lock_guard<std::mutex> lock(mLock);
        mSuspended = false;
    }
    return result;
}

int DVRSimAudioDevice::setSamplingRate(unsigned int rate) {
    if (mRates.count(rate) == 0) {
        return kNotSupported;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mRate = rate;
    return 0;
}

unsigned int DVRSimAudioDevice::getSamplingRate() {
    std::lock_guard<std::mutex> lock(mLock);
    return mRate;
}

std::set<unsigned int> DVRSimAudioDevice::getSupportedSamplingRates() {
    return mRates;
}

}  // namespace dvrspace
