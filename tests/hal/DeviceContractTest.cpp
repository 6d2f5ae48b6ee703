// The service calls device operations by their position in the virtual table
// and reads the encoder's id right after the table pointer, so the contract
// headers' layout is checked here slot by slot (Itanium C++ ABI: slots 0 and 1
// are the complete and the deleting destructor).
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "DVRAudioDevice.h"
#include "DVRCameraDevice.h"
#include "DVREncoderHAL.h"

using namespace dvrspace;

namespace {

template <typename Function>
Function slot(const void *object, int index) {
    const void *const *table = *static_cast<const void *const *const *>(object);
    return reinterpret_cast<Function>(const_cast<void *>(table[index]));
}

// Remembers which operation ran.
class CallLog {
public:
    std::vector<std::string> calls;

protected:
    int note(const char *name) {
        calls.push_back(name);
        return 0;
    }
};

class ProbeEncoder : public DVREncoderHAL, public CallLog {
public:
    ProbeEncoder() : DVREncoderHAL(4242) {}
    int configure(RecordSettings_t *, const DVRCameraCaps_t &) override {
        return note("configure");
    }
    int setFileName(const char *) override { return note("setFileName"); }
    int isPlaying() override { return note("isPlaying"); }
    int start() override { return note("start"); }
    int stop() override { return note("stop"); }
    int requestKeyFrame() override { return note("requestKeyFrame"); }
    int pushVideoFrame(const uint32_t[2], uint64_t *) override { return note("pushVideoFrame"); }
    int pushAudioData(void *, int, uint64_t *) override { return note("pushAudioData"); }
    int getCapability(EncoderCapability_t *) override { return note("getCapability"); }
    std::set<unsigned int> getSupportedSamplingRates() override {
        note("getSupportedSamplingRates");
        return {};
    }
    int suspend() override { return note("suspend"); }
    int resume() override { return note("resume"); }
};

class ProbeCamera : public DVRCameraDevice, public CallLog {
public:
    ProbeCamera()
        : DVRCameraDevice(7, DVRCameraCaps_t{30, 64, 48, 64, 1}, QV_DVR_DEVICE_TYPE_USB) {}
    int getVideoFrame(void *[2], uint32_t[2], uint64_t *) override { return note("getVideoFrame"); }
    int start() override { return note("start"); }
    int stop() override { return note("stop"); }
    int prepareStop() override { return note("prepareStop"); }
    int suspend() override { return note("suspend"); }
    int resume() override { return note("resume"); }
};

class ProbeAudio : public DVRAudioDevice, public CallLog {
public:
    ProbeAudio() : DVRAudioDevice(9, DVRAudioCaps_t{1, 16}) {}
    int getAudioData(int, void **, int *, uint64_t *) override { return note("getAudioData"); }
    int open() override { return note("open"); }
    int close(int) override { return note("close"); }
    int start(int) override { return note("start"); }
    int stop(int) override { return note("stop"); }
    int prepareStop(int) override { return note("prepareStop"); }
    int suspend() override { return note("suspend"); }
    int resume() override { return note("resume"); }
    int setSamplingRate(unsigned int) override { return note("setSamplingRate"); }
    unsigned int getSamplingRate() override {
        return static_cast<unsigned int>(note("getSamplingRate"));
    }
    std::set<unsigned int> getSupportedSamplingRates() override {
        note("getSupportedSamplingRates");
        return {};
    }
};

}  // namespace

TEST(DeviceContract, EncoderIdIsTheFirstDataMemberRightAfterTheVtable) {
    ProbeEncoder encoder;
    const DVREncoderHAL *base = &encoder;
    const char *start = reinterpret_cast<const char *>(base);
    EXPECT_EQ(sizeof(void *),
              static_cast<size_t>(reinterpret_cast<const char *>(&base->mId) - start));
    int id = 0;
    std::memcpy(&id, start + sizeof(void *), sizeof(id));
    EXPECT_EQ(4242, id);
}

