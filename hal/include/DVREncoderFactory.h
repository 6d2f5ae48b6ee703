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
    // The encoder with this id and its five callbacks; null on failure.
    DVREncoderHAL *getEncoder(int encoderId, DVRRecordStartCallback recordStart,
                              DVRRecordFinishCallback recordFinish,
                              DVRFileFinishCallback fileFinish, DVRNeedDataCallback needData,
                              DVRErrorCallback error);
    void releaseEncoder(DVREncoderHAL *encoder);
    // Called right after releaseEncoder().
    void releaseFactory();

private:
    DVREncoderFactory() = default;
};

}  // namespace dvrspace

#endif  // DVR_ENCODER_FACTORY_H
