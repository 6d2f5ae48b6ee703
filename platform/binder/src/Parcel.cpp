#define LOG_TAG "DVRBinder"

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <log/log.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace android {

namespace {

// Precedes the descriptor in an interface token, so a call that starts with
// anything else is refused before its descriptor is even compared.
constexpr int32_t kInterfaceTokenMarker = static_cast<int32_t>(B_PACK_CHARS('I', 'T', 'O', 'K'));
constexpr int32_t kNullLength = -1;
// Keeps size arithmetic far from overflow; the transport's limit is far lower.
constexpr size_t kMaxWriteSize = std::numeric_limits<int32_t>::max();

size_t padded(size_t len) {
    return (len + 3) & ~size_t(3);
}

}  // namespace

Parcel::Parcel() = default;
Parcel::~Parcel() = default;

status_t Parcel::setDataSize(size_t size) {
    if (size > kMaxWriteSize) {
        return BAD_VALUE;
    }
    mData.resize(size);
    mPosition = std::min(mPosition, size);
    mObjects.erase(
        std::remove_if(mObjects.begin(), mObjects.end(),
                       [size](const Object &o) { return o.offset + kObjectSize > size; }),
        mObjects.end());
    return OK;
}

void Parcel::setDataPosition(size_t position) const {
    mPosition = std::min(position, mData.size());
}

status_t Parcel::setDataCapacity(size_t capacity) {
    if (capacity > kMaxWriteSize) {
        return BAD_VALUE;
    }
    mData.reserve(capacity);
    return OK;
}

status_t Parcel::setData(const uint8_t *buffer, size_t len) {
    if (len > kMaxWriteSize || (buffer == nullptr && len != 0)) {
        return BAD_VALUE;
    }
    mData.assign(buffer, buffer + len);
    mObjects.clear();
    mPosition = 0;
    return OK;
}

void Parcel::freeData() {
    std::vector<uint8_t>().swap(mData);
    mObjects.clear();
    mPosition = 0;
}

void Parcel::adopt(std::vector<uint8_t> &&data, std::vector<Object> &&objects) {
    mData = std::move(data);
    mObjects = std::move(objects);
    mPosition = 0;
}

uint8_t *Parcel::growFor(size_t len) {
    if (len > kMaxWriteSize || mPosition + padded(len) > kMaxWriteSize) {
        return nullptr;
    }
    const size_t end = mPosition + padded(len);
    if (end > mData.size()) {
        mData.resize(end);
    }
    uint8_t *out = mData.data() + mPosition;
    std::memset(out + len, 0, padded(len) - len);
    mPosition = end;
    return out;
}

const uint8_t *Parcel::consume(size_t len) const {
    if (len > mData.size() || padded(len) > mData.size() - mPosition) {
        return nullptr;
    }
    const uint8_t *in = mData.data() + mPosition;
    mPosition += padded(len);
    return in;
}

status_t Parcel::write(const void *data, size_t len) {
    // Nothing to append; an empty parcel has no storage to point into yet.
    if (len == 0) {
        return OK;
    }
    uint8_t *out = growFor(len);
    if (out == nullptr || data == nullptr) {
        return BAD_VALUE;
    }
    std::memcpy(out, data, len);
    return OK;
}

void *Parcel::writeInplace(size_t len) {
    return growFor(len);
}

template <typename T>
status_t Parcel::writePlain(T value) {
    return write(&value, sizeof(value));
}

template <typename T>
status_t Parcel::readPlain(T *value) const {
    const uint8_t *in = consume(sizeof(T));
    if (in == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    std::memcpy(value, in, sizeof(T));
    return OK;
}

status_t Parcel::writeInt32(int32_t value) {
    return writePlain(value);
}
status_t Parcel::writeUint32(uint32_t value) {
    return writePlain(value);
}
status_t Parcel::writeInt64(int64_t value) {
    return writePlain(value);
}
status_t Parcel::writeUint64(uint64_t value) {
    return writePlain(value);
}
status_t Parcel::writeFloat(float value) {
    return writePlain(value);
}
status_t Parcel::writeDouble(double value) {
    return writePlain(value);
}
status_t Parcel::writeBool(bool value) {
    return writeInt32(value ? 1 : 0);
}
status_t Parcel::writeNoException() {
    return writeInt32(0);
}

// Length (or kNullLength), then that many bytes.
status_t Parcel::writeLengthPrefixed(const void *bytes, int32_t count) {
    const size_t start = mPosition;
    status_t status = writeInt32(bytes == nullptr ? kNullLength : count);
    if (status != OK || bytes == nullptr) {
        return status;
    }
    status = write(bytes, static_cast<size_t>(count));
    if (status != OK) {
        setDataPosition(start);
    }
    return status;
}

status_t Parcel::writeCString(const char *str) {
    if (str == nullptr) {
        return writeInt32(kNullLength);
    }
    const size_t len = std::strlen(str);
    if (len >= kMaxWriteSize) {
        return BAD_VALUE;
    }
    return writeLengthPrefixed(str, static_cast<int32_t>(len + 1));
}

status_t Parcel::writeString8(const String8 &str) {
    return writeCString(str.string());
}

status_t Parcel::writeString16(const String16 &str) {
    return writeString16(str.string(), str.size());
}

status_t Parcel::writeString16(const std::unique_ptr<String16> &str) {
    if (!str) {
        return writeInt32(kNullLength);
    }
    return writeString16(*str);
}

status_t Parcel::writeString16(const char16_t *str, size_t len) {
    if (str == nullptr) {
        return writeInt32(kNullLength);
    }
    if (len >= kMaxWriteSize / sizeof(char16_t)) {
        return BAD_VALUE;
    }
    const size_t start = mPosition;
    status_t status = writeInt32(static_cast<int32_t>(len));
    uint8_t *out = status == OK ? growFor((len + 1) * sizeof(char16_t)) : nullptr;
    if (out == nullptr) {
        setDataPosition(start);
        return BAD_VALUE;
    }
    std::memcpy(out, str, len * sizeof(char16_t));
    std::memset(out + len * sizeof(char16_t), 0, sizeof(char16_t));
    return OK;
}

status_t Parcel::writeByteArray(size_t len, const uint8_t *val) {
    if (len > kMaxWriteSize) {
        return BAD_VALUE;
    }
    return writeLengthPrefixed(val, static_cast<int32_t>(len));
}

status_t Parcel::writeByteVector(const std::vector<int8_t> &val) {
    static const uint8_t kEmpty = 0;
    return writeByteArray(val.size(),
                          val.empty() ? &kEmpty : reinterpret_cast<const uint8_t *>(val.data()));
}

status_t Parcel::writeByteVector(const std::vector<uint8_t> &val) {
    static const uint8_t kEmpty = 0;
    return writeByteArray(val.size(), val.empty() ? &kEmpty : val.data());
}

status_t Parcel::writeStrongBinder(const sp<IBinder> &val) {
    const size_t offset = mPosition;
    uint8_t *out = growFor(kObjectSize);
    if (out == nullptr) {
        return BAD_VALUE;
    }
    const uint32_t record[4] = {val == nullptr ? kNullObject : kObject, 0, 0, 0};
    std::memcpy(out, record, sizeof(record));
    auto at = std::lower_bound(mObjects.begin(), mObjects.end(), offset,
                               [](const Object &o, size_t off) { return o.offset < off; });
    if (at != mObjects.end() && at->offset == offset) {
        at = mObjects.erase(at);
    }
    if (val != nullptr) {
        mObjects.insert(at, Object{offset, val});
    }
    return OK;
}

status_t Parcel::writeInterfaceToken(const String16 &interface) {
    status_t status = writeInt32(kInterfaceTokenMarker);
    return status == OK ? writeString16(interface) : status;
}

bool Parcel::enforceInterface(const String16 &interface, IPCThreadState *) const {
    int32_t marker = 0;
    if (readInt32(&marker) != OK || marker != kInterfaceTokenMarker) {
        ALOGW("Refused call: no interface token, expected '%s'", String8(interface).string());
        return false;
    }
    size_t len = 0;
    const char16_t *token = readString16Inplace(&len);
    if (token == nullptr || len != interface.size() ||
        std::memcmp(token, interface.string(), len * sizeof(char16_t)) != 0) {
        ALOGW("Refused call: interface token '%s', expected '%s'",
              token == nullptr ? "(none)" : String8(token, len).string(),
              String8(interface).string());
        return false;
    }
    return true;
}

bool Parcel::checkInterface(IBinder *binder) const {
    return binder != nullptr && enforceInterface(binder->getInterfaceDescriptor());
}

status_t Parcel::read(void *outData, size_t len) const {
    const uint8_t *in = consume(len);
    if (in == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    if (len != 0) {
        std::memcpy(outData, in, len);
    }
    return OK;
}

const void *Parcel::readInplace(size_t len) const {
    return consume(len);
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    return readInt32(&value) == OK ? value : 0;
}
status_t Parcel::readInt32(int32_t *pArg) const {
    return readPlain(pArg);
}
uint32_t Parcel::readUint32() const {
    uint32_t value = 0;
    return readUint32(&value) == OK ? value : 0;
}
status_t Parcel::readUint32(uint32_t *pArg) const {
    return readPlain(pArg);
}
int64_t Parcel::readInt64() const {
    int64_t value = 0;
    return readInt64(&value) == OK ? value : 0;
}
status_t Parcel::readInt64(int64_t *pArg) const {
    return readPlain(pArg);
}
uint64_t Parcel::readUint64() const {
    uint64_t value = 0;
    return readUint64(&value) == OK ? value : 0;
}
status_t Parcel::readUint64(uint64_t *pArg) const {
    return readPlain(pArg);
}
float Parcel::readFloat() const {
    float value = 0;
    return readFloat(&value) == OK ? value : 0;
}
status_t Parcel::readFloat(float *pArg) const {
    return readPlain(pArg);
}
double Parcel::readDouble() const {
    double value = 0;
    return readDouble(&value) == OK ? value : 0;
}
status_t Parcel::readDouble(double *pArg) const {
    return readPlain(pArg);
}
bool Parcel::readBool() const {
    return readInt32() != 0;
}
status_t Parcel::readBool(bool *pArg) const {
    int32_t value = 0;
    status_t status = readInt32(&value);
    if (status == OK) {
        *pArg = value != 0;
    }
    return status;
}

int32_t Parcel::readExceptionCode() const {
    return readInt32();
}

// Returns the bytes after the length, null for a null value (count
// kNullLength) or on error (count 0); on error the position is unchanged.
const uint8_t *Parcel::readLengthPrefixed(int32_t *count) const {
    const size_t start = mPosition;
    *count = 0;
    int32_t length = 0;
    if (readInt32(&length) != OK) {
        return nullptr;
    }
    if (length == kNullLength) {
        *count = kNullLength;
        return nullptr;
    }
    const uint8_t *in = length < 0 ? nullptr : consume(static_cast<size_t>(length));
    if (in == nullptr) {
        setDataPosition(start);
        return nullptr;
    }
    *count = length;
    return in;
}

const char *Parcel::readCString() const {
    const size_t start = mPosition;
    int32_t count = 0;
    const uint8_t *in = readLengthPrefixed(&count);
    if (in == nullptr) {
        return nullptr;
    }
    // The length counts the terminator; a string without one is malformed.
    if (count == 0 || in[count - 1] != 0) {
        setDataPosition(start);
        return nullptr;
    }
    return reinterpret_cast<const char *>(in);
}

String8 Parcel::readString8() const {
    String8 value;
    readString8(&value);
    return value;
}

status_t Parcel::readString8(String8 *pArg) const {
    const size_t start = mPosition;
    int32_t length = 0;
    if (readInt32(&length) != OK) {
        return NOT_ENOUGH_DATA;
    }
    if (length == kNullLength) {
        return UNEXPECTED_NULL;
    }
    setDataPosition(start);
    const char *str = readCString();
    if (str == nullptr) {
        return BAD_VALUE;
    }
    *pArg = String8(str);
    return OK;
}

const char16_t *Parcel::readString16Inplace(size_t *outLen) const {
    const size_t start = mPosition;
    *outLen = 0;
    int32_t length = 0;
    if (readInt32(&length) != OK || length < 0 ||
        static_cast<size_t>(length) >= kMaxWriteSize / sizeof(char16_t)) {
        setDataPosition(start);
        return nullptr;
    }
    const uint8_t *in = consume((static_cast<size_t>(length) + 1) * sizeof(char16_t));
    char16_t terminator = 1;
    if (in != nullptr) {
        std::memcpy(&terminator, in + length * sizeof(char16_t), sizeof(terminator));
    }
    if (terminator != 0) {
        setDataPosition(start);
        return nullptr;
    }
    *outLen = static_cast<size_t>(length);
    return reinterpret_cast<const char16_t *>(in);
}

String16 Parcel::readString16() const {
    String16 value;
    readString16(&value);
    return value;
}

status_t Parcel::readString16(String16 *pArg) const {
    std::unique_ptr<String16> value;
    status_t status = readString16(&value);
    if (status == OK) {
        if (!value) {
            return UNEXPECTED_NULL;
        }
        *pArg = *value;
    }
    return status;
}

status_t Parcel::readString16(std::unique_ptr<String16> *pArg) const {
    const size_t start = mPosition;
    int32_t length = 0;
    if (readInt32(&length) != OK) {
        return NOT_ENOUGH_DATA;
    }
    if (length == kNullLength) {
        pArg->reset();
        return OK;
    }
    setDataPosition(start);
    size_t len = 0;
    const char16_t *str = readString16Inplace(&len);
    if (str == nullptr) {
        return BAD_VALUE;
    }
    pArg->reset(new String16(str, len));
    return OK;
}

template <typename Byte>
status_t Parcel::readBytes(std::vector<Byte> *val) const {
    int32_t count = 0;
    const uint8_t *in = readLengthPrefixed(&count);
    if (in == nullptr) {
        return count == kNullLength ? UNEXPECTED_NULL : BAD_VALUE;
    }
    val->assign(reinterpret_cast<const Byte *>(in), reinterpret_cast<const Byte *>(in) + count);
    return OK;
}

status_t Parcel::readByteVector(std::vector<int8_t> *val) const {
    return readBytes(val);
}

status_t Parcel::readByteVector(std::vector<uint8_t> *val) const {
    return readBytes(val);
}

status_t Parcel::readByteVector(std::unique_ptr<std::vector<uint8_t>> *val) const {
    auto bytes = std::make_unique<std::vector<uint8_t>>();
    status_t status = readBytes(bytes.get());
    if (status == UNEXPECTED_NULL) {
        val->reset();
        return OK;
    }
    if (status == OK) {
        *val = std::move(bytes);
    }
    return status;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> val;
    readNullableStrongBinder(&val);
    return val;
}

status_t Parcel::readStrongBinder(sp<IBinder> *val) const {
    status_t status = readNullableStrongBinder(val);
    return status == OK && *val == nullptr ? UNEXPECTED_NULL : status;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder> *val) const {
    const size_t offset = mPosition;
    uint32_t type = 0;
    const uint8_t *in = consume(kObjectSize);
    if (in == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    std::memcpy(&type, in, sizeof(type));
    if (type == kNullObject) {
        *val = nullptr;
        return OK;
    }
    // Only the transport creates objects: data that merely looks like one is
    // not a binder.
    auto at = std::lower_bound(mObjects.begin(), mObjects.end(), offset,
                               [](const Object &o, size_t off) { return o.offset < off; });
    if (type != kObject || at == mObjects.end() || at->offset != offset) {
        setDataPosition(offset);
        return BAD_TYPE;
    }
    *val = at->binder;
    return OK;
}

}  // namespace android