TEST(DeviceContract, EncoderOperationsSitInTheirVtableSlots) {
    ProbeEncoder encoder;
    DVREncoderHAL *base = &encoder;
    RecordSettings_t settings;
    DVRCameraCaps_t caps{};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    EncoderCapability_t capability{};
    slot<int (*)(DVREncoderHAL *, RecordSettings_t *, const DVRCameraCaps_t &)>(base, 2)(
        base, &settings, caps);
    slot<int (*)(DVREncoderHAL *, const char *)>(base, 3)(base, "x");
    slot<int (*)(DVREncoderHAL *)>(base, 4)(base);
    slot<int (*)(DVREncoderHAL *)>(base, 5)(base);
    slot<int (*)(DVREncoderHAL *)>(base, 6)(base);
    slot<int (*)(DVREncoderHAL *)>(base, 7)(base);
    slot<int (*)(DVREncoderHAL *, const uint32_t *, uint64_t *)>(base, 8)(base, pa, &stamp);
    slot<int (*)(DVREncoderHAL *, void *, int, uint64_t *)>(base, 9)(base, nullptr, 0, &stamp);
    slot<int (*)(DVREncoderHAL *, EncoderCapability_t *)>(base, 10)(base, &capability);
    // A set returned by value travels through a hidden pointer before `this`,
    // as it does for a free function of the same signature.
    slot<std::set<unsigned int> (*)(DVREncoderHAL *)>(base, 11)(base);
    slot<int (*)(DVREncoderHAL *)>(base, 12)(base);
    slot<int (*)(DVREncoderHAL *)>(base, 13)(base);
    EXPECT_EQ((std::vector<std::string>{"configure", "setFileName", "isPlaying", "start", "stop",
                                        "requestKeyFrame", "pushVideoFrame", "pushAudioData",
                                        "getCapability", "getSupportedSamplingRates", "suspend",
                                        "resume"}),
              encoder.calls);
}

TEST(DeviceContract, CameraOperationsSitInTheirVtableSlots) {
    ProbeCamera camera;
    DVRCameraDevice *base = &camera;
    void *va[2] = {nullptr, nullptr};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    slot<int (*)(DVRCameraDevice *, void **, uint32_t *, uint64_t *)>(base, 2)(base, va, pa,
                                                                               &stamp);
    for (int index = 3; index <= 7; ++index) {
        slot<int (*)(DVRCameraDevice *)>(base, index)(base);
    }
    EXPECT_EQ((std::vector<std::string>{"getVideoFrame", "start", "stop", "prepareStop", "suspend",
                                        "resume"}),
              camera.calls);
    EXPECT_EQ(7, base->getID());
    EXPECT_EQ(64, base->getCaps()->width);
    EXPECT_EQ(QV_DVR_DEVICE_TYPE_USB, base->getDeviceType());
}

TEST(DeviceContract, AudioOperationsSitInTheirVtableSlots) {
    ProbeAudio audio;
    DVRAudioDevice *base = &audio;
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    slot<int (*)(DVRAudioDevice *, int, void **, int *, uint64_t *)>(base, 2)(base, 1, &data,
                                                                              &length, &stamp);
    slot<int (*)(DVRAudioDevice *)>(base, 3)(base);
    for (int index = 4; index <= 7; ++index) {
        slot<int (*)(DVRAudioDevice *, int)>(base, index)(base, 1);
    }
    slot<int (*)(DVRAudioDevice *)>(base, 8)(base);
    slot<int (*)(DVRAudioDevice *)>(base, 9)(base);
    slot<int (*)(DVRAudioDevice *, unsigned int)>(base, 10)(base, 16000);
    slot<unsigned int (*)(DVRAudioDevice *)>(base, 11)(base);
    slot<std::set<unsigned int> (*)(DVRAudioDevice *)>(base, 12)(base);
    EXPECT_EQ((std::vector<std::string>{"getAudioData", "open", "close", "start", "stop",
                                        "prepareStop", "suspend", "resume", "setSamplingRate",
                                        "getSamplingRate", "getSupportedSamplingRates"}),
              audio.calls);
    EXPECT_EQ(9, base->getID());
    EXPECT_EQ(16, base->getCaps()->bitsPerSample);
}
