// A recorder on small simulated cameras (320x240) ready to record: camera
// and audio input at hand, the storage-tuning commands counted instead of
// run, an optional fake encoder standing in for the simulated one, and a
// client that records every notification and answers stamp texts and file
// names. Tears down in the required order, stopping a recording first.
#ifndef DVR_TEST_RECORDING_FIXTURE_H
#define DVR_TEST_RECORDING_FIXTURE_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BnDVRCallback.h"
#include "DVRAudioDevice.h"
#include "FakeEncoder.h"
#include "RecorderFixture.h"

namespace dvrtest {

// The storage-tuning commands run so far in this process.
std::vector<std::string> tuningCommands();
void clearTuningCommands();
// From now on the tuning commands are counted (tuningCommands()) instead of
// run; returns the runner to put back.
dvrspace::Recorder::CommandRunner countTuningCommands();
// Devices made from now on: 320x240 cameras, fast pacing.
void useSmallFastCameras();

constexpr const char *kTuningRecording =
    "echo dma_int_threshold 0 > /sys/devices/platform/9c003e80.mmc/config";
constexpr const char *kTuningIdle =
    "echo dma_int_threshold 1024 > /sys/devices/platform/9c003e80.mmc/config";

// A client in the test process.
class EventClient : public dvrspace::BnDVRCallback {
public:
    struct Event {
        int cmd;  // DVR_CbkCmd_e
        int index;
        std::string text;
        int value;
    };

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;
    // Answers mStampText.
    int getStampString(int cbkId, int index, char *buffer) override;
    // Answers "<mNameDirectory>/clip_<n>.<mNameExtension>", n counting from 1.
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;

    std::vector<Event> events();
    // Waits up to timeoutSeconds until count events of cmd arrived.
    bool waitForEvents(int cmd, size_t count, int timeoutSeconds = 60);
    size_t countEvents(int cmd);
    std::vector<std::string> namesGiven();
    // The stampRequest-th stamp question (counted from 1) is answered only
    // after pauseMs, so that a stop arrives while the encoder is held there.
    void pauseStampAt(int stampRequest, int pauseMs);
    bool waitUntilPaused();

    std::string mStampText = "CAM-0 TEST";
    std::string mNameDirectory = ".";
    std::string mNameExtension = "ts";

private:
    void add(Event event);

    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Event> mEvents;
    std::vector<std::string> mNames;
    int mStampRequests = 0;
    int mPauseAt = 0;
    int mPauseMs = 0;
    bool mPaused = false;
};

class RecordingFixture : public RecorderFixture {
protected:
    void SetUp() override;
    void TearDown() override;

    // Builds the recorder with camera 0 attached (and audio input 0 when asked).
    void buildWithDevices(bool withAudio, size_t cameras = 1);
    // The fake encoder stands in for the recorder's from now on.
    FakeEncoder &useFakeEncoder();
    // Subscribes mClient to every notification and query.
    void subscribeClient();
    void attachAudio();

    dvrspace::DVRAudioDevice *mAudio = nullptr;
    std::unique_ptr<FakeEncoder> mFake;
    dvrspace::DVREncoderHAL *mRealEncoder = nullptr;
    android::sp<EventClient> mClient = new EventClient();

private:
    dvrspace::Recorder::CommandRunner mPreviousRunner = nullptr;
};

}  // namespace dvrtest

#endif  // DVR_TEST_RECORDING_FIXTURE_H
