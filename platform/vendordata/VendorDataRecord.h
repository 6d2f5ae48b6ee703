// The vendor-data record in memory and its file image. The image is a header
// (magic, version, record size, CRC-32 of everything after the header), the
// record's bytes and a bitmap of the bytes ever written, so a read of a byte
// never written can fail instead of returning a made-up zero.
#ifndef VENDOR_DATA_RECORD_H
#define VENDOR_DATA_RECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

class VendorDataRecord {
public:
    static constexpr int kSize = 1024;
    static constexpr size_t kHeaderSize = 16;
    static constexpr size_t kImageSize = kHeaderSize + kSize + kSize / 8;
    using Image = std::array<uint8_t, kImageSize>;

    // True when [position, position + length) lies inside the record.
    static bool inRange(int position, int length);

    // Replaces the record with the one in a file image of size bytes. On a
    // damaged image returns false, says why in problem and leaves the record
    // empty.
    bool parse(const uint8_t *image, size_t size, std::string *problem);
    void toImage(Image *image) const;

    // Copies length bytes at position to out; false when any of them was never
    // written. The range must be inRange.
    bool read(int position, int length, uint8_t *out) const;
    void write(int position, int length, const uint8_t *bytes);

private:
    void clear();

    std::array<uint8_t, kSize> mBytes{};
    std::array<uint8_t, kSize / 8> mWritten{};
};

#endif  // VENDOR_DATA_RECORD_H
