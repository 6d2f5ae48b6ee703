// Log line helpers. Every source file defines LOG_TAG (its component's tag)
// before its first include: liblog's <log/log.h> defines it otherwise.
// Service lines start with "[function:line] ", recorder lines with
// "[function:line]  [encoder id] ".
#ifndef DVR_LOG_H
#define DVR_LOG_H

#include <log/log.h>

#define DVR_LOG_PRINT(prio, fmt, ...) \
    __android_log_print(prio, LOG_TAG, "[%s:%d] " fmt, __func__, __LINE__, ##__VA_ARGS__)

#define DVR_LOGD(fmt, ...) DVR_LOG_PRINT(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define DVR_LOGI(fmt, ...) DVR_LOG_PRINT(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define DVR_LOGW(fmt, ...) DVR_LOG_PRINT(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define DVR_LOGE(fmt, ...) DVR_LOG_PRINT(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

#define REC_LOG_PRINT(prio, id, fmt, ...)                                                   \
    __android_log_print(prio, LOG_TAG, "[%s:%d]  [%d] " fmt, __func__, __LINE__, (int)(id), \
                        ##__VA_ARGS__)

#define REC_LOGD(id, fmt, ...) REC_LOG_PRINT(ANDROID_LOG_DEBUG, id, fmt, ##__VA_ARGS__)
#define REC_LOGI(id, fmt, ...) REC_LOG_PRINT(ANDROID_LOG_INFO, id, fmt, ##__VA_ARGS__)
#define REC_LOGW(id, fmt, ...) REC_LOG_PRINT(ANDROID_LOG_WARN, id, fmt, ##__VA_ARGS__)
#define REC_LOGE(id, fmt, ...) REC_LOG_PRINT(ANDROID_LOG_ERROR, id, fmt, ##__VA_ARGS__)

#endif  // DVR_LOG_H
