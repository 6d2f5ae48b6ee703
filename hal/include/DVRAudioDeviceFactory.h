// Process-wide factory of the device library's audio inputs.
#ifndef DVR_AUDIO_DEVICE_FACTORY_H
#define DVR_AUDIO_DEVICE_FACTORY_H

#include "DVRAudioDevice.h"

namespace dvrspace {

class DVRAudioDeviceFactory {
public:
    // Always succeeds.
    static DVRAudioDeviceFactory *getFactory();
    // The audio input at index (owned by the caller); null past the last one.
    DVRAudioDevice *createDevice(int index);
    // Name of the service hosting the audio inputs, as the service monitor knows it.
    const char *getServiceName();

private:
    DVRAudioDeviceFactory() = default;
};

}  // namespace dvrspace

#endif  // DVR_AUDIO_DEVICE_FACTORY_H
