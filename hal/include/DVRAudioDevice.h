// An audio input of the device library. The service calls the virtual
// operations by their position, so their order is fixed.
#ifndef DVR_AUDIO_DEVICE_H
#define DVR_AUDIO_DEVICE_H

#include <cstdint>
#include <set>

namespace dvrspace {

// The first two words reach clients as AudioDeviceCaps_t.
struct DVRAudioCaps_t {
    int32_t channels;
    int32_t bitsPerSample;
};

class DVRAudioDevice {
public:
    virtual ~DVRAudioDevice() = default;
    // Next chunk for the handle from open(). Negative: error. 0 with *length 0:
    // nothing yet. 0 or positive with *length > 0: a chunk, valid until the
    // encoder's pushAudioData() for it returns.
    virtual int getAudioData(int handle, void **data, int *length, uint64_t *timestamp) = 0;
    virtual int open() = 0;
    virtual int close(int handle) = 0;
    virtual int start(int handle) = 0;
    virtual int stop(int handle) = 0;
    // Releases a caller blocked in getAudioData(); never waits for it.
    virtual int prepareStop(int handle) = 0;
    virtual int suspend() = 0;
    // 0 success, 1 recoverable error, -1 failed.
    virtual int resume() = 0;
    // 0 success; -22 for a rate the device does not support.
    virtual int setSamplingRate(unsigned int rate) = 0;
    virtual unsigned int getSamplingRate() = 0;
    virtual std::set<unsigned int> getSupportedSamplingRates() = 0;

    int getID() const { return mId; }
    const DVRAudioCaps_t *getCaps() const { return &mCaps; }

protected:
    DVRAudioDevice(int id, const DVRAudioCaps_t &caps) : mId(id), mCaps(caps) {}

    int mId;
    DVRAudioCaps_t mCaps;
};

}  // namespace dvrspace

#endif  // DVR_AUDIO_DEVICE_H
