// dvr_recorder_controller: records one file on one channel and prints the
// channel's start and finish events.
//
//   dvr_recorder_controller ENCODER_ID CAMERA_ID FILE [SECONDS]
//
// FILE is a path as the service sees it (absolute is safest); SECONDS
// defaults to 3.
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "DVRCallbackAdapter.h"
#include "DVRClient.h"

namespace {

// Prints the channel's record events and remembers whether a file finished.
class RecordEvents : public dvrspace::DVRCallbackAdapter {
public:
    explicit RecordEvents(int encoder) : mEncoder(encoder) {}

    int onRecordStart(int, int index, const char *fileName) override {
        if (index == mEncoder) {
            std::printf("start %s\n", fileName);
            std::fflush(stdout);
        }
        return 0;
    }
    int onRecordFinish(int, int index, const char *fileName) override {
        if (index == mEncoder) {
            std::printf("finish %s\n", fileName);
            std::fflush(stdout);
            std::lock_guard<std::mutex> guard(mLock);
            mFinished = true;
            mFinish.notify_all();
        }
        return 0;
    }

    bool waitForFinish(std::chrono::seconds limit) {
        std::unique_lock<std::mutex> lock(mLock);
        return mFinish.wait_for(lock, limit, [this] { return mFinished; });
    }

private:
    const int mEncoder;
    std::mutex mLock;
    std::condition_variable mFinish;
    bool mFinished = false;
};

// Prints what failed and its result code; true when result is 0.
bool check(const char *call, int result) {
    if (result != 0) {
        std::fprintf(stderr, "dvr_recorder_controller: %s gave %d\n", call, result);
    }
    return result == 0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4 || argc > 5) {
        std::fprintf(stderr,
                     "usage: dvr_recorder_controller ENCODER_ID CAMERA_ID FILE [SECONDS]\n");
        return 2;
    }
    const int encoder = std::atoi(argv[1]);
    const int camera = std::atoi(argv[2]);
    const char *file = argv[3];
    const int seconds = argc == 5 ? std::atoi(argv[4]) : 3;

    dvrspace::DVRClient client;
    if (!client.connect()) {
        std::fprintf(stderr, "dvr_recorder_controller: %s\n", client.error().c_str());
        return 1;
    }
    const android::sp<RecordEvents> events = new RecordEvents(encoder);
    if (client.listen(events, {dvrspace::DVR_CBK_OBJ_RECORD}) != 0) {
        std::fprintf(stderr, "dvr_recorder_controller: %s\n", client.error().c_str());
        return 1;
    }
    const android::sp<dvrspace::IDVR> &dvr = client.service();
    // Audio recording off: starting a channel that records audio without an
    // audio input attached ends the service (its documented behaviour).
    if (!check("attachCamera", dvr->attachCamera(encoder, camera)) ||
        !check("setAudioRecording", dvr->setAudioRecording(encoder, false)) ||
        !check("nextFile", dvr->nextFile(encoder, file)) ||
        !check("startRecord", dvr->startRecord(encoder))) {
        return 1;
    }
    sleep(static_cast<unsigned>(seconds));
    if (!check("stopRecord", dvr->stopRecord(encoder))) {
        return 1;
    }
    if (!events->waitForFinish(std::chrono::seconds(10))) {
        std::fprintf(stderr, "dvr_recorder_controller: no finish event within 10 s\n");
        return 1;
    }
    return 0;
}
