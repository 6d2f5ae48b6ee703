// A simulated audio input: a sine tone as 16-bit PCM at the current sampling
// rate, in chunks of a fixed duration. It never blocks: before a chunk's time
// has come (real-time pacing) getAudioData() reports "nothing yet".
//
// One input, many readers: the input captures one stream of chunks (chunk k
// holds the samples of [k, k + 1) chunk periods after capture began) and every
// handle reads it through a cursor of its own, so each channel that opened
// the input receives every chunk once. A reader never waits for another, nor
// the device for a reader: one that falls more than bufferMs behind loses the
// oldest chunks, as a capture ring would overwrite them.
#ifndef DVR_SIM_AUDIO_DEVICE_H
#define DVR_SIM_AUDIO_DEVICE_H

#include <array>
#include <chrono>
#include <map>
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

    // handle: one returned by open(), or -1 (the push arrangement's reader).
    // Negative: not open, not started or suspended. 0 with *length 0: the
    // handle's next chunk has not been captured yet. Otherwise 0 and the chunk,
    // which stays valid for two more reads through the same handle;
    // *timestamp is the capture time of its first sample (steady clock, µs).
    int getAudioData(int handle, void **data, int *length, uint64_t *timestamp) override;
    int open() override;
    int close(int handle) override;
    // Starts the handle's reading at the chunk being captured now; the first
    // handle started starts the capture.
    int start(int handle) override;
    int stop(int handle) override;
    // Serves the handle's chunks without waiting for their time until its
    // next start().
    int prepareStop(int handle) override;
    int suspend() override;
    int resume() override;
    int setSamplingRate(unsigned int rate) override;
    unsigned int getSamplingRate() override;
    std::set<unsigned int> getSupportedSamplingRates() override;

private:
    using Clock = std::chrono::steady_clock;

    // One handle's view of the captured stream.
    struct Reader {
        bool started = false;
        bool draining = false;
        uint64_t nextChunk = 0;  // index in the captured stream
        std::array<std::vector<int16_t>, 3> chunks;
        size_t nextBuffer = 0;
    };

    bool isKnownHandle(int handle) const;
    bool capturing() const;
    // Chunks of the stream whose capture has completed by now.
    uint64_t capturedChunks(Clock::time_point now) const;
    void synthesize(uint64_t chunkIndex, std::vector<int16_t> *chunk) const;

    const std::set<unsigned int> mRates;
    const int mChunkMs;
    const int mToneHz;
    const uint64_t mChunksPerMark;  // 0: no time marks
    const uint64_t mRetainedChunks;
    std::mutex mLock;
    unsigned int mRate;
    std::set<int> mHandles;
    std::map<int, Reader> mReaders;  // by handle; -1 for the push arrangement
    int mNextHandle = 1;
    bool mSuspended = false;
    Clock::time_point mCaptureStart;
};

}  // namespace dvrspace

#endif  // DVR_SIM_AUDIO_DEVICE_H
