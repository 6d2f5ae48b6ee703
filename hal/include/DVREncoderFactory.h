// Process-wide factory of the device library's encoders.
#ifndef DVR_ENCODER_FACTORY_H
#define DVR_ENCODER_FACTORY_H

#include "DVREncoderHAL.h"

namespace dvrspace {

class DVREncoderFactory {
public:
    // Always succeeds.
    static DVREncoderFactory *getFactory();
    // Name of the service hosting the encoders, as the service monitor knows it.
    const char *getServiceName();
    // The encoder of channel index with its five callbacks (owned by the
    // caller until releaseEncoder()); null past the last encoder or without
    // all callbacks. Its id (mId) is the device library's, not the index.
    DVREncoderHAL *getEncoder(int index, DVRRecordStartCallback recordStart,
                              DVRRecordFinishCallback recordFinish,
                              DVRFileFinishCallback fileFinish, DVRNeedDataCallback needData,
                              DVRErrorCallback error);
    // Stops the encoder if it still runs and destroys it.
    void releaseEncoder(DVREncoderHAL *encoder);
    // Called right after releaseEncoder().
    void releaseFactory();

private:
    DVREncoderFactory() = default;
};

}  // namespace dvrspace

#endif  // DVR_ENCODER_FACTORY_H
