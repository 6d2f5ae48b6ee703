// Process-wide factory of the device library's cameras.
#ifndef DVR_CAMERA_DEVICE_FACTORY_H
#define DVR_CAMERA_DEVICE_FACTORY_H

#include <vector>

#include "DVRCameraDevice.h"

namespace dvrspace {

class DVRCameraDeviceFactory {
public:
    // Always succeeds.
    static DVRCameraDeviceFactory *getFactory();
    // The camera at index (owned by the caller, who deletes it); null past the
    // last one. Throws DeviceNotReadyException or DeviceNumExceedException.
    DVRCameraDevice *createDevice(int index);
    // Name of the service hosting the cameras, as the service monitor knows it.
    const char *getServiceName();
    // Selects the physical sources behind the first count cameras.
    int setCameraSources(int count, const std::vector<int> &sources);

private:
    DVRCameraDeviceFactory() = default;
};

}  // namespace dvrspace

#endif  // DVR_CAMERA_DEVICE_FACTORY_H
