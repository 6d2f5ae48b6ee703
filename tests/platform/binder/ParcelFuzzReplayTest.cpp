// Runs the Parcel fuzz target on seeds and on pseudo-random inputs in every
// build, so it stays compiled and its checks run under ASan even where no
// clang builds the real fuzzer (scripts/fuzz).
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <random>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace dvrtest {
namespace {

std::vector<uint8_t> input(const std::vector<uint8_t> &ops, const android::Parcel &parcel) {
    std::vector<uint8_t> bytes{static_cast<uint8_t>(ops.size())};
    bytes.insert(bytes.end(), ops.begin(), ops.end());
    bytes.insert(bytes.end(), parcel.data(), parcel.data() + parcel.dataSize());
    return bytes;
}

TEST(ParcelFuzzReplay, SeedOfEveryValueKindIsReadSafely) {
    android::Parcel parcel;
    parcel.writeInterfaceToken(android::String16("dvr.fuzz.IFuzz"));
    parcel.writeInt32(1);
    parcel.writeInt64(2);
    parcel.writeCString("three");
    parcel.writeString8(android::String8("four"));
    parcel.writeString16(android::String16("five"));
    parcel.writeString16(std::unique_ptr<android::String16>());
    parcel.writeString16(android::String16("seven"));
    parcel.writeByteVector(std::vector<uint8_t>{8, 8});
    parcel.writeByteArray(0, nullptr);
    parcel.writeStrongBinder(nullptr);
    parcel.writeStrongBinder(nullptr);
    const std::vector<uint8_t> seed = input({11, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, parcel);
    EXPECT_EQ(LLVMFuzzerTestOneInput(seed.data(), seed.size()), 0);
}

TEST(ParcelFuzzReplay, RandomInputsAreReadSafely) {
    std::mt19937 random(4);
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 200);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        // Small lengths, so that length-prefixed reads find their data.
        for (size_t i = 33; i + 4 <= bytes.size(); i += 4 + random() % 8) {
            if (random() % 2 == 0) {
                bytes[i + 1] = bytes[i + 2] = bytes[i + 3] = 0;
            }
        }
        ASSERT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
    }
}

}  // namespace
}  // namespace dvrtest
