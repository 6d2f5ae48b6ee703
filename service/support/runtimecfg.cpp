#define LOG_TAG "RTCFG"

#include "runtimecfg.h"

#include <fcntl.h>
#include <log/log.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *kCmdlinePath = "/proc/cmdline";
constexpr const char *kMemPath = "/dev/mem";
constexpr const char *kCmdlinePathEnv = "DVR_RTCFG_CMDLINE";
constexpr const char *kMemPathEnv = "DVR_RTCFG_MEM";
constexpr const char *kOffsetParam = "res_rtcfg=";
constexpr int kLineMax = 100;
constexpr size_t kBlockSize = 10240;
constexpr int kCmdlineSize = 10240;
constexpr size_t kOffsetTextMax = 10;

const char *g_cfgContent = nullptr;
rtcfg_info_t g_rtcfgInfo;

const char *pathFromEnv(const char *variable, const char *fallback) {
    const char *path = getenv(variable);
    return (path != nullptr && path[0] != '\0') ? path : fallback;
}

const char *sourceFileName() {
    const char *slash = strrchr(__FILE__, '/');
    return slash != nullptr ? slash + 1 : __FILE__;
}

// Finds "\n<key>=" in the block; returns the first byte of the value or null.
const char *findValue(const char *key) {
    char pattern[kLineMax] = "\n";
    strcat(pattern, key);
    strcat(pattern, "=");
    const char *match = strstr(g_cfgContent, pattern);
    return match != nullptr ? match + strlen(pattern) : nullptr;
}

}  // namespace

rtcfg_info_t rtcfg_info;

uint32_t qv_config_parse_offset() {
    const char *path = pathFromEnv(kCmdlinePathEnv, kCmdlinePath);
    FILE *file = fopen(path, "r");
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "%s [%s %d] can not read cmdline: %s ",
                            sourceFileName(), __func__, __LINE__, path);
        return 0;
    }
    char cmdline[kCmdlineSize] = {};
    uint32_t offset = 0;
    if (fgets(cmdline, kCmdlineSize, file) != nullptr) {
        char *param = strstr(cmdline, kOffsetParam);
        char *at = param != nullptr ? strchr(param, '@') : nullptr;
        char *blank = param != nullptr ? strchr(param, ' ') : nullptr;
        if (at != nullptr && blank != nullptr) {
            *blank = '\0';
            const char *offsetText = at + 1;
            if (strlen(offsetText) > kOffsetTextMax) {
                __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                    "%s %s  %d, Error: offset over bound: %s \n", sourceFileName(),
                                    __func__, __LINE__, offsetText);
            } else {
                offset = static_cast<uint32_t>(strtol(offsetText, nullptr, 16));
            }
        }
    }
    fclose(file);
    return offset;
}

int qv_config_get_line_max() {
    return kLineMax;
}

