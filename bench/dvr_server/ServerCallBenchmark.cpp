// What a client pays for IDVR calls to a running dvr_server (through its
// binder front), and how long the server takes to come up and to stop.
#include <benchmark/benchmark.h>
#include <sys/wait.h>

#include <csignal>
#include <memory>

#include "ServerProcess.h"

namespace {

constexpr int kEncoder = dvrtest::ServerProcess::kEncoderIds[0];

android::sp<dvrspace::IDVR> gService;

// No lock in the service: the transport and the front alone.
void BM_CountQuery(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(gService->getCameraCount());
    }
}
BENCHMARK(BM_CountQuery);

// The service lock, the id lookup and the recorder's settings lock.
void BM_RecorderQuery(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(gService->getBitRate(kEncoder));
    }
}
BENCHMARK(BM_RecorderQuery);

// Spawn to service published, then SIGTERM to exit, of an idle server.
void BM_StartAndStop(benchmark::State &state) {
    for (auto _ : state) {
        dvrtest::ServerProcess server;
        server.start();
        if (server.connect() == nullptr) {
            state.SkipWithError("the server did not come up");
            break;
        }
        const int status = server.stop(SIGTERM);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            state.SkipWithError("the server did not exit 0");
            break;
        }
    }
}
BENCHMARK(BM_StartAndStop)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    auto server = std::make_unique<dvrtest::ServerProcess>();
    server->start();
    gService = server->connect();
    if (gService == nullptr) {
        fprintf(stderr, "dvr_server did not come up:\n%s", server->log().c_str());
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    gService.clear();
    server->stop(SIGTERM);
    return 0;
}
