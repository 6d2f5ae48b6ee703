#include "LogCapture.h"
#include "TestService.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <cstring>

namespace dvrtest {
namespace {

using android::BAD_TYPE;
using android::BAD_VALUE;
using android::IBinder;
using android::NOT_ENOUGH_DATA;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::String8;
using android::UNEXPECTED_NULL;

TEST(Parcel, IntegersFloatsAndBoolsRoundTrip) {
    Parcel parcel;
    parcel.writeInt32(-5);
    parcel.writeUint32(0xffffffffu);
    parcel.writeInt64(-9000000000LL);
    parcel.writeUint64(0x8000000000000001ULL);
    parcel.writeFloat(3.25f);
    parcel.writeDouble(1e300);
    parcel.writeBool(true);
    parcel.writeBool(false);
    EXPECT_EQ(parcel.dataSize(), 4u + 4 + 8 + 8 + 4 + 8 + 4 + 4);
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readInt32(), -5);
    EXPECT_EQ(parcel.readUint32(), 0xffffffffu);
    EXPECT_EQ(parcel.readInt64(), -9000000000LL);
    EXPECT_EQ(parcel.readUint64(), 0x8000000000000001ULL);
    EXPECT_EQ(parcel.readFloat(), 3.25f);
    EXPECT_EQ(parcel.readDouble(), 1e300);
    EXPECT_TRUE(parcel.readBool());
    EXPECT_FALSE(parcel.readBool());
    EXPECT_EQ(parcel.dataAvail(), 0u);
}

TEST(Parcel, StringsKeepNullApartFromEmpty) {
    Parcel parcel;
    parcel.writeCString("");
    parcel.writeCString(nullptr);
    parcel.writeCString("text");
    parcel.writeString16(String16(""));
    parcel.writeString16(std::unique_ptr<String16>());
    parcel.writeString16(String16("wide"));
    parcel.writeString8(String8("eight"));
    parcel.setDataPosition(0);
    EXPECT_STREQ(parcel.readCString(), "");
    EXPECT_EQ(parcel.readCString(), nullptr);
    EXPECT_STREQ(parcel.readCString(), "text");
    std::unique_ptr<String16> value;
    ASSERT_EQ(parcel.readString16(&value), OK);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->size(), 0u);
    String16 plain;
    EXPECT_EQ(parcel.readString16(&plain), UNEXPECTED_NULL);
    EXPECT_EQ(parcel.readString16(), String16("wide"));
    EXPECT_EQ(parcel.readString8(), String8("eight"));
}

TEST(Parcel, ByteArraysKeepNullApartFromEmpty) {
    Parcel parcel;
    parcel.writeByteVector(std::vector<uint8_t>{1, 2, 3});
    parcel.writeByteVector(std::vector<int8_t>{});
    parcel.writeByteArray(0, nullptr);
    parcel.setDataPosition(0);
    std::vector<uint8_t> bytes;
    ASSERT_EQ(parcel.readByteVector(&bytes), OK);
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2, 3}));
    std::vector<int8_t> empty{9};
    ASSERT_EQ(parcel.readByteVector(&empty), OK);
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(parcel.readByteVector(&bytes), UNEXPECTED_NULL);
}

TEST(Parcel, ReadingPastTheEndFailsAndKeepsThePosition) {
    Parcel parcel;
    parcel.writeInt32(7);
    parcel.setDataPosition(0);
    int64_t wide = 99;
    EXPECT_EQ(parcel.readInt64(&wide), NOT_ENOUGH_DATA);
    EXPECT_EQ(wide, 99);
    EXPECT_EQ(parcel.dataPosition(), 0u);
    EXPECT_EQ(parcel.readInt32(), 7);
    int32_t value = 42;
    EXPECT_EQ(parcel.readInt32(&value), NOT_ENOUGH_DATA);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(parcel.readInt32(), 0);
    EXPECT_EQ(parcel.readInplace(1), nullptr);
    EXPECT_EQ(parcel.readInplace(SIZE_MAX), nullptr);
    char out[4];
    EXPECT_EQ(parcel.read(out, sizeof(out)), NOT_ENOUGH_DATA);
}

TEST(Parcel, LengthsBeyondTheDataAreRejected) {
    Parcel parcel;
    parcel.writeInt32(1000);  // claims 1000 bytes, has 4
    parcel.writeInt32(0x41414141);
    for (int round = 0; round < 4; ++round) {
        parcel.setDataPosition(0);
        switch (round) {
            case 0:
                EXPECT_EQ(parcel.readCString(), nullptr);
                break;
            case 1: {
                size_t len = 5;
                EXPECT_EQ(parcel.readString16Inplace(&len), nullptr);
                EXPECT_EQ(len, 0u);
                break;
            }
            case 2: {
                std::vector<uint8_t> bytes;
                EXPECT_EQ(parcel.readByteVector(&bytes), BAD_VALUE);
                break;
            }
            default: {
                String8 text;
                EXPECT_EQ(parcel.readString8(&text), BAD_VALUE);
                break;
            }
        }
        EXPECT_EQ(parcel.dataPosition(), 0u);
    }
}

TEST(Parcel, NegativeAndHugeLengthsAreRejected) {
    for (int32_t length : {-2, INT32_MIN, INT32_MAX}) {
        Parcel parcel;
        parcel.writeInt32(length);
        parcel.writeInt32(0);
        parcel.setDataPosition(0);
        std::unique_ptr<String16> text;
        EXPECT_EQ(parcel.readString16(&text), BAD_VALUE) << length;
        parcel.setDataPosition(0);
        std::vector<uint8_t> bytes;
        EXPECT_EQ(parcel.readByteVector(&bytes), BAD_VALUE) << length;
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.readCString(), nullptr) << length;
    }
}

