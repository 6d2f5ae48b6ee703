// Small utilities shared by the service's components.
#ifndef DVR_UTILS_H
#define DVR_UTILS_H

#include <cstdint>

#include "DVRTypes.h"

// Monotonic clock in microseconds; never goes back. Any thread.
uint64_t getMonotonicClockUs();

// Readable name of a recorder state ("DVR_STM_IDLE", ...); a value outside the
// enumeration gives "DVR_STM_UNKNOWN". Returns a static string.
const char *stm_toString(dvrspace::DVRStm_e state);

#endif  // DVR_UTILS_H
