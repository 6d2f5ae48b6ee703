// Runs the onTransact fuzz target on real requests of every IDVR operation and
// on pseudo-random inputs in every build, so it stays compiled and its checks
// run under ASan even where no clang builds the real fuzzer.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <random>

#include "IDVR.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

// Keeps the request of every call as a fuzz input: stub byte 0 (BnDVR, the
// token is already in the request), the code's offset, the request's bytes.
class RequestRecorder : public android::BBinder {
public:
    std::vector<std::vector<uint8_t>> inputs;

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *,
                                 uint32_t) override {
        std::vector<uint8_t> input{
            0, static_cast<uint8_t>(code - android::IBinder::FIRST_CALL_TRANSACTION)};
        input.insert(input.end(), data.data(), data.data() + data.dataSize());
        inputs.push_back(std::move(input));
        return android::UNKNOWN_TRANSACTION;
    }
};

}  // namespace

TEST(InterfaceFuzzReplay, RealRequestsOfSeveralOperationsAreServedSafely) {
    using namespace dvrspace;
    const android::sp<RequestRecorder> recorder = new RequestRecorder;
    const android::sp<IDVR> proxy = new BpDVR(recorder);
    int id = 0;
    QVDVRDeviceType_e type{};
    QVStampSettings_t stamp = {true, 1, 2, QV_DVR_STAMP_FONT_SIZE_SMALL, 3, 4};
    SnapshotPA_t snapshot{};
    proxy->registerCallback(1, 2, DVR_CBK_OBJ_STAMP);
    proxy->setCameraSources(2, {0, 1});
    proxy->getCamera(0, &id, &type);
    proxy->getCamera(0, nullptr, nullptr);
    proxy->nextFile(1, "/tmp/a.ts");
    proxy->setFileNameFormat(1, nullptr, "%Y");
    proxy->takeSnapshot(1, snapshot);
    proxy->setTimestamp(1, &stamp);
    proxy->setSamplingRate(1, 48000);
    ASSERT_EQ(9u, recorder->inputs.size());
    for (const std::vector<uint8_t> &input : recorder->inputs) {
        EXPECT_EQ(0, LLVMFuzzerTestOneInput(input.data(), input.size()));
    }
}

TEST(InterfaceFuzzReplay, RandomInputsToBothStubsAreRefusedOrServedSafely) {
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        std::vector<uint8_t> bytes(random() % 80);
        for (uint8_t &byte : bytes) {
            // Mostly small bytes, so markers, counts and lengths are sometimes valid.
            byte = static_cast<uint8_t>(random() % 4 == 0 ? random() : random() % 3);
        }
        ASSERT_EQ(0, LLVMFuzzerTestOneInput(bytes.data(), bytes.size()));
    }
}
