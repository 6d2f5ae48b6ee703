#include "DVRTypes.h"
#include "dvr_utils.h"

#include <cstdio>

int main() {
    dvrspace::DeviceNotReadyException notReady("camera 0 not ready");
    std::printf("%s %s %d\n", stm_toString(dvrspace::DVR_STM_READY), notReady.what(),
                dvrspace::DVR_INVALID_OPERATION);
    return 0;
}
