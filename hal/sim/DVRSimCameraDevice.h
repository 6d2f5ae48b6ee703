// A simulated camera: draws the test pattern into a ring of NV12 buffers in
// the physical memory arena and hands them out at its frame rate (real-time
// pacing) or at once (fast pacing).
#ifndef DVR_SIM_CAMERA_DEVICE_H
#define DVR_SIM_CAMERA_DEVICE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "DVRCameraDevice.h"
#include "DVRPhysicalArena.h"
#include "DVRSimConfig.h"
#include "DVRTestPattern.h"

namespace dvrspace {

class DVRSimCameraDevice : public DVRCameraDevice {
public:
    // Null when the arena has no room for the frame ring.
    static DVRSimCameraDevice *create(const DVRSimCameraConfig &config, DVRPhysicalArena *arena);
    ~DVRSimCameraDevice() override;

    // Not started or suspended: -1. Otherwise the next frame; a ring slot is
    // drawn again only after buffers - 1 later frames, so a frame stays valid
    // well past the encoder's pushVideoFrame(). In real-time pacing it gives
    // the oldest picture still queued (buffers - 1 of them) and waits for the
    // next frame period when all were taken, unless prepareStop() releases it.
    // *timestamp is the capture time (steady clock, µs): the start of the
    // frame's period, in fast pacing as if every frame came one period after
    // the last.
    // Once an encoder has read the camera (inside its need-data callback)
    // since start(), any other reader (a snapshot) gets a copy of the latest
    // captured picture in a buffer of its own, without taking a frame from
    // the encoder's stream; that buffer stays valid until the next such read.
    int getVideoFrame(void *frameVA[2], uint32_t framePA[2], uint64_t *timestamp) override;
    int start() override;
    int stop() override;
    // Releases a waiting getVideoFrame() and serves frames without waiting
    // until the next start(), so a stopping encoder drains at once.
    int prepareStop() override;
    int suspend() override;
    int resume() override;

private:
    using Clock = std::chrono::steady_clock;

    DVRSimCameraDevice(const DVRSimCameraConfig &config, DVRPhysicalArena *arena,
                       std::vector<DVRPhysicalArena::Buffer> ring);
    // The latest captured picture drawn into the snapshot buffer (made on
    // first use); false when the arena has no room for it. Called with mLock
    // held through lock, which it releases.
    bool copyLatest(std::unique_lock<std::mutex> &lock, void *frameVA[2], uint32_t framePA[2],
                    uint64_t *timestamp);
    // Releases lock, draws frame frameNumber into buffer and fills the
    // outputs of getVideoFrame().
    void handOut(std::unique_lock<std::mutex> &lock, const DVRPhysicalArena::Buffer &buffer,
                 uint32_t frameNumber, Clock::time_point captureTime, void *frameVA[2],
                 uint32_t framePA[2], uint64_t *timestamp);

    DVRPhysicalArena *mArena;
    std::vector<DVRPhysicalArena::Buffer> mRing;
    size_t mLumaBytes;
    DVRTestPattern mPattern;
    Clock::duration mFramePeriod;
    std::mutex mLock;
    std::condition_variable mWake;
    bool mStarted = false;
    bool mSuspended = false;
    bool mDraining = false;
    Clock::time_point mStartTime;
    uint32_t mFirstFrameOfRun = 0;         // frame number at the last start()
    uint32_t mNextFrame = 0;               // number of the next frame to deliver
    uint64_t mDelivered = 0;               // ring position
    bool mFeedsEncoder = false;            // read by an encoder since start()
    DVRPhysicalArena::Buffer mSnapshot{};  // va null until first needed
};

}  // namespace dvrspace

#endif  // DVR_SIM_CAMERA_DEVICE_H
