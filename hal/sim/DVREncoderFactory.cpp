#include "DVREncoderFactory.h"

#include "DVRHalLog.h"
#include "DVRSimEncoder.h"
#include "DVRSimulator.h"

namespace dvrspace {

DVREncoderFactory *DVREncoderFactory::getFactory() {
    static DVREncoderFactory factory;
    return &factory;
}

const char *DVREncoderFactory::getServiceName() {
    DVRSimulator &simulator = DVRSimulator::instance();
    return simulator.intern(simulator.config().encoderServiceName);
}

DVREncoderHAL *DVREncoderFactory::getEncoder(int index, DVRRecordStartCallback recordStart,
                                             DVRRecordFinishCallback recordFinish,
                                             DVRFileFinishCallback fileFinish,
                                             DVRNeedDataCallback needData, DVRErrorCallback error) {
    DVRSimulator &simulator = DVRSimulator::instance();
    const DVRSimConfig config = simulator.config();
    if (index < 0 || static_cast<size_t>(index) >= config.encoder.ids.size()) {
        HAL_LOGE("No encoder at index %d\n", index);
        return nullptr;
    }
    if (recordStart == nullptr || recordFinish == nullptr || fileFinish == nullptr ||
        needData == nullptr || error == nullptr) {
        HAL_LOGE("Encoder %d needs all five callbacks\n", index);
        return nullptr;
    }
    return new DVRSimEncoder(
        config.encoder.ids[static_cast<size_t>(index)], config.encoder,
        DVREncoderCallbacks{recordStart, recordFinish, fileFinish, needData, error},
        simulator.arena());
}

void DVREncoderFactory::releaseEncoder(DVREncoderHAL *encoder) {
    delete encoder;
}

void DVREncoderFactory::releaseFactory() {
    // The factory is process-wide and stays usable: getFactory() always succeeds.
}

}  // namespace dvrspace
