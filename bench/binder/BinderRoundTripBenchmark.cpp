// Round trip of a trivial synchronous binder call against a raw SEQPACKET
// ping-pong between the same two processes. The child process serves both:
// a thread echoing on a socket pair, and a binder service whose one call
// returns its argument plus one.
#include <benchmark/benchmark.h>
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

constexpr const char *kServiceName = "bench.roundtrip";
constexpr uint32_t kIncrement = IBinder::FIRST_CALL_TRANSACTION;
// About the size of a binder message carrying one integer.
constexpr size_t kPingSize = 56;

class IncrementService : public android::BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel &data, Parcel *reply, uint32_t flags) override {
        if (code != kIncrement) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        return reply->writeInt32(data.readInt32() + 1);
    }
};

int gRawSocket = -1;
sp<IBinder> gService;

[[noreturn]] void serveInChild(int rawSocket) {
    std::thread([rawSocket] {
        char buffer[kPingSize];
        for (;;) {
            const ssize_t got = recv(rawSocket, buffer, sizeof(buffer), 0);
            if (got <= 0 || send(rawSocket, buffer, static_cast<size_t>(got), 0) != got) {
                _exit(0);
            }
        }
    }).detach();
    if (android::defaultServiceManager()->addService(String16(kServiceName),
                                                     new IncrementService()) != android::OK) {
        _exit(1);
    }
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool();
    _exit(0);
}

void BM_RawSeqpacketRoundTrip(benchmark::State &state) {
    char buffer[kPingSize] = {};
    for (auto _ : state) {
        if (send(gRawSocket, buffer, sizeof(buffer), 0) != sizeof(buffer) ||
            recv(gRawSocket, buffer, sizeof(buffer), 0) != sizeof(buffer)) {
            state.SkipWithError("echo failed");
            break;
        }
    }
}
BENCHMARK(BM_RawSeqpacketRoundTrip)->MinTime(1.0);

void BM_BinderSyncCallRoundTrip(benchmark::State &state) {
    int32_t value = 0;
    for (auto _ : state) {
        Parcel data;
        Parcel reply;
        data.writeInt32(value);
        if (gService->transact(kIncrement, data, &reply) != android::OK) {
            state.SkipWithError("call failed");
            break;
        }
        value = reply.readInt32();
    }
    benchmark::DoNotOptimize(value);
}
BENCHMARK(BM_BinderSyncCallRoundTrip)->MinTime(1.0);

}  // namespace

int main(int argc, char **argv) {
    char directory[] = "/tmp/dvr-binder-bench-XXXXXX";
    int sockets[2];
    if (mkdtemp(directory) == nullptr || socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets) != 0) {
        return 1;
    }
    setenv("DVR_BINDER_DIR", directory, 1);
    // Fork before this process uses binder, so the child starts clean.
    const pid_t child = fork();
    if (child == 0) {
        close(sockets[0]);
        serveInChild(sockets[1]);
    }
    close(sockets[1]);
    gRawSocket = sockets[0];
    gService = android::defaultServiceManager()->waitForService(String16(kServiceName), 20000);
    int status = gService == nullptr ? 1 : 0;
    if (status == 0) {
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
    }
    gService.clear();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    unlink((std::string(directory) + "/" + kServiceName).c_str());
    rmdir(directory);
    return status;
}
