#include <cstdio>

#include "DVRCameraDeviceFactory.h"
#include "DVRTypes.h"
#include "IDVR.h"
#include "dvr_utils.h"

int main() {
    dvrspace::DeviceNotReadyException notReady("camera 0 not ready");
    std::printf("%s %s %d %s %s\n", stm_toString(dvrspace::DVR_STM_READY), notReady.what(),
                dvrspace::DVR_INVALID_OPERATION,
                dvrspace::DVRCameraDeviceFactory::getFactory()->getServiceName(),
                android::String8(dvrspace::IDVR::descriptor).string());
    return 0;
}
