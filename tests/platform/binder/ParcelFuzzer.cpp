// libFuzzer entry point for Parcel reading. The first byte gives the number
// of read operations, the next bytes choose them, the rest is the parcel's
// data. Every read must stay inside the data and leave the position there.
#include <binder/IBinder.h>
#include <binder/Parcel.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using android::Parcel;

void readOne(const Parcel &parcel, uint8_t op) {
    switch (op % 20) {
        case 0:
            parcel.readInt32();
            break;
        case 1:
            parcel.readInt64();
            break;
        case 2:
            parcel.readCString();
            break;
        case 3:
            parcel.readString8();
            break;
        case 4:
            parcel.readString16();
            break;
        case 5: {
            std::unique_ptr<android::String16> text;
            parcel.readString16(&text);
            break;
        }
        case 6: {
            size_t len = 0;
            const char16_t *text = parcel.readString16Inplace(&len);
            // Touch every unit, so an overread shows.
            volatile char16_t sink = 0;
            for (size_t i = 0; text != nullptr && i <= len; ++i) {
                sink = text[i];
            }
            (void)sink;
            break;
        }
        case 7: {
            std::vector<uint8_t> bytes;
            parcel.readByteVector(&bytes);
            break;
        }
        case 8: {
            std::unique_ptr<std::vector<uint8_t>> bytes;
            parcel.readByteVector(&bytes);
            break;
        }
        case 9:
            parcel.readStrongBinder();
            break;
        case 10: {
            android::sp<android::IBinder> binder;
            parcel.readNullableStrongBinder(&binder);
            break;
        }
        case 11:
            parcel.enforceInterface(android::String16("dvr.fuzz.IFuzz"));
            break;
        case 12:
            parcel.readBool();
            break;
        case 13:
            parcel.readFloat();
            break;
        case 14:
            parcel.readDouble();
            break;
        case 15: {
            const size_t len = op / 20 * 3;
            const uint8_t *bytes = static_cast<const uint8_t *>(parcel.readInplace(len));
            volatile uint8_t sink = 0;
            for (size_t i = 0; bytes != nullptr && i < len; ++i) {
                sink = bytes[i];
            }
            (void)sink;
            break;
        }
        case 16:
            parcel.setDataPosition(op * 4u);
            break;
        case 17: {
            uint8_t out[16];
            parcel.read(out, op % sizeof(out));
            break;
        }
        case 18:
            parcel.readExceptionCode();
            break;
        default:
            parcel.readUint64();
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t opCount = std::min<size_t>(data[0] % 32, size - 1);
    const uint8_t *ops = data + 1;
    Parcel parcel;
    parcel.setData(ops + opCount, size - 1 - opCount);
    for (size_t i = 0; i < opCount; ++i) {
        readOne(parcel, ops[i]);
        if (parcel.dataPosition() > parcel.dataSize()) {
            std::abort();
        }
    }
    return 0;
}
