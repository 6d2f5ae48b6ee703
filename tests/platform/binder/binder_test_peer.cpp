// The other process of the cross-process tests. Modes:
//   service NAME   publish a TestService as NAME, print "ready", serve
//   client NAME    register a TestCallback with NAME, print "ready", wait
//   call NAME      exit 0 when NAME answers add(2, 3) with 5
#include "TestCallback.h"
#include "TestService.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

using android::defaultServiceManager;
using android::IPCThreadState;
using android::ProcessState;
using android::sp;
using android::String16;

namespace {

void announceReady() {
    std::printf("ready\n");
    std::fflush(stdout);
}

sp<dvrtest::ITestService> findService(const char *name) {
    return android::interface_cast<dvrtest::ITestService>(
        defaultServiceManager()->getService(String16(name)));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s service|client|call NAME\n", argv[0]);
        return 2;
    }
    const char *mode = argv[1];
    const char *name = argv[2];
    if (std::strcmp(mode, "service") == 0) {
        if (defaultServiceManager()->addService(String16(name), new dvrtest::TestService()) !=
            android::OK) {
            return 1;
        }
        ProcessState::self()->startThreadPool();
        announceReady();
        IPCThreadState::self()->joinThreadPool();
    }
    sp<dvrtest::ITestService> service = findService(name);
    if (service == nullptr) {
        return 1;
    }
    if (std::strcmp(mode, "call") == 0) {
        return service->add(2, 3) == 5 ? 0 : 1;
    }
    if (std::strcmp(mode, "client") == 0) {
        ProcessState::self()->startThreadPool();
        sp<dvrtest::TestCallback> callback = new dvrtest::TestCallback();
        if (service->registerCallback(callback) != android::OK) {
            return 1;
        }
        announceReady();
        for (;;) {
            pause();
        }
    }
    return 2;
}
