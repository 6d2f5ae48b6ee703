#include "qv_vendor_data.h"

#define LOG_TAG "VendorData"

#include <log/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "VendorDataRecord.h"
#include "VendorDataStore.h"

namespace {

constexpr int kMaxIntLength = 4;

bool isIntLength(int length) {
    if (length >= 1 && length <= kMaxIntLength) {
        return true;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                        "Vendor data: integer length %d is not 1 to 4 bytes", length);
    return false;
}

VendorDataStore store() {
    return VendorDataStore(VendorDataStore::configuredPath());
}

}  // namespace

int qv_vendor_data_read_int(int position, int length, int *value) {
    if (!isIntLength(length)) {
        return -EINVAL;
    }
    uint8_t bytes[kMaxIntLength] = {};
    int result = store().read(position, length, value != nullptr ? bytes : nullptr);
    if (result != 0) {
        return result;
    }
    uint32_t raw = 0;
    for (int i = 0; i < length; ++i) {
        raw |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    }
    // Sign-extend so a -1 "unset" marker written with 4 bytes reads back as -1
    // through the 2-byte reads of the service.
    const int unusedBits = 8 * (kMaxIntLength - length);
    *value = static_cast<int32_t>(raw << unusedBits) >> unusedBits;
    return 0;
}

int qv_vendor_data_write_int(int position, int length, int value) {
    if (!isIntLength(length)) {
        return -EINVAL;
    }
    uint8_t bytes[kMaxIntLength];
    for (int i = 0; i < kMaxIntLength; ++i) {
        bytes[i] = static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * i));
    }
    return store().write(position, length, bytes);
}

int qv_vendor_data_read_bool(int position, bool *value) {
    uint8_t byte = 0;
    int result = store().read(position, 1, value != nullptr ? &byte : nullptr);
    if (result == 0) {
        *value = byte != 0;
    }
    return result;
}

int qv_vendor_data_write_bool(int position, bool value) {
    const uint8_t byte = value ? 1 : 0;
    return store().write(position, 1, &byte);
}

int qv_vendor_data_read_string(int position, int length, char *buffer) {
    return store().read(position, length, reinterpret_cast<uint8_t *>(buffer));
}

int qv_vendor_data_write_string(int position, int length, const char *text) {
    uint8_t bytes[VendorDataRecord::kSize] = {};
    if (text != nullptr && length > 0) {
        memcpy(bytes, text, strnlen(text, std::min(static_cast<size_t>(length), sizeof(bytes))));
    }
    return store().write(position, length, text != nullptr ? bytes : nullptr);
}
