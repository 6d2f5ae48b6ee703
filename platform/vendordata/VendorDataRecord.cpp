#include "VendorDataRecord.h"

#include <cstring>

namespace {

constexpr uint8_t kMagic[4] = {'Q', 'V', 'V', 'D'};
constexpr uint32_t kVersion = 1;
constexpr size_t kVersionOffset = 4;
constexpr size_t kSizeOffset = 8;
constexpr size_t kChecksumOffset = 12;

// CRC-32 (IEEE 802.3, reflected), bitwise: the image is about a kilobyte and
// written rarely, so a table buys nothing.
uint32_t crc32(const uint8_t *data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
        }
    }
    return ~crc;
}

uint32_t loadLittleEndian(const uint8_t *bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void storeLittleEndian(uint32_t value, uint8_t *bytes) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

}  // namespace

bool VendorDataRecord::inRange(int position, int length) {
    return position >= 0 && length > 0 && position <= kSize && length <= kSize - position;
}

bool VendorDataRecord::parse(const uint8_t *image, size_t size, std::string *problem) {
    clear();
    if (size != kImageSize) {
        *problem = "wrong size: " + std::to_string(size) + " bytes, expected " +
                   std::to_string(kImageSize);
        return false;
    }
    if (memcmp(image, kMagic, sizeof(kMagic)) != 0) {
        *problem = "bad magic";
        return false;
    }
    if (loadLittleEndian(image + kVersionOffset) != kVersion ||
        loadLittleEndian(image + kSizeOffset) != static_cast<uint32_t>(kSize)) {
        *problem = "unknown version or record size";
        return false;
    }
    if (loadLittleEndian(image + kChecksumOffset) !=
        crc32(image + kHeaderSize, kImageSize - kHeaderSize)) {
        *problem = "bad checksum";
        return false;
    }
    memcpy(mBytes.data(), image + kHeaderSize, mBytes.size());
    memcpy(mWritten.data(), image + kHeaderSize + mBytes.size(), mWritten.size());
    return true;
}

void VendorDataRecord::toImage(Image *image) const {
    uint8_t *out = image->data();
    memcpy(out, kMagic, sizeof(kMagic));
    storeLittleEndian(kVersion, out + kVersionOffset);
    storeLittleEndian(kSize, out + kSizeOffset);
    memcpy(out + kHeaderSize, mBytes.data(), mBytes.size());
    memcpy(out + kHeaderSize + mBytes.size(), mWritten.data(), mWritten.size());
    storeLittleEndian(crc32(out + kHeaderSize, kImageSize - kHeaderSize), out + kChecksumOffset);
}

bool VendorDataRecord::read(int position, int length, uint8_t *out) const {
    for (int i = position; i < position + length; ++i) {
        if ((mWritten[i / 8] & (1u << (i % 8))) == 0) {
            return false;
        }
    }
    memcpy(out, mBytes.data() + position, length);
    return true;
}

void VendorDataRecord::write(int position, int length, const uint8_t *bytes) {
    memcpy(mBytes.data() + position, bytes, length);
    for (int i = position; i < position + length; ++i) {
        mWritten[i / 8] |= static_cast<uint8_t>(1u << (i % 8));
    }
}

void VendorDataRecord::clear() {
    mBytes.fill(0);
    mWritten.fill(0);
}
