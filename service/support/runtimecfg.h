// Reader of the runtime configuration block that the boot loader leaves in
// physical memory. The block's offset comes from "res_rtcfg=...@<hex offset> "
// on the kernel command line; the block is mapped read-only through the memory
// device and searched for lines "KEY=VALUE".
//
// Process-wide state, no locking: the service makes its first lookup on the
// thread that constructs it, before any client request. On a PC the command
// line and memory paths can be replaced through DVR_RTCFG_CMDLINE and
// DVR_RTCFG_MEM (read at every initialisation attempt); the memory path then
// names an image file, mapped exactly as physical memory would be.
#ifndef DVR_RUNTIMECFG_H
#define DVR_RUNTIMECFG_H

#include <cstdint>

// Descriptor, mapping start and physical offset of the mapped block.
struct rtcfg_info_t {
    int fd;           // -1 when not open
    void *mapAddr;    // mapping start, MAP_FAILED after a failed mapping
    uint32_t offset;  // physical offset of the block; 0 = not known yet
};

// Exported for the module's own users; the service does not use it.
extern rtcfg_info_t rtcfg_info;

// The block's physical offset from the kernel command line, 0 on any failure.
uint32_t qv_config_parse_offset();

// 100: the longest line, key, value or search pattern the reader is meant for.
int qv_config_get_line_max();

// Maps the block; 0 when it is mapped (also when it already was), -1 otherwise.
// Failed attempts are retried by the next call.
int qv_config_init();

// Integer value of key (decimal, or "0x", "0o", "0b" prefixed, optional "-").
// 0 found; -1 otherwise, with -1 written to *value when the key is absent.
int qv_config_get_int(const char *key, int *value);

// Copies the value (at most size - 1 bytes, NUL-terminated) and returns the
// number of bytes copied; -1 when absent or not ended by a newline.
int qv_config_get_string(const char *key, char *buffer, int size);

// "y..." is true and "n..." false (0); anything else -1, *value untouched.
int qv_config_get_bool(const char *key, bool *value);

// Unmaps and closes; always 0. The reader must not be used afterwards.
int qv_config_release();

#endif  // DVR_RUNTIMECFG_H
