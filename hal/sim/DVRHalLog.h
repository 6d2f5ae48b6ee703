// Log lines of the device simulator, tag "DVRHal", prefixed "[function:line] ".
#ifndef DVR_HAL_LOG_H
#define DVR_HAL_LOG_H

#include <log/log.h>

#define HAL_LOG_PRINT(prio, fmt, ...) \
    __android_log_print(prio, "DVRHal", "[%s:%d] " fmt, __func__, __LINE__, ##__VA_ARGS__)

#define HAL_LOGD(fmt, ...) HAL_LOG_PRINT(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define HAL_LOGI(fmt, ...) HAL_LOG_PRINT(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define HAL_LOGW(fmt, ...) HAL_LOG_PRINT(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define HAL_LOGE(fmt, ...) HAL_LOG_PRINT(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

#endif  // DVR_HAL_LOG_H
