// Vendor-data store: one persistent record of bytes addressed by position.
// Integers are little-endian with a byte length of 1 to 4; a write of length 4
// at 242 followed by one at 244 leaves the second value's bytes at 244..247 and
// the first value's low two bytes at 242..243. Every operation returns 0 on
// success and non-zero on failure; reading a byte never written fails.
// Writes are durable and atomic: when a write returns the value survives a
// power cut, and a process killed at any instant leaves every position with its
// old or its new value. Any thread; operations are serialised inside.
// On a PC the record lives in the file named by DVR_VENDOR_DATA.
#ifndef QV_VENDOR_DATA_H
#define QV_VENDOR_DATA_H

#ifdef __cplusplus
extern "C" {
#endif

int qv_vendor_data_read_int(int position, int length, int *value);
int qv_vendor_data_write_int(int position, int length, int value);
int qv_vendor_data_read_bool(int position, bool *value);
int qv_vendor_data_write_bool(int position, bool value);
// Reads length bytes into buffer (which holds length bytes; the stored text is
// NUL-terminated within them when it is shorter).
int qv_vendor_data_read_string(int position, int length, char *buffer);
// Writes length bytes of text, NUL-padded after its end.
int qv_vendor_data_write_string(int position, int length, const char *text);

#ifdef __cplusplus
}
#endif

#endif  // QV_VENDOR_DATA_H