int qv_config_init() {
    if (g_cfgContent != nullptr) {
        return 0;
    }
    g_rtcfgInfo.fd = -1;
    if (g_rtcfgInfo.offset == 0) {
        g_rtcfgInfo.offset = qv_config_parse_offset();
        if (g_rtcfgInfo.offset == 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "%s [%s %d] can not parsing offset from %s\n", sourceFileName(),
                                __func__, __LINE__, pathFromEnv(kCmdlinePathEnv, kCmdlinePath));
            return -1;
        }
    }
    const long pageSize = sysconf(_SC_PAGESIZE);
    const off_t mapStart = static_cast<off_t>(g_rtcfgInfo.offset / pageSize * pageSize);
    const size_t remainder = g_rtcfgInfo.offset - static_cast<size_t>(mapStart);

    g_rtcfgInfo.fd = open(pathFromEnv(kMemPathEnv, kMemPath), O_RDWR);
    if (g_rtcfgInfo.fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "%s [%s %d] Error: open KERNEL_MEM_PATH failed\n", sourceFileName(),
                            __func__, __LINE__);
        return -1;
    }
    // A regular file standing in for physical memory must cover the whole
    // block: touching a mapped page past its end would raise SIGBUS.
    struct stat memStat {};
    const bool fileTooShort = fstat(g_rtcfgInfo.fd, &memStat) == 0 && S_ISREG(memStat.st_mode) &&
                              static_cast<uint64_t>(memStat.st_size) <
                                  static_cast<uint64_t>(mapStart) + remainder + kBlockSize;
    g_rtcfgInfo.mapAddr = fileTooShort ? MAP_FAILED
                                       : mmap(nullptr, remainder + kBlockSize, PROT_READ,
                                              MAP_SHARED, g_rtcfgInfo.fd, mapStart);
    if (g_rtcfgInfo.mapAddr == MAP_FAILED) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "Can't map runtime config chunk memory");
        close(g_rtcfgInfo.fd);
        g_rtcfgInfo.fd = -1;
        return -1;
    }
    const char *content = static_cast<const char *>(g_rtcfgInfo.mapAddr) + remainder;
    // Every lookup is a plain string search; without the terminating NUL it
    // would run off the block.
    if (memchr(content, '\0', kBlockSize) == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "%s [%s %d] Error: no NUL within %zu bytes of the block\n",
                            sourceFileName(), __func__, __LINE__, kBlockSize);
        munmap(g_rtcfgInfo.mapAddr, remainder + kBlockSize);
        g_rtcfgInfo.mapAddr = MAP_FAILED;
        close(g_rtcfgInfo.fd);
        g_rtcfgInfo.fd = -1;
        return -1;
    }
    g_cfgContent = content;
    return 0;
}

int qv_config_get_int(const char *key, int *value) {
    if (qv_config_init() != 0) {
        return -1;
    }
    const char *text = findValue(key);
    if (text == nullptr) {
        *value = -1;
        return -1;
    }
    bool negative = false;
    if (*text == '-') {
        negative = true;
        ++text;
    }
    // The prefix tests run in this order on the text each one leaves behind.
    int base = 10;
    if (strncmp(text, "0x", 2) == 0) {
        text += 2;
        base = 16;
    }
    if (strncmp(text, "0o", 2) == 0) {
        text += 2;
        base = 8;
    }
    if (strncmp(text, "0b", 2) == 0) {
        text += 2;
        base = 2;
    }
    long parsed = strtol(text, nullptr, base);
    // The device's long is 32 bits wide: saturate as its strtol would.
    if (parsed > INT_MAX) {
        parsed = INT_MAX;
    } else if (parsed < INT_MIN) {
        parsed = INT_MIN;
    }
    *value = negative ? -static_cast<int>(parsed) : static_cast<int>(parsed);
    return 0;
}

int qv_config_get_string(const char *key, char *buffer, int size) {
    if (size <= 0 || qv_config_init() != 0) {
        return -1;
    }
    const char *text = findValue(key);
    if (text == nullptr) {
        return -1;
    }
    const char *newline = strchr(text, '\n');
    if (newline == nullptr) {
        return -1;
    }
    int length = static_cast<int>(newline - text);
    if (length >= size) {
        length = size - 1;
    }
    memcpy(buffer, text, static_cast<size_t>(length));
    buffer[length] = '\0';
    return length;
}

int qv_config_get_bool(const char *key, bool *value) {
    if (qv_config_init() != 0) {
        return -1;
    }
    const char *text = findValue(key);
    if (text == nullptr) {
        return -1;
    }
    if (*text == 'y') {
        *value = true;
        return 0;
    }
    if (*text == 'n') {
        *value = false;
        return 0;
    }
    return -1;
}

int qv_config_release() {
    if (g_rtcfgInfo.mapAddr != nullptr) {
        if (munmap(g_rtcfgInfo.mapAddr, kBlockSize) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "Can't unmap memory");
        }
    }
    if (g_rtcfgInfo.fd != -1) {
        close(g_rtcfgInfo.fd);
        g_rtcfgInfo.fd = -1;
    }
    return 0;
}
