#include "DVRCameraDeviceFactory.h"

#include <string>

#include "DVRHalLog.h"
#include "DVRSimCameraDevice.h"
#include "DVRSimulator.h"

namespace dvrspace {

DVRCameraDeviceFactory *DVRCameraDeviceFactory::getFactory() {
    static DVRCameraDeviceFactory factory;
    return &factory;
}

DVRCameraDevice *DVRCameraDeviceFactory::createDevice(int index) {
    DVRSimulator &simulator = DVRSimulator::instance();
    const DVRSimConfig config = simulator.config();
    if (index < 0 || static_cast<size_t>(index) >= config.cameras.size()) {
        return nullptr;
    }
    const DVRSimCameraConfig &camera = config.cameras[static_cast<size_t>(index)];
    const std::string message = "camera " + std::to_string(index);
    switch (camera.createException) {
        case DVRSimCreateException::NotReady:
            throw DeviceNotReadyException((message + " not ready").c_str());
        case DVRSimCreateException::NumExceed:
            throw DeviceNumExceedException((message + " beyond the available cameras").c_str());
        case DVRSimCreateException::None:
            break;
    }
    return DVRSimCameraDevice::create(camera, simulator.arena());
}

const char *DVRCameraDeviceFactory::getServiceName() {
    DVRSimulator &simulator = DVRSimulator::instance();
    return simulator.intern(simulator.config().cameraServiceName);
}

int DVRCameraDeviceFactory::setCameraSources(int count, const std::vector<int> &sources) {
    if (count < 0 || static_cast<size_t>(count) > sources.size()) {
        HAL_LOGE("Invalid camera sources: count %d of %zu\n", count, sources.size());
        return -22;
    }
    DVRSimulator::instance().setCameraSources(
        std::vector<int>(sources.begin(), sources.begin() + count));
    return 0;
}

}  // namespace dvrspace
