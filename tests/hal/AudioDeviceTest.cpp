#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "DVRAudioDeviceFactory.h"
#include "SimulatorFixture.h"

using namespace dvrspace;

namespace {

class AudioDevice : public SimulatorFixture {
protected:
    std::unique_ptr<DVRAudioDevice> create(int index = 0) {
        return std::unique_ptr<DVRAudioDevice>(
            DVRAudioDeviceFactory::getFactory()->createDevice(index));
    }
};

}  // namespace

TEST_F(AudioDevice, FactoryCreatesOneAudioInputByDefaultAndNullPastIt) {
    auto audio = create(0);
    ASSERT_NE(nullptr, audio);
    EXPECT_EQ(20, audio->getID());
    EXPECT_EQ(1, audio->getCaps()->channels);
    EXPECT_EQ(16, audio->getCaps()->bitsPerSample);
    EXPECT_EQ(nullptr, create(1));
    EXPECT_EQ(nullptr, create(-1));
    EXPECT_STREQ("audio_server", DVRAudioDeviceFactory::getFactory()->getServiceName());
}

TEST_F(AudioDevice, NoAudioInputWhenConfiguredSo) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.audioInputs.clear();
    DVRSimulatorControl::setConfig(config);
    EXPECT_EQ(nullptr, create(0));
}

TEST_F(AudioDevice, SamplingRatesAndMinus22ForAnUnsupportedOne) {
    auto audio = create();
    EXPECT_EQ((std::set<unsigned int>{8000, 16000, 32000, 44100, 48000}),
              audio->getSupportedSamplingRates());
    EXPECT_EQ(16000u, audio->getSamplingRate());
    EXPECT_EQ(0, audio->setSamplingRate(48000));
    EXPECT_EQ(48000u, audio->getSamplingRate());
    EXPECT_EQ(-22, audio->setSamplingRate(22050));
    EXPECT_EQ(48000u, audio->getSamplingRate());
}

TEST_F(AudioDevice, ChunksAreAToneOfTheConfiguredDurationAtTheCurrentRate) {
    auto audio = create();
    const int handle = audio->open();
    ASSERT_EQ(0, audio->setSamplingRate(8000));
    audio->start(handle);
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    ASSERT_EQ(8000 * 20 / 1000 * 2, length);  // 20 ms of 16-bit mono
    const auto *samples = static_cast<const int16_t *>(data);
    int crossings = 0;
    int16_t peak = 0;
    for (int index = 1; index < length / 2; ++index) {
        crossings += (samples[index - 1] < 0) != (samples[index] < 0);
        peak = std::max<int16_t>(peak, samples[index]);
    }
    EXPECT_NEAR(2 * 440 * 20 / 1000, crossings, 1);  // 440 Hz
    EXPECT_GT(peak, 7000);
    ASSERT_EQ(0, audio->setSamplingRate(48000));
    ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(48000 * 20 / 1000 * 2, length);
}

TEST_F(AudioDevice, HandleFromOpenOrMinusOneIsAccepted) {
    auto audio = create();
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    EXPECT_EQ(-1, audio->start(-1));  // nothing open yet
    const int handle = audio->open();
    EXPECT_EQ(-1, audio->start(handle + 1));
    EXPECT_EQ(0, audio->start(handle));
    EXPECT_EQ(-1, audio->getAudioData(handle + 1, &data, &length, &stamp));
    EXPECT_EQ(0, audio->getAudioData(-1, &data, &length, &stamp));
    EXPECT_GT(length, 0);
    EXPECT_EQ(0, audio->close(handle));
    EXPECT_EQ(-1, audio->getAudioData(handle, &data, &length, &stamp));
}

TEST_F(AudioDevice, NothingYetBeforeAChunkIsCapturedInRealTime) {
    // Chunks of 200 ms, so that a busy machine's scheduling delays do not
    // let a second chunk be captured between the reads.
    DVRSimConfig config = DVRSimulatorControl::config();
    config.audioInputs[0].chunkMs = 200;
    DVRSimulatorControl::setConfig(config);
    DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
    auto audio = create();
    const int handle = audio->open();
    audio->start(handle);
    void *data = reinterpret_cast<void *>(1);
    int length = -1;
    uint64_t stamp = 0;
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(0, length);
    EXPECT_EQ(nullptr, data);
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(6400, length);
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(0, length);
    audio->prepareStop(handle);
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(6400, length);
}

