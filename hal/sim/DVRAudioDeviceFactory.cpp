#include "DVRAudioDeviceFactory.h"

#include "DVRSimAudioDevice.h"
#include "DVRSimulator.h"

namespace dvrspace {

DVRAudioDeviceFactory *DVRAudioDeviceFactory::getFactory() {
    static DVRAudioDeviceFactory factory;
    return &factory;
}

DVRAudioDevice *DVRAudioDeviceFactory::createDevice(int index) {
    const DVRSimConfig config = DVRSimulator::instance().config();
    if (index < 0 || static_cast<size_t>(index) >= config.audioInputs.size()) {
        return nullptr;
    }
    return new DVRSimAudioDevice(config.audioInputs[static_cast<size_t>(index)]);
}

const char *DVRAudioDeviceFactory::getServiceName() {
    DVRSimulator &simulator = DVRSimulator::instance();
    return simulator.intern(simulator.config().audioServiceName);
}

}  // namespace dvrspace
