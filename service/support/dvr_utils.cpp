#include "dvr_utils.h"

#include <ctime>

uint64_t getMonotonicClockUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u +
           static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

const char *stm_toString(dvrspace::DVRStm_e state) {
    switch (state) {
        case dvrspace::DVR_STM_NONE:
            return "DVR_STM_NONE";
        case dvrspace::DVR_STM_IDLE:
            return "DVR_STM_IDLE";
        case dvrspace::DVR_STM_READY:
            return "DVR_STM_READY";
        case dvrspace::DVR_STM_RECORDING:
            return "DVR_STM_RECORDING";
        case dvrspace::DVR_STM_STOPPING:
            return "DVR_STM_STOPPING";
    }
    return "DVR_STM_UNKNOWN";
}