TEST_F(AudioDevice, NotStartedOrSuspendedIsAnError) {
    auto audio = create();
    const int handle = audio->open();
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    EXPECT_EQ(-1, audio->getAudioData(handle, &data, &length, &stamp));
    audio->start(handle);
    EXPECT_EQ(0, audio->suspend());
    EXPECT_EQ(-1, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(0, audio->resume());
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    audio->stop(handle);
    EXPECT_EQ(-1, audio->getAudioData(handle, &data, &length, &stamp));
}

TEST_F(AudioDevice, AChunkStaysValidWhileTheNextIsRead) {
    auto audio = create();
    const int handle = audio->open();
    audio->start(handle);
    void *first = nullptr;
    void *second = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    ASSERT_EQ(0, audio->getAudioData(handle, &first, &length, &stamp));
    const std::vector<int16_t> copy(static_cast<int16_t *>(first),
                                    static_cast<int16_t *>(first) + length / 2);
    ASSERT_EQ(0, audio->getAudioData(handle, &second, &length, &stamp));
    EXPECT_NE(first, second);
    EXPECT_EQ(0, std::memcmp(copy.data(), first, copy.size() * 2));
}

TEST_F(AudioDevice, InjectedFailuresAndNothingYetComeNTimes) {
    auto audio = create();
    const int handle = audio->open();
    audio->start(handle);
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    DVRSimulatorControl::failAudioData(20, 2, -5);
    EXPECT_EQ(-5, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(-5, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_GT(length, 0);
    DVRSimulatorControl::failAudioData(20, 3, 0);
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
        EXPECT_EQ(0, length);
    }
    EXPECT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
    EXPECT_GT(length, 0);
}

TEST_F(AudioDevice, ForcedSuspendAndResumeResultsIncludingRecoverable) {
    auto audio = create();
    DVRSimulatorControl::setAudioResult(20, DVRSimDeviceOp::Suspend, -1);
    DVRSimulatorControl::setAudioResult(20, DVRSimDeviceOp::Resume, 1);
    EXPECT_EQ(-1, audio->suspend());
    EXPECT_EQ(1, audio->resume());
    DVRSimulatorControl::setAudioResult(20, DVRSimDeviceOp::Suspend, 0);
    DVRSimulatorControl::setAudioResult(20, DVRSimDeviceOp::Resume, 0);
    EXPECT_EQ(0, audio->suspend());
    EXPECT_EQ(0, audio->resume());
}

TEST_F(AudioDevice, EveryHandleReadsEveryChunkOfTheOneCapturedStream) {
    auto audio = create();
    const int first = audio->open();
    const int second = audio->open();
    ASSERT_EQ(0, audio->start(first));
    ASSERT_EQ(0, audio->start(second));
    for (int chunk = 0; chunk < 5; ++chunk) {
        void *firstData = nullptr;
        void *secondData = nullptr;
        int firstLength = 0;
        int secondLength = 0;
        uint64_t firstStamp = 0;
        uint64_t secondStamp = 0;
        ASSERT_EQ(0, audio->getAudioData(first, &firstData, &firstLength, &firstStamp));
        // The first reader running ahead takes nothing from the second.
        ASSERT_EQ(0, audio->getAudioData(first, &firstData, &firstLength, &firstStamp));
        ASSERT_EQ(0, audio->getAudioData(second, &secondData, &secondLength, &secondStamp));
        ASSERT_EQ(0, audio->getAudioData(second, &secondData, &secondLength, &secondStamp));
        ASSERT_EQ(640, firstLength);
        ASSERT_EQ(firstLength, secondLength);
        EXPECT_EQ(firstStamp, secondStamp) << "chunk " << chunk;
        EXPECT_NE(firstData, secondData);
        EXPECT_EQ(0, std::memcmp(firstData, secondData, static_cast<size_t>(firstLength)))
            << "chunk " << chunk;
    }
}

TEST_F(AudioDevice, ChunksFollowOneAnotherByTheirCaptureTime) {
    auto audio = create();
    const int handle = audio->open();
    audio->start(handle);
    void *data = nullptr;
    int length = 0;
    uint64_t previous = 0;
    ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &previous));
    for (int chunk = 0; chunk < 4; ++chunk) {
        uint64_t stamp = 0;
        ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
        EXPECT_EQ(previous + 20000, stamp);
        previous = stamp;
    }
}

