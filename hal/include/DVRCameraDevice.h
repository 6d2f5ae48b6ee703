// A camera of the device library. The service calls the virtual operations by
// their position, so their order is fixed.
#ifndef DVR_CAMERA_DEVICE_H
#define DVR_CAMERA_DEVICE_H

#include <cstdint>

#include "DVRTypes.h"

namespace dvrspace {

// The camera's capability words; the first five are handed to the encoder's
// configure() unchanged.
struct DVRCameraCaps_t {
    int32_t frameRate;  // maximum frames per second
    int32_t width;      // pixels
    int32_t height;     // pixels
    int32_t stride;     // bytes per line
    int32_t format;     // DVRVideoFormat_e
};

class DVRCameraDevice {
public:
    virtual ~DVRCameraDevice() = default;
    // Next frame: two plane virtual and physical addresses and its time stamp.
    // 0 when a frame is ready (frameVA[0] non-null); the frame stays valid
    // until the encoder's pushVideoFrame() for it returns.
    virtual int getVideoFrame(void *frameVA[2], uint32_t framePA[2], uint64_t *timestamp) = 0;
    virtual int start() = 0;
    virtual int stop() = 0;
    // Releases a caller blocked in getVideoFrame(); never waits for it.
    virtual int prepareStop() = 0;
    // 0 success; anything else fails the system suspend.
    virtual int suspend() = 0;
    // 0 success, 1 recoverable error, -1 failed.
    virtual int resume() = 0;

    int getID() const { return mId; }
    const DVRCameraCaps_t *getCaps() const { return &mCaps; }
    QVDVRDeviceType_e getDeviceType() const { return mType; }

protected:
    DVRCameraDevice(int id, const DVRCameraCaps_t &caps, QVDVRDeviceType_e type)
        : mId(id), mCaps(caps), mType(type) {}

    int mId;
    DVRCameraCaps_t mCaps;
    QVDVRDeviceType_e mType;
};

}  // namespace dvrspace

#endif  // DVR_CAMERA_DEVICE_H
