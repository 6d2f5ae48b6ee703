#include "FakeEncoder.h"

#include <algorithm>
#include <chrono>

namespace dvrtest {

namespace {

constexpr auto kWaitLimit = std::chrono::seconds(10);

}  // namespace

int FakeEncoder::configure(dvrspace::RecordSettings_t *settings,
                           const dvrspace::DVRCameraCaps_t &cameraCaps) {
    std::lock_guard<std::mutex> lock(mLock);
    ++mConfigures;
    mSettings = *settings;
    mCaps = cameraCaps;
    mChanged.notify_all();
    return 0;
}

int FakeEncoder::setFileName(const char * /*path*/) {
    return 0;
}

int FakeEncoder::isPlaying() {
    std::lock_guard<std::mutex> lock(mLock);
    return mPlaying && !mNeverPlaying ? 1 : 0;
}

int FakeEncoder::start() {
    std::lock_guard<std::mutex> lock(mLock);
    ++mStarts;
    mPlaying = true;
    mChanged.notify_all();
    return 0;
}

int FakeEncoder::stop() {
    std::lock_guard<std::mutex> lock(mLock);
    ++mStops;
    mPlaying = false;
    mChanged.notify_all();
    return mStopResult;
}

int FakeEncoder::pushVideoFrame(const uint32_t framePA[2], uint64_t * /*timestamp*/) {
    std::unique_lock<std::mutex> lock(mLock);
    passGate(lock);
    mVideo.push_back(VideoPush{{framePA[0], framePA[1]}});
    mChanged.notify_all();
    return 0;
}

int FakeEncoder::pushAudioData(void *data, int length, uint64_t * /*timestamp*/) {
    std::unique_lock<std::mutex> lock(mLock);
    passGate(lock);
    const auto *bytes = static_cast<const uint8_t *>(data);
    const bool allZero =
        bytes != nullptr && std::all_of(bytes, bytes + length, [](uint8_t b) { return b == 0; });
    mAudio.push_back(AudioPush{data, length, allZero});
    mChanged.notify_all();
    return 0;
}

int FakeEncoder::getCapability(dvrspace::EncoderCapability_t *capability) {
    *capability = dvrspace::EncoderCapability_t{255, 1920, 1080, 3600, 1, 25, 1, 60, 1};
    return 0;
}

void FakeEncoder::passGate(std::unique_lock<std::mutex> &lock) {
    if (!mHold) {
        return;
    }
    mHeld = true;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mHold; });
    mHeld = false;
}

template <typename Predicate>
bool FakeEncoder::waitFor(Predicate done) {
    std::unique_lock<std::mutex> lock(mLock);
    return mChanged.wait_for(lock, kWaitLimit, done);
}

bool FakeEncoder::waitForStarts(int count) {
    return waitFor([&] { return mStarts >= count; });
}

bool FakeEncoder::waitForVideoPushes(size_t count) {
    return waitFor([&] { return mVideo.size() >= count; });
}

bool FakeEncoder::waitForAudioPushes(size_t count) {
    return waitFor([&] { return mAudio.size() >= count; });
}

void FakeEncoder::holdPushes() {
    std::lock_guard<std::mutex> lock(mLock);
    mHold = true;
}

void FakeEncoder::releasePushes() {
    std::lock_guard<std::mutex> lock(mLock);
    mHold = false;
    mChanged.notify_all();
}

bool FakeEncoder::waitUntilPushHeld() {
    return waitFor([&] { return mHeld; });
}

int FakeEncoder::configureCount() {
    std::lock_guard<std::mutex> lock(mLock);
    return mConfigures;
}

int FakeEncoder::startCount() {
    std::lock_guard<std::mutex> lock(mLock);
    return mStarts;
}

int FakeEncoder::stopCount() {
    std::lock_guard<std::mutex> lock(mLock);
    return mStops;
}

dvrspace::DVRCameraCaps_t FakeEncoder::lastCameraCaps() {
    std::lock_guard<std::mutex> lock(mLock);
    return mCaps;
}

dvrspace::RecordSettings_t FakeEncoder::lastSettings() {
    std::lock_guard<std::mutex> lock(mLock);
    return mSettings;
}

std::vector<FakeEncoder::VideoPush> FakeEncoder::videoPushes() {
    std::lock_guard<std::mutex> lock(mLock);
    return mVideo;
}

std::vector<FakeEncoder::AudioPush> FakeEncoder::audioPushes() {
    std::lock_guard<std::mutex> lock(mLock);
    return mAudio;
}

}  // namespace dvrtest
