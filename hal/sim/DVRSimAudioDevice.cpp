#include "DVRSimAudioDevice.h"

#include <algorithm>
#include <cmath>

#include "DVRHalLog.h"
#include "DVRSimulator.h"

namespace dvrspace {

namespace {

uint64_t microsecondsOf(std::chrono::steady_clock::time_point time) {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count());
}

}  // namespace

DVRSimAudioDevice::DVRSimAudioDevice(const DVRSimAudioConfig &config)
    : DVRAudioDevice(config.id, DVRAudioCaps_t{config.channels, config.bitsPerSample}),
      mRates(config.samplingRates),
      mChunkMs(config.chunkMs),
      mToneHz(config.toneHz),
      mChunksPerMark(static_cast<uint64_t>(config.markSeconds) * 1000 / config.chunkMs),
      mRetainedChunks(static_cast<uint64_t>(config.bufferMs / config.chunkMs)),
      mRate(config.samplingRate) {}

bool DVRSimAudioDevice::isKnownHandle(int handle) const {
    return handle == -1 ? !mHandles.empty() : mHandles.count(handle) == 1;
}

bool DVRSimAudioDevice::capturing() const {
    for (const auto &entry : mReaders) {
        if (entry.second.started) {
            return true;
        }
    }
    return false;
}

uint64_t DVRSimAudioDevice::capturedChunks(Clock::time_point now) const {
    if (now <= mCaptureStart) {
        return 0;
    }
    return static_cast<uint64_t>((now - mCaptureStart) / std::chrono::milliseconds(mChunkMs));
}

int DVRSimAudioDevice::getAudioData(int handle, void **data, int *length, uint64_t *timestamp) {
    *data = nullptr;
    *length = 0;
    int faultResult = 0;
    if (DVRSimulator::instance().takeAudioFault(mId, &faultResult)) {
        return faultResult;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle) || mSuspended) {
        return -1;
    }
    const Clock::time_point now = Clock::now();
    auto found = mReaders.find(handle);
    if (found == mReaders.end() || !found->second.started) {
        // The push arrangement reads while any channel captures, from now on.
        if (handle != -1 || !capturing()) {
            return -1;
        }
        found = mReaders.emplace(-1, Reader{}).first;
        found->second.started = true;
        found->second.nextChunk = capturedChunks(now);
    }
    Reader &reader = found->second;
    const uint64_t captured = capturedChunks(now);
    const bool realTime = DVRSimulator::instance().pacing() == DVRSimPacing::RealTime;
    if (realTime && !reader.draining) {
        if (reader.nextChunk >= captured) {
            return 0;
        }
        if (captured - reader.nextChunk > mRetainedChunks) {
            const uint64_t lost = captured - reader.nextChunk - mRetainedChunks;
            HAL_LOGW("Audio %d: handle %d fell %d ms behind the capture; %llu chunks lost\n", mId,
                     handle, static_cast<int>((captured - reader.nextChunk) * mChunkMs),
                     static_cast<unsigned long long>(lost));
            reader.nextChunk += lost;
        }
    }
    std::vector<int16_t> &chunk = reader.chunks[reader.nextBuffer];
    reader.nextBuffer = (reader.nextBuffer + 1) % reader.chunks.size();
    synthesize(reader.nextChunk, &chunk);
    if (timestamp != nullptr) {
        *timestamp =
            microsecondsOf(mCaptureStart + std::chrono::milliseconds(mChunkMs) * reader.nextChunk);
    }
    ++reader.nextChunk;
    *data = chunk.data();
    *length = static_cast<int>(chunk.size() * sizeof(int16_t));
    return 0;
}

void DVRSimAudioDevice::synthesize(uint64_t chunkIndex, std::vector<int16_t> *chunk) const {
    const size_t frames = static_cast<size_t>(mRate) * mChunkMs / 1000;
    const size_t channels = static_cast<size_t>(mCaps.channels);
    chunk->resize(frames * channels);
    const double step = 2.0 * M_PI * mToneHz / mRate;
    // The tone's phase follows the sample's place in the stream, so every
    // reader of a chunk gets the same samples.
    const uint64_t firstSample = chunkIndex * frames;
    if (mChunksPerMark != 0 && chunkIndex % mChunksPerMark == 0) {
        std::fill(chunk->begin(), chunk->end(), 0);
        return;
    }
    for (size_t frame = 0; frame < frames; ++frame) {
        const auto sample = static_cast<int16_t>(
            8000.0 * std::sin(step * static_cast<double>((firstSample + frame) % mRate)));
        for (size_t channel = 0; channel < channels; ++channel) {
            (*chunk)[frame * channels + channel] = sample;
        }
    }
}

int DVRSimAudioDevice::open() {
    std::lock_guard<std::mutex> lock(mLock);
    const int handle = mNextHandle++;
    mHandles.insert(handle);
    return handle;
}

int DVRSimAudioDevice::close(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    mReaders.erase(handle);
    if (mHandles.erase(handle) != 1) {
        return -1;
    }
    if (mHandles.empty()) {
        mReaders.clear();
    }
    return 0;
}

int DVRSimAudioDevice::start(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    const Clock::time_point now = Clock::now();
    if (!capturing()) {
        mCaptureStart = now;
    }
    Reader &reader = mReaders[handle];
    reader.started = true;
    reader.draining = false;
    reader.nextChunk = capturedChunks(now);
    return 0;
}

int DVRSimAudioDevice::stop(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    mReaders.erase(handle);
    return 0;
}

int DVRSimAudioDevice::prepareStop(int handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (!isKnownHandle(handle)) {
        return -1;
    }
    auto found = mReaders.find(handle);
    if (found != mReaders.end()) {
        found->second.draining = true;
    }
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
    std::lock_guard<std::mutex> lock(mLock);
    return mRates;
}

}  // namespace dvrspace
