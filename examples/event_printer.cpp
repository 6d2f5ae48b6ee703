// dvr_event_printer: prints every notification of the recording service, one
// line each, until COUNT have arrived, SIGINT or SIGTERM, or the service ends.
//
//   dvr_event_printer [COUNT]      (0 or none: no count)
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

#include "DVRCallbackAdapter.h"
#include "DVRClient.h"

namespace {

class EventPrinter : public dvrspace::DVRCallbackAdapter {
public:
    int onRecordStart(int, int index, const char *fileName) override {
        return print(index, "start", fileName);
    }
    int onRecordFinish(int, int index, const char *fileName) override {
        return print(index, "finish", fileName);
    }
    int onRecordError(int, int index, int code) override {
        return print(index, "error", std::to_string(code).c_str());
    }
    int onRecordErrorSevere(int, int index, int code) override {
        return print(index, "severe-error", std::to_string(code).c_str());
    }
    int onRecordAbnormal(int, int index, int) override { return print(index, "abnormal", ""); }

    int printed() {
        std::lock_guard<std::mutex> guard(mLock);
        return mPrinted;
    }

private:
    // Callbacks run on several binder threads at once.
    int print(int encoder, const char *event, const char *detail) {
        std::lock_guard<std::mutex> guard(mLock);
        std::printf("encoder %d %s %s\n", encoder, event, detail);
        std::fflush(stdout);
        ++mPrinted;
        return 0;
    }

    std::mutex mLock;
    int mPrinted = 0;
};

}  // namespace

int main(int argc, char **argv) {
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        std::fprintf(stderr, "usage: dvr_event_printer [COUNT]\n");
        return 2;
    }
    const int count = argc == 2 ? std::atoi(argv[1]) : 0;
    // Blocked before the binder threads start, so only sigtimedwait sees them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    dvrspace::DVRClient client;
    if (!client.connect()) {
        std::fprintf(stderr, "dvr_event_printer: %s\n", client.error().c_str());
        return 1;
    }
    const android::sp<EventPrinter> printer = new EventPrinter;
    if (client.listen(printer) != 0) {
        std::fprintf(stderr, "dvr_event_printer: %s\n", client.error().c_str());
        return 1;
    }
    std::fprintf(stderr, "dvr_event_printer: listening as client %d\n", client.pid());
    const timespec poll{0, 100 * 1000 * 1000};
    while (sigtimedwait(&stop, nullptr, &poll) < 0) {
        if (count > 0 && printer->printed() >= count) {
            return 0;
        }
        if (!client.serviceAlive()) {
            std::fprintf(stderr, "dvr_event_printer: the service ended\n");
            return 3;
        }
    }
    return 0;  // the client detaches in its destructor
}
