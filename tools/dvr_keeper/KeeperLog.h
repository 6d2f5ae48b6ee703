// The keeper's log lines: liblog under the tag "DVRKeeper" (stderr on a PC,
// the journal under systemd).
#ifndef DVR_KEEPER_KEEPER_LOG_H
#define DVR_KEEPER_KEEPER_LOG_H

#include <log/log.h>

#define KEEPER_LOG(prio, fmt, ...) __android_log_print(prio, "DVRKeeper", fmt, ##__VA_ARGS__)
#define KEEPER_LOGI(fmt, ...) KEEPER_LOG(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define KEEPER_LOGW(fmt, ...) KEEPER_LOG(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define KEEPER_LOGE(fmt, ...) KEEPER_LOG(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

#endif  // DVR_KEEPER_KEEPER_LOG_H