TEST(Parcel, StringsWithoutTerminatorAreRejected) {
    Parcel parcel;
    parcel.writeInt32(4);
    parcel.write("abcd", 4);  // a C string's length counts its terminator
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readCString(), nullptr);
    Parcel wide;
    wide.writeInt32(1);
    const char16_t unterminated[2] = {u'a', u'b'};
    wide.write(unterminated, sizeof(unterminated));
    wide.setDataPosition(0);
    String16 text;
    EXPECT_EQ(wide.readString16(&text), BAD_VALUE);
}

TEST(Parcel, BinderRoundTripsInProcessAndNullStaysNull) {
    sp<IBinder> service = new TestService();
    Parcel parcel;
    parcel.writeStrongBinder(service);
    parcel.writeStrongBinder(nullptr);
    EXPECT_EQ(parcel.objectsCount(), 1u);
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readStrongBinder(), service);
    sp<IBinder> none = service;
    EXPECT_EQ(parcel.readNullableStrongBinder(&none), OK);
    EXPECT_EQ(none, nullptr);
    parcel.setDataPosition(Parcel::kObjectSize);
    EXPECT_EQ(parcel.readStrongBinder(&none), UNEXPECTED_NULL);
}

TEST(Parcel, DataThatLooksLikeABinderIsNotOne) {
    Parcel parcel;
    const uint32_t forged[4] = {Parcel::kObject, 0, 1, 0};
    parcel.write(forged, sizeof(forged));
    parcel.setDataPosition(0);
    sp<IBinder> binder;
    EXPECT_EQ(parcel.readNullableStrongBinder(&binder), BAD_TYPE);
    EXPECT_EQ(binder, nullptr);
    EXPECT_EQ(parcel.dataPosition(), 0u);
    const uint32_t unknownType[4] = {77, 0, 0, 0};
    parcel.setData(reinterpret_cast<const uint8_t *>(unknownType), sizeof(unknownType));
    EXPECT_EQ(parcel.readNullableStrongBinder(&binder), BAD_TYPE);
}

TEST(Parcel, ShrinkingDropsObjectsBeyondTheEnd) {
    Parcel parcel;
    parcel.writeInt32(1);
    parcel.writeStrongBinder(new TestService());
    EXPECT_EQ(parcel.setDataSize(4), OK);
    EXPECT_EQ(parcel.objectsCount(), 0u);
    EXPECT_EQ(parcel.dataPosition(), 4u);
    parcel.setDataPosition(100);
    EXPECT_EQ(parcel.dataPosition(), 4u);
    parcel.freeData();
    EXPECT_EQ(parcel.dataSize(), 0u);
}

TEST(Parcel, OddSizedWritesArePaddedToFourBytes) {
    Parcel parcel;
    parcel.write("abc", 3);
    parcel.writeInt32(9);
    EXPECT_EQ(parcel.dataSize(), 8u);
    parcel.setDataPosition(0);
    const char *bytes = static_cast<const char *>(parcel.readInplace(3));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::memcmp(bytes, "abc", 3), 0);
    EXPECT_EQ(parcel.readInt32(), 9);
}

TEST(Parcel, InterfaceTokenIsEnforced) {
    LogCapture log;
    Parcel good;
    good.writeInterfaceToken(String16("dvrtest.IGood"));
    good.setDataPosition(0);
    EXPECT_TRUE(good.enforceInterface(String16("dvrtest.IGood")));
    good.setDataPosition(0);
    EXPECT_FALSE(good.enforceInterface(String16("dvrtest.IOther")));
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, "DVRBinder",
                             "Refused call: interface token 'dvrtest.IGood', expected "
                             "'dvrtest.IOther'"));
    Parcel none;
    none.writeInt32(5);
    none.setDataPosition(0);
    EXPECT_FALSE(none.enforceInterface(String16("dvrtest.IGood")));
    EXPECT_TRUE(log.contains(ANDROID_LOG_WARN, "DVRBinder",
                             "Refused call: no interface token, expected 'dvrtest.IGood'"));
}

TEST(Parcel, SetDataCopiesAndRewinds) {
    const uint8_t bytes[8] = {1, 0, 0, 0, 2, 0, 0, 0};
    Parcel parcel;
    parcel.writeInt32(77);
    ASSERT_EQ(parcel.setData(bytes, sizeof(bytes)), OK);
    EXPECT_EQ(parcel.dataPosition(), 0u);
    EXPECT_EQ(parcel.readInt32(), 1);
    EXPECT_EQ(parcel.readInt32(), 2);
    EXPECT_EQ(parcel.setData(nullptr, 4), BAD_VALUE);
}

TEST(Parcel, EmptyWriteIntoAnEmptyParcelSucceedsAndAddsNothing) {
    Parcel parcel;
    EXPECT_EQ(OK, parcel.write(nullptr, 0));
    EXPECT_EQ(0u, parcel.dataSize());
    const char byte = 'x';
    EXPECT_EQ(OK, parcel.write(&byte, 0));
    EXPECT_EQ(0u, parcel.dataSize());
    EXPECT_EQ(BAD_VALUE, parcel.write(nullptr, 4));
}

}  // namespace
}  // namespace dvrtest
