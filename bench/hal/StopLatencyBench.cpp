// How long stopRecord takes, issued to returned, through a running
// dvr_server whose simulated 1920x1080 30 fps cameras record MPEG-TS with
// audio from one shared input, with 1 and with 4 channels recording. Each
// round records about a second, then stops every channel in turn; 50 stops
// per case. Reports the median and the worst stop in ms.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ServerProcess.h"

namespace {

constexpr int kStops = 50;

std::string simConfig() {
    std::string cameras;
    for (int index = 0; index < 4; ++index) {
        cameras += std::string(index > 0 ? ", " : "") + "{\"id\": " + std::to_string(10 + index) +
                   ", \"type\": 4, \"frameRate\": 30, \"width\": 1920, \"height\": 1080, "
                   "\"stride\": 1920}";
    }
    return "{\"pacing\": \"realtime\", \"cameras\": [" + cameras +
           "], \"audioInputs\": [{\"id\": 20}], \"encoder\": {\"ids\": [100, 101, 102, 103]}, "
           "\"arena\": {\"bytes\": 134217728}}";
}

// Empty, or the first call the server refused.
std::string prepare(dvrspace::IDVR &dvr, int channels) {
    for (int channel = 0; channel < channels; ++channel) {
        const int encoder = 100 + channel;
        const std::pair<const char *, dvrspace::DVRResult_e> calls[] = {
            {"attachCamera", dvr.attachCamera(encoder, 10 + channel)},
            {"attachAudio", dvr.attachAudio(encoder, 20)},
            {"setOutputFormat", dvr.setOutputFormat(encoder, dvrspace::DVR_FILE_FORMAT_TS)},
            {"setResolution", dvr.setResolution(encoder, dvrspace::DVR_RESOLUTION_INPUT)},
            {"setFrameRate", dvr.setFrameRate(encoder, 30)},
            {"setStoragePath", dvr.setStoragePath(encoder, dvrtest::ServerProcess::kStorage)},
            {"setFileLength", dvr.setFileLength(encoder, 10)}};
        for (const auto &call : calls) {
            if (call.second != dvrspace::DVR_SUCCESS) {
                return std::string(call.first) + " " + std::to_string(call.second);
            }
        }
    }
    return dvr.setAudioRecording(-1, true) == dvrspace::DVR_SUCCESS ? "" : "setAudioRecording";
}

void BM_StopRecord(benchmark::State &state) {
    const int channels = static_cast<int>(state.range(0));
    dvrtest::ServerProcess server;
    server.dir().write("sim.json", simConfig());
    mkdir(server.storageDir().c_str(), 0755);
    server.start();
    android::sp<dvrspace::IDVR> dvr = server.connect();
    if (dvr == nullptr) {
        state.SkipWithError(("the server did not come up: " + server.log()).c_str());
        return;
    }
    const std::string refused = prepare(*dvr, channels);
    if (!refused.empty()) {
        state.SkipWithError(("the server refused " + refused).c_str());
        return;
    }
    std::vector<double> stopsMs;
    for (auto _ : state) {
        while (static_cast<int>(stopsMs.size()) < kStops) {
            for (int channel = 0; channel < channels; ++channel) {
                const std::string name = std::string(dvrtest::ServerProcess::kStorage) + "/stop_" +
                                         std::to_string(channel) + "_" +
                                         std::to_string(stopsMs.size()) + ".ts";
                if (dvr->nextFile(100 + channel, name.c_str()) != dvrspace::DVR_SUCCESS ||
                    dvr->startRecord(100 + channel) != dvrspace::DVR_SUCCESS) {
                    state.SkipWithError(("startRecord failed: " + server.log()).c_str());
                    return;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1000));
            for (int channel = 0; channel < channels; ++channel) {
                const auto issued = std::chrono::steady_clock::now();
                const dvrspace::DVRResult_e result = dvr->stopRecord(100 + channel);
                const auto returned = std::chrono::steady_clock::now();
                if (result != dvrspace::DVR_SUCCESS) {
                    state.SkipWithError(("stopRecord failed: " + server.log()).c_str());
                    return;
                }
                stopsMs.push_back(
                    std::chrono::duration<double, std::milli>(returned - issued).count());
            }
        }
    }
    std::sort(stopsMs.begin(), stopsMs.end());
    state.counters["stops"] = static_cast<double>(stopsMs.size());
    state.counters["median_ms"] = stopsMs[stopsMs.size() / 2];
    state.counters["worst_ms"] = stopsMs.back();
    server.stop(SIGTERM);
}
BENCHMARK(BM_StopRecord)->Arg(1)->Arg(4)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
