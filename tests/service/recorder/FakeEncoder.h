// An encoder that encodes nothing: it records what the service asks of it,
// answers with results a test chooses, and can hold a push until the test
// lets it go. Stands in for a recorder's encoder (same id) where a test needs
// to see exactly what reaches the encoder, with no encoder thread of its own.
#ifndef DVR_TEST_FAKE_ENCODER_H
#define DVR_TEST_FAKE_ENCODER_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "DVREncoderHAL.h"

namespace dvrtest {

class FakeEncoder : public dvrspace::DVREncoderHAL {
public:
    struct VideoPush {
        uint32_t pa[2];
    };
    struct AudioPush {
        const void *data;
        int length;
        bool allZero;
    };

    explicit FakeEncoder(int id) : DVREncoderHAL(id) {}

    int configure(dvrspace::RecordSettings_t *settings,
                  const dvrspace::DVRCameraCaps_t &cameraCaps) override;
    int setFileName(const char *path) override;
    int isPlaying() override;
    int start() override;
    int stop() override;
    int requestKeyFrame() override { return 0; }
    int pushVideoFrame(const uint32_t framePA[2], uint64_t *timestamp) override;
    int pushAudioData(void *data, int length, uint64_t *timestamp) override;
    int getCapability(dvrspace::EncoderCapability_t *capability) override;
    std::set<unsigned int> getSupportedSamplingRates() override { return {16000}; }
    int suspend() override { return mSuspendResult; }
    int resume() override { return mResumeResult; }

    // Waits up to ten seconds until at least count calls were made.
    bool waitForStarts(int count);
    bool waitForVideoPushes(size_t count);
    bool waitForAudioPushes(size_t count);
    // Later pushes block until releasePushes(); pushesHeld() tells when one does.
    void holdPushes();
    void releasePushes();
    bool waitUntilPushHeld();

    int configureCount();
    int startCount();
    int stopCount();
    dvrspace::DVRCameraCaps_t lastCameraCaps();
    dvrspace::RecordSettings_t lastSettings();
    std::vector<VideoPush> videoPushes();
    std::vector<AudioPush> audioPushes();

    // Answers; isPlaying() answers 1 after start() unless neverPlaying.
    int mStopResult = 0;
    int mSuspendResult = 0;
    int mResumeResult = 0;
    bool mNeverPlaying = false;

private:
    template <typename Predicate>
    bool waitFor(Predicate done);
    void passGate(std::unique_lock<std::mutex> &lock);

    std::mutex mLock;
    std::condition_variable mChanged;
    int mConfigures = 0;
    int mStarts = 0;
    int mStops = 0;
    bool mPlaying = false;
    bool mHold = false;
    bool mHeld = false;
    dvrspace::DVRCameraCaps_t mCaps{};
    dvrspace::RecordSettings_t mSettings;
    std::vector<VideoPush> mVideo;
    std::vector<AudioPush> mAudio;
};

}  // namespace dvrtest

#endif  // DVR_TEST_FAKE_ENCODER_H