TEST_F(AudioDevice, CapturedChunkIsReadyForEveryHandleAtOnceInRealTime) {
    DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
    auto audio = create();
    const int first = audio->open();
    const int second = audio->open();
    audio->start(first);
    audio->start(second);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    for (const int handle : {first, second}) {
        void *data = nullptr;
        int length = 0;
        uint64_t stamp = 0;
        // Two chunks were captured: each handle gets both without waiting.
        for (int chunk = 0; chunk < 2; ++chunk) {
            ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
            EXPECT_EQ(640, length) << "handle " << handle << " chunk " << chunk;
        }
    }
    // Stopping one reader leaves the other capturing.
    audio->stop(first);
    void *data = nullptr;
    int length = 0;
    uint64_t stamp = 0;
    EXPECT_EQ(-1, audio->getAudioData(first, &data, &length, &stamp));
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
    EXPECT_EQ(0, audio->getAudioData(second, &data, &length, &stamp));
    EXPECT_EQ(640, length);
}

TEST_F(AudioDevice, ReaderFarBehindLosesTheOldestChunksWithoutHoldingOthersBack) {
    // Chunks of 100 ms, five of them kept: long enough that a busy machine's
    // scheduling delays do not change the counts.
    DVRSimConfig config = DVRSimulatorControl::config();
    config.audioInputs[0].chunkMs = 100;
    config.audioInputs[0].bufferMs = 500;
    DVRSimulatorControl::setConfig(config);
    DVRSimulatorControl::setPacing(DVRSimPacing::RealTime);
    auto audio = create();
    const int slow = audio->open();
    const int fast = audio->open();
    audio->start(slow);
    audio->start(fast);
    void *data = nullptr;
    int length = 0;
    uint64_t firstStamp = 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    ASSERT_EQ(0, audio->getAudioData(fast, &data, &length, &firstStamp));
    ASSERT_EQ(3200, length);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    // The slow reader resumes five chunks behind the capture: at least ten
    // chunks after the first.
    uint64_t stamp = 0;
    ASSERT_EQ(0, audio->getAudioData(slow, &data, &length, &stamp));
    EXPECT_GE(stamp, firstStamp + 10 * 100000);
    int backlog = 1;
    while (audio->getAudioData(slow, &data, &length, &stamp) == 0 && length > 0 && backlog < 20) {
        ++backlog;
    }
    EXPECT_GE(backlog, 5);
    EXPECT_LE(backlog, 7);  // the chunks captured meanwhile at most
    // The fast reader was never held back: its backlog is all there.
    int fastBacklog = 0;
    while (audio->getAudioData(fast, &data, &length, &stamp) == 0 && length > 0 &&
           fastBacklog < 30) {
        ++fastBacklog;
    }
    EXPECT_GE(fastBacklog, 5);
}

// A time mark a test finds in the decoded audio: with markSeconds 1 and
// 20-ms chunks, chunks 0, 50, 100, ... are silent, every other one is tone.
TEST_F(AudioDevice, TimeMarksSilenceTheFirstChunkOfEveryMarkPeriod) {
    DVRSimConfig config = DVRSimulatorControl::config();
    config.audioInputs[0].markSeconds = 1;
    DVRSimulatorControl::setConfig(config);
    auto audio = create();
    const int handle = audio->open();
    audio->start(handle);
    for (int chunk = 0; chunk <= 100; ++chunk) {
        void *data = nullptr;
        int length = 0;
        uint64_t stamp = 0;
        ASSERT_EQ(0, audio->getAudioData(handle, &data, &length, &stamp));
        ASSERT_EQ(640, length);
        const auto *samples = static_cast<const int16_t *>(data);
        int loudest = 0;
        for (int index = 0; index < length / 2; ++index) {
            loudest = std::max(loudest, std::abs(static_cast<int>(samples[index])));
        }
        if (chunk % 50 == 0) {
            EXPECT_EQ(0, loudest) << "chunk " << chunk;
        } else {
            EXPECT_GT(loudest, 7000) << "chunk " << chunk;
        }
    }
}
