#include "DVRAssert.h"

#include <log/log.h>

#include <cstdlib>
#include <cstring>

void dvr_assert_fail(const char *condition, const char *file, int line) {
    const char *slash = std::strrchr(file, '/');
    const char *base = slash != nullptr ? slash + 1 : file;
    __android_log_print(ANDROID_LOG_FATAL, "DVRAssert", "Assertion failed: %s, file %s, line %d",
                        condition, base, line);
    std::abort();
}
