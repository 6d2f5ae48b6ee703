// Parcel: the flat buffer that carries a transaction's arguments and results.
// Values are written and read in the same order, each 4-byte aligned. Every
// read checks bounds and returns an error status (NOT_ENOUGH_DATA past the
// end, BAD_VALUE for a malformed value, BAD_TYPE when a binder is read where
// none was written) instead of reading past the end; the value-returning
// forms return 0, false, null or an empty string on error. A Parcel is used by
// one thread at a time.
#ifndef DVR_BINDER_PARCEL_H
#define DVR_BINDER_PARCEL_H

#include <binder/IBinder.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace android {

class IPCThreadState;

class Parcel {
public:
    // One binder reference inside the data; the transport fills `binder`.
    struct Object {
        size_t offset;
        sp<IBinder> binder;
    };

    Parcel();
    ~Parcel();

    const uint8_t *data() const { return mData.data(); }
    size_t dataSize() const { return mData.size(); }
    size_t dataAvail() const { return mData.size() - mPosition; }
    size_t dataPosition() const { return mPosition; }
    size_t dataCapacity() const { return mData.capacity(); }

    // Cuts or zero-extends the data; the position stays inside it.
    status_t setDataSize(size_t size);
    // Positions past the end are clamped to the end.
    void setDataPosition(size_t position) const;
    status_t setDataCapacity(size_t capacity);
    // Replaces the contents with a copy of `buffer` (no binder objects) and
    // rewinds.
    status_t setData(const uint8_t *buffer, size_t len);
    void freeData();

    size_t objectsCount() const { return mObjects.size(); }
    const std::vector<Object> &objects() const { return mObjects; }
    // Transport use: adopts received data and its binder objects.
    void adopt(std::vector<uint8_t> &&data, std::vector<Object> &&objects);

    status_t writeInterfaceToken(const String16 &interface);
    // True when the next value is the token of `interface`; logs otherwise.
    bool enforceInterface(const String16 &interface, IPCThreadState *threadState = nullptr) const;
    bool checkInterface(IBinder *binder) const;

    status_t write(const void *data, size_t len);
    void *writeInplace(size_t len);
    status_t writeInt32(int32_t value);
    status_t writeUint32(uint32_t value);
    status_t writeInt64(int64_t value);
    status_t writeUint64(uint64_t value);
    status_t writeFloat(float value);
    status_t writeDouble(double value);
    status_t writeBool(bool value);
    // Null is kept apart from the empty string.
    status_t writeCString(const char *str);
    status_t writeString8(const String8 &str);
    status_t writeString16(const String16 &str);
    status_t writeString16(const std::unique_ptr<String16> &str);
    status_t writeString16(const char16_t *str, size_t len);
    // A null `val` is read back as a null vector.
    status_t writeByteArray(size_t len, const uint8_t *val);
    status_t writeByteVector(const std::vector<int8_t> &val);
    status_t writeByteVector(const std::vector<uint8_t> &val);
    status_t writeStrongBinder(const sp<IBinder> &val);
    status_t writeNoException();

    status_t read(void *outData, size_t len) const;
    const void *readInplace(size_t len) const;
    int32_t readInt32() const;
    status_t readInt32(int32_t *pArg) const;
    uint32_t readUint32() const;
    status_t readUint32(uint32_t *pArg) const;
    int64_t readInt64() const;
    status_t readInt64(int64_t *pArg) const;
    uint64_t readUint64() const;
    status_t readUint64(uint64_t *pArg) const;
    float readFloat() const;
    status_t readFloat(float *pArg) const;
    double readDouble() const;
    status_t readDouble(double *pArg) const;
    bool readBool() const;
    status_t readBool(bool *pArg) const;
    // Points into the parcel; null for a null string or on error.
    const char *readCString() const;
    String8 readString8() const;
    status_t readString8(String8 *pArg) const;
    String16 readString16() const;
    // UNEXPECTED_NULL for a null string.
    status_t readString16(String16 *pArg) const;
    status_t readString16(std::unique_ptr<String16> *pArg) const;
    // Points into the parcel; null for a null string or on error.
    const char16_t *readString16Inplace(size_t *outLen) const;
    // UNEXPECTED_NULL for a null array.
    status_t readByteVector(std::vector<int8_t> *val) const;
    status_t readByteVector(std::vector<uint8_t> *val) const;
    status_t readByteVector(std::unique_ptr<std::vector<uint8_t>> *val) const;
    sp<IBinder> readStrongBinder() const;
    // UNEXPECTED_NULL for a null binder.
    status_t readStrongBinder(sp<IBinder> *val) const;
    status_t readNullableStrongBinder(sp<IBinder> *val) const;
    // 0 after writeNoException.
    int32_t readExceptionCode() const;

    // Size of one binder reference in the data.
    static constexpr size_t kObjectSize = 16;
    // Type word of a binder reference: null, or an object listed in objects().
    static constexpr uint32_t kNullObject = 0;
    static constexpr uint32_t kObject = 1;

private:
    Parcel(const Parcel &) = delete;
    Parcel &operator=(const Parcel &) = delete;

    uint8_t *growFor(size_t len);
    const uint8_t *consume(size_t len) const;
    status_t writeLengthPrefixed(const void *bytes, int32_t count);
    const uint8_t *readLengthPrefixed(int32_t *count) const;
    template <typename T>
    status_t writePlain(T value);
    template <typename T>
    status_t readPlain(T *value) const;
    template <typename Byte>
    status_t readBytes(std::vector<Byte> *val) const;

    std::vector<uint8_t> mData;
    mutable size_t mPosition = 0;
    std::vector<Object> mObjects;
};

}  // namespace android

#endif  // DVR_BINDER_PARCEL_H
