// Vendor-data store: one persistent record of bytes addressed by position
// (0 to 1023 on a PC). Integers are little-endian with a byte length of 1 to 4;
// a write of length 4 at 242 followed by one at 244 leaves the second value's
// bytes at 244..247 and the first value's low two bytes at 242..243. Reads of a
// length below 4 sign-extend, so -1 written with length 4 reads back as -1 with
// length 2.
// Every operation returns 0 on success, or a negative errno: -EINVAL for a bad
// position, length or pointer, -ENOENT when there is no store or a byte read
// was never written, -EIO (or the system's errno) when the file cannot be read
// or written. A failed write changes nothing.
// Writes are durable and atomic: when a write returns the value survives a
// power cut, and a process killed at any instant leaves every position with its
// old or its new value. A damaged store is logged and read as empty.
// Any thread of any process; operations are serialised inside.
// On a PC the record lives in the file named by DVR_VENDOR_DATA (default:
// /var/lib/dvr/vendor_data for root, else $XDG_STATE_HOME/dvr/vendor_data or
// ~/.local/state/dvr/vendor_data).
#ifndef QV_VENDOR_DATA_H
#define QV_VENDOR_DATA_H

#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

int qv_vendor_data_read_int(int position, int length, int *value);
int qv_vendor_data_write_int(int position, int length, int value);
// Any non-zero byte reads as true; true is written as 1.
int qv_vendor_data_read_bool(int position, bool *value);
int qv_vendor_data_write_bool(int position, bool value);
// Reads length bytes into buffer (which holds length bytes; the stored text is
// NUL-terminated within them when it is shorter).
int qv_vendor_data_read_string(int position, int length, char *buffer);
// Writes length bytes: the text's first length characters, NUL-padded after
// its end (a text of length characters or more is stored unterminated).
int qv_vendor_data_write_string(int position, int length, const char *text);

#ifdef __cplusplus
}
#endif

#endif  // QV_VENDOR_DATA_H
