// A hardware encoder of the device library. The service calls the virtual
// operations by their position and reads the id right after the vtable, so
// both the order and the layout are fixed.
#ifndef DVR_ENCODER_HAL_H
#define DVR_ENCODER_HAL_H

#include <cstdint>
#include <set>

#include "DVRCameraDevice.h"
#include "DVRTypes.h"
#include "EncoderCapability.h"
#include "RecordSettings.h"

namespace dvrspace {

// Encoder callbacks, called on the encoder's own threads with its id first.
typedef void (*DVRRecordStartCallback)(int encoderId, const char *file);
typedef void (*DVRRecordFinishCallback)(int encoderId, const char *file);
typedef void (*DVRFileFinishCallback)(int encoderId, const char *file);
typedef void (*DVRNeedDataCallback)(int encoderId, ENCNeedDataType_e type);
typedef void (*DVRErrorCallback)(int encoderId, DVRErrorServerity_e severity, int code);

class DVREncoderHAL {
public:
    virtual ~DVREncoderHAL() = default;
    // 0 success. cameraCaps are the attached camera's capability words.
    virtual int configure(RecordSettings_t *settings, const DVRCameraCaps_t &cameraCaps) = 0;
    // Path of the file the encoder writes next; 0 success.
    virtual int setFileName(const char *path) = 0;
    // Non-zero while encoding.
    virtual int isPlaying() = 0;
    virtual int start() = 0;
    // Completes the current file; afterwards at most the callback already
    // running may finish.
    virtual int stop() = 0;
    // Forces the next frame to be a key frame. Not used by the service.
    virtual int requestKeyFrame() = 0;
    // Called from within the need-data callback.
    virtual int pushVideoFrame(const uint32_t framePA[2], uint64_t *timestamp) = 0;
    virtual int pushAudioData(void *data, int length, uint64_t *timestamp) = 0;
    virtual int getCapability(EncoderCapability_t *capability) = 0;
    virtual std::set<unsigned int> getSupportedSamplingRates() = 0;
    virtual int suspend() = 0;
    virtual int resume() = 0;

    // The encoder's identity; first data member, directly after the vtable.
    int mId;

protected:
    explicit DVREncoderHAL(int id) : mId(id) {}
};

}  // namespace dvrspace

#endif  // DVR_ENCODER_HAL_H
