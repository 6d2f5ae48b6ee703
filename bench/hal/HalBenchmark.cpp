// Throughput of the device simulator: the whole recording path (camera
// pattern, push, libx264, muxing) at 1920x1080 and 1280x720 for several x264
// presets on one encoder thread, and the simulator's own per-frame cost
// without x264 (pattern, address translation, frame copy).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "DVRCameraDeviceFactory.h"
#include "DVREncoderFactory.h"
#include "DVRSimulatorControl.h"

using namespace dvrspace;

namespace {

const char *const kPresets[] = {"ultrafast", "superfast", "veryfast"};

void configure(int width, int height, const char *preset, bool realTime = false) {
    DVRSimulatorControl::reset();
    DVRSimConfig config = DVRSimulatorControl::config();
    config.pacing = realTime ? DVRSimPacing::RealTime : DVRSimPacing::Fast;
    config.cameras.resize(1);
    config.cameras[0].width = config.cameras[0].stride = width;
    config.cameras[0].height = height;
    config.encoder.preset = preset;
    config.encoder.threads = 1;
    DVRSimulatorControl::setConfig(config);
}

// What the service does in its need-data callback, without stamps.
struct Pipeline {
    std::unique_ptr<DVRCameraDevice> camera;
    DVREncoderHAL *encoder = nullptr;
    std::mutex lock;
    std::condition_variable done;
    int framesWanted = 0;
    int framesPushed = 0;
};
Pipeline *gPipeline = nullptr;

void onNeedData(int, ENCNeedDataType_e type) {
    if (type != ENC_NEED_VIDEO) {
        return;
    }
    void *va[2] = {nullptr, nullptr};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    if (gPipeline->camera->getVideoFrame(va, pa, &stamp) == 0) {
        gPipeline->encoder->pushVideoFrame(pa, &stamp);
    }
    std::lock_guard<std::mutex> lock(gPipeline->lock);
    if (++gPipeline->framesPushed >= gPipeline->framesWanted) {
        gPipeline->done.notify_all();
    }
}
void onFile(int, const char *) {}
void onError(int, DVRErrorServerity_e, int) {}

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::string makeScratchDirectory() {
    const char *base = getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/dvr-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    return mkdtemp(buffer.data()) != nullptr ? buffer.data() : "/tmp";
}

void BM_RecordH264(benchmark::State &state) {
    const int width = static_cast<int>(state.range(0));
    const int height = width * 9 / 16;
    const char *preset = kPresets[state.range(1)];
    const bool realTime = state.range(2) != 0;
    configure(width, height, preset, realTime);
    const std::string directory = makeScratchDirectory();
    Pipeline pipeline;
    gPipeline = &pipeline;
    pipeline.camera.reset(DVRCameraDeviceFactory::getFactory()->createDevice(0));
    pipeline.encoder =
        DVREncoderFactory::getFactory()->getEncoder(0, onFile, onFile, onFile, onNeedData, onError);
    RecordSettings_t settings;
    settings.outputFormat = DVR_FILE_FORMAT_TS;
    settings.bitRate = 8;
    settings.frameRate = 30;
    settings.width = settings.height = -1;
    settings.fileLength = 3600;
    constexpr int kFrames = 90;
    int64_t frames = 0;
    // The encoder works on its own thread: count the whole process's CPU time,
    // which is what one core has to deliver whatever else the machine runs.
    double cpuSeconds = 0;
    for (auto _ : state) {
        const double cpuBefore = processCpuSeconds();
        pipeline.framesWanted = kFrames;
        pipeline.framesPushed = 0;
        pipeline.encoder->configure(&settings, *pipeline.camera->getCaps());
        pipeline.encoder->setFileName((directory + "/bench.ts").c_str());
        pipeline.camera->start();
        pipeline.encoder->start();
        {
            std::unique_lock<std::mutex> lock(pipeline.lock);
            pipeline.done.wait(lock, [&] { return pipeline.framesPushed >= kFrames; });
        }
        pipeline.camera->prepareStop();
        pipeline.encoder->stop();
        pipeline.camera->stop();
        cpuSeconds += processCpuSeconds() - cpuBefore;
        frames += pipeline.framesPushed;
        state.PauseTiming();
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        state.ResumeTiming();
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["fps_per_core"] = static_cast<double>(frames) / cpuSeconds;
    state.counters["cpu_ms_per_frame"] = cpuSeconds * 1000.0 / static_cast<double>(frames);
    state.SetLabel(std::string(preset) + " " + std::to_string(width) + "x" +
                   std::to_string(height));
    DVREncoderFactory::getFactory()->releaseEncoder(pipeline.encoder);
    gPipeline = nullptr;
    std::filesystem::remove_all(directory);
}
// Arguments: width, preset index, real-time pacing. The real-time run shows one
// 1080p30 channel keeping its pace: fps stays at 30 while CPU time per frame
// stays well under the 33 ms period.
BENCHMARK(BM_RecordH264)
    ->ArgsProduct({{1920, 1280}, {0, 1, 2}, {0}})
    ->Args({1920, 0, 1})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_CameraFrame(benchmark::State &state) {
    const int width = static_cast<int>(state.range(0));
    configure(width, width * 9 / 16, kPresets[0]);
    std::unique_ptr<DVRCameraDevice> camera(DVRCameraDeviceFactory::getFactory()->createDevice(0));
    camera->start();
    void *va[2] = {nullptr, nullptr};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    for (auto _ : state) {
        camera->getVideoFrame(va, pa, &stamp);
        benchmark::DoNotOptimize(va[0]);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CameraFrame)->Arg(1920)->Arg(1280)->Unit(benchmark::kMicrosecond);

void BM_ArenaTranslate(benchmark::State &state) {
    configure(1920, 1080, kPresets[0]);
    std::unique_ptr<DVRCameraDevice> camera(DVRCameraDeviceFactory::getFactory()->createDevice(0));
    camera->start();
    void *va[2] = {nullptr, nullptr};
    uint32_t pa[2] = {0, 0};
    uint64_t stamp = 0;
    camera->getVideoFrame(va, pa, &stamp);
    DVRPhysicalArena *arena = DVRSimulatorControl::arena();
    for (auto _ : state) {
        benchmark::DoNotOptimize(arena->translate(pa[0], 1920 * 1080));
        benchmark::DoNotOptimize(arena->translate(pa[1], 1920 * 540));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ArenaTranslate);

void BM_FrameCopy(benchmark::State &state) {
    const size_t bytes = static_cast<size_t>(state.range(0)) * state.range(0) * 9 / 16 * 3 / 2;
    std::vector<uint8_t> source(bytes, 1);
    std::vector<uint8_t> target(bytes);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_FrameCopy)->Arg(1920)->Arg(1280)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
