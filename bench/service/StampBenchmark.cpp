// _renderStamp with both stamps on at 1920x1080: the user text answered by a
// client object in this process, and by a client in a forked process.
#include <benchmark/benchmark.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "DVR.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"
#include "StampFrame.h"

namespace {

using namespace dvrspace;

const char *const kClientName = "stamp_bench_client";
constexpr int kInProcessPid = 1;
constexpr const char *kUserText = "CAM 1 GATE NORTH";

// The recorder, its camera and a frame, built once for every benchmark.
struct Bench {
    std::unique_ptr<dvrtest::RecorderTestEnv> env;
    android::sp<DVR> service;
    Recorder *recorder = nullptr;  // the service's
    DVRCameraDevice *camera = nullptr;
    std::vector<uint8_t> frame;
    pid_t clientPid = -1;
};
Bench gBench;

void subscribe(int pid, const android::sp<android::IInterface> &client) {
    CallbackManager &manager = DVRPeer::callbackManager(*gBench.service);
    manager.addClient(pid, client);
    manager.addCallbackObject(pid, 1, DVR_CBK_OBJ_STAMP);
}

void unsubscribe(int pid) {
    DVRPeer::callbackManager(*gBench.service).removeClient(pid);
}

void renderFrames(benchmark::State &state) {
    RecorderPeer peer(*gBench.recorder);
    void *planes[2] = {gBench.frame.data(), nullptr};
    for (auto _ : state) {
        if (peer.renderStamp(planes) != 0) {
            state.SkipWithError("no user text");
            return;
        }
        benchmark::ClobberMemory();
    }
}

void BM_RenderStampBothOnInProcessClient(benchmark::State &state) {
    subscribe(kInProcessPid, new dvrtest::StampClient(kUserText));
    renderFrames(state);
    unsubscribe(kInProcessPid);
}
BENCHMARK(BM_RenderStampBothOnInProcessClient)->Unit(benchmark::kMicrosecond);

void BM_RenderStampBothOnClientInAnotherProcess(benchmark::State &state) {
    const android::sp<IDVRCallback> remote = android::interface_cast<IDVRCallback>(
        android::defaultServiceManager()->waitForService(android::String16(kClientName), 20000));
    if (remote == nullptr) {
        state.SkipWithError("client process not reachable");
        return;
    }
    subscribe(gBench.clientPid, remote);
    renderFrames(state);
    unsubscribe(gBench.clientPid);
}
BENCHMARK(BM_RenderStampBothOnClientInAnotherProcess)->Unit(benchmark::kMicrosecond);

// The client process publishes its callback object and serves it.
[[noreturn]] void runClient() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    android::defaultServiceManager()->addService(android::String16(kClientName),
                                                 new dvrtest::StampClient(kUserText));
    android::ProcessState::self()->startThreadPool();
    for (;;) {
        pause();
    }
}

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    gBench.env = std::make_unique<dvrtest::RecorderTestEnv>();
    setenv("DVR_BINDER_DIR", gBench.env->dir().path().c_str(), 1);
    // Before this process starts any thread.
    gBench.clientPid = fork();
    if (gBench.clientPid == 0) {
        runClient();
    }
    android::ProcessState::self()->startThreadPool();

    gBench.service = new DVR();
    gBench.recorder = DVRPeer::recorder(*gBench.service, 0);
    gBench.camera = DVRPeer::camera(*gBench.service, 0);
    gBench.recorder->attachCamera(gBench.camera);
    const QVStampSettings_t timestamp{true, 16, 16, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 1, 0};
    const QVStampSettings_t user{true, 16, 1000, QV_DVR_STAMP_FONT_SIZE_MEDIUM, 1, 0};
    gBench.recorder->setTimestamp(timestamp);
    gBench.recorder->setSelfDefinedStamp(&user);
    RecorderPeer(*gBench.recorder).applyStagedSettings();
    const DVRCameraCaps_t *caps = gBench.camera->getCaps();
    gBench.frame.assign(static_cast<size_t>(caps->stride) * caps->height * 3 / 2, 16);

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    kill(gBench.clientPid, SIGKILL);
    waitpid(gBench.clientPid, nullptr, 0);
    gBench.service.clear();
    gBench.env.reset();
    return 0;
}
