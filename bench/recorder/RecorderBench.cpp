// Per-frame cost of a video request: Recorder::onNeedData(ENC_NEED_VIDEO) with
// both stamps on, at 1920x1080, into an encoder that does nothing.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "DVR.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"
#include "StampFrame.h"

using namespace dvrspace;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

class NullEncoder : public DVREncoderHAL {
public:
    explicit NullEncoder(int id) : DVREncoderHAL(id) {}
    int configure(RecordSettings_t *, const DVRCameraCaps_t &) override { return 0; }
    int setFileName(const char *) override { return 0; }
    int isPlaying() override { return 1; }
    int start() override { return 0; }
    int stop() override { return 0; }
    int requestKeyFrame() override { return 0; }
    int pushVideoFrame(const uint32_t framePA[2], uint64_t *) override {
        benchmark::DoNotOptimize(framePA[0]);
        return 0;
    }
    int pushAudioData(void *, int, uint64_t *) override { return 0; }
    int getCapability(EncoderCapability_t *) override { return 0; }
    std::set<unsigned int> getSupportedSamplingRates() override { return {}; }
    int suspend() override { return 0; }
    int resume() override { return 0; }
};

// Hands out the same frame every time, as a device hands out its DMA buffers.
class FixedFrameCamera : public DVRCameraDevice {
public:
    FixedFrameCamera()
        : DVRCameraDevice(10, DVRCameraCaps_t{30, kWidth, kHeight, kWidth, DVR_VIDEO_FORMAT_NV12},
                          QV_DVR_DEVICE_TYPE_SIMULATED),
          mFrame(static_cast<size_t>(kWidth) * kHeight * 3 / 2, 0x80) {}
    int getVideoFrame(void *frameVA[2], uint32_t framePA[2], uint64_t *timestamp) override {
        frameVA[0] = mFrame.data();
        frameVA[1] = mFrame.data() + kWidth * kHeight;
        framePA[0] = 0x10000000;
        framePA[1] = 0x10000000 + kWidth * kHeight;
        *timestamp = 0;
        return 0;
    }
    int start() override { return 0; }
    int stop() override { return 0; }
    int prepareStop() override { return 0; }
    int suspend() override { return 0; }
    int resume() override { return 0; }

private:
    std::vector<uint8_t> mFrame;
};

void runVideoRequests(benchmark::State &state, bool simulatedCamera) {
    dvrtest::RecorderTestEnv env;
    // Reference counted: clients' death recipients hold it too.
    android::sp<DVR> service = new DVR();
    Recorder &recorder = *DVRPeer::recorder(*service, 0);
    FixedFrameCamera fixedCamera;
    recorder.attachCamera(simulatedCamera ? DVRPeer::camera(*service, 0) : &fixedCamera);

    android::sp<dvrtest::StampClient> client = new dvrtest::StampClient("CAM-0 FRONT DOOR");
    CallbackManager &manager = DVRPeer::callbackManager(*service);
    manager.addClient(4321, client);
    manager.addCallbackObject(4321, 7, DVR_CBK_OBJ_STAMP);
    const QVStampSettings_t time{true, 32, 32, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 1, 0};
    const QVStampSettings_t user{true, 32, 1000, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 1, 1000};
    recorder.setTimestamp(time);
    recorder.setSelfDefinedStamp(&user);

    RecorderPeer peer(recorder);
    DVREncoderHAL *realEncoder = peer.encoder();
    NullEncoder nullEncoder(realEncoder->mId);
    peer.setEncoder(&nullEncoder);
    recorder.nextFile("bench.ts");
    if (recorder.start() != DVR_SUCCESS) {
        state.SkipWithError("start failed");
    }
    for (auto _ : state) {
        recorder.onNeedData(ENC_NEED_VIDEO);
    }
    recorder.stopAndWait();
    peer.setEncoder(realEncoder);
    recorder.detachCamera();
}

void BM_VideoRequestBothStamps1080p(benchmark::State &state) {
    runVideoRequests(state, false);
}
BENCHMARK(BM_VideoRequestBothStamps1080p)->Unit(benchmark::kMicrosecond);

void BM_VideoRequestBothStamps1080pSimulatedCamera(benchmark::State &state) {
    runVideoRequests(state, true);
}
BENCHMARK(BM_VideoRequestBothStamps1080pSimulatedCamera)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
