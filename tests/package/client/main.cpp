#include <cstdio>
#include <string>

#include "DVRCameraDeviceFactory.h"
#include "DVRTypes.h"
#include "IDVR.h"
#include "RecordingReader.h"
#include "RuntimeCfgImage.h"
#include "dvr_utils.h"

int main() {
    dvrspace::DeviceNotReadyException notReady("camera 0 not ready");
    std::printf("%s %s %d %s %s\n", stm_toString(dvrspace::DVR_STM_READY), notReady.what(),
                dvrspace::DVR_INVALID_OPERATION,
                dvrspace::DVRCameraDeviceFactory::getFactory()->getServiceName(),
                android::String8(dvrspace::IDVR::descriptor).string());
    std::string error;
    dvrspace::RuntimeCfgImage::write("/nonexistent/runtime.cfg", "/nonexistent/img",
                                     "/nonexistent/cmdline",
                                     dvrspace::RuntimeCfgImage::kDefaultOffset, &error);
    std::printf("%s; %s\n", error.c_str(),
                dvrspace::RecordingReader::read("/nonexistent/a.ts").error.c_str());
    return 0;
}
