// A simulated audio input: a sine tone as 16-bit PCM at the current sampling
// rate, in chunks of a fixed duration. It never blocks: before a chunk's time
// has come (real-time pacing) getAudioData() reports "nothing yet".
#ifndef DVR_SIM_AUDIO_DEVICE_H
#define DVR_SIM_AUDIO_DEVICE_H

#include <array>
#include <chrono>
#include <mutex>
#include <set>
#include <vector>

#include "DVRAudioDevice.h"
#include "DVRSimConfig.h"

namespace dvrspace {

class DVRSimAudioDevice : public DVRAudioDevice {
public:
    static constexpr int kNotSupported = -22;

    explicit DVRSimAudioDevice(const DVRSimAudioConfig &config);

    // handle: one returned by open(), or -1. Negative: not open, not started
    // or suspended. 0 with *length 0: the next chunk's time has not come.
    // Otherwise 0 and a chunk that stays valid for two more chunks.
    int getAudioData(int handle, void **data, int *length, uint64_t *timestamp) override;
    int open() override;
    int close(int handle) override;
    int start(int handle) override;
    int stop(int handle) override;
    // Serves chunks without waiting for their time until the next start().
    int prepareStop(int handle) override;
    int suspend() override;
    int resume() override;
    int setSamplingRate(unsigned int rate) override;
    unsigned int getSamplingRate() override;
    std::set<unsigned int> getSupportedSamplingRates() override;

private:
    using Clock = std::chrono::steady_clock;

    bool isKnownHandle(int handle) const;
    void synthesize(std::vector<int16_t> *chunk);

    const std::set<unsigned int> mRates;
    const int mChunkMs;
    const int mToneHz;
    std::mutex mLock;
    unsigned int mRate;
    std::set<int> mHandles;
    int mNextHandle = 1;
    bool mStarted = false;
    bool mSuspended = false;
    bool mDraining = false;
    Clock::time_point mStartTime;
    uint64_t mChunksOfRun = 0;  // delivered since the last start()
    uint64_t mSamplesDone = 0;  // tone phase, continuous across chunks
    std::array<std::vector<int16_t>, 3> mChunks;
    size_t mNextChunk = 0;
};

}  // namespace dvrspace

#endif  // DVR_SIM_AUDIO_DEVICE_H
