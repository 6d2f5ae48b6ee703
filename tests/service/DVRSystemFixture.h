// The whole service object on small simulated devices (two 320x240 cameras,
// one audio input, fast pacing) in a temporary directory of its own, with the
// system around it played by the test: the service-state directory that the
// service monitor watches, and clients subscribed to every notification.
// Stops what records before the service goes, so teardown keeps its order.
#ifndef DVR_TEST_DVR_SYSTEM_FIXTURE_H
#define DVR_TEST_DVR_SYSTEM_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "DVR.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderTestEnv.h"
#include "RecordingFixture.h"

namespace dvrtest {

// The simulator's devices as the service discovers them.
constexpr int kEncoder0 = 100;
constexpr int kEncoder1 = 101;
constexpr int kCamera0 = 10;
constexpr int kCamera1 = 11;
constexpr int kAudio0 = 20;

class DVRSystemFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Constructs the service; it registers with the monitor and the channel.
    void build();
    // Establishes client under pid and subscribes it to every kind with cbkId.
    void attachClient(int pid, const android::sp<dvrspace::IDVRCallback> &client, int cbkId);
    // Attaches the camera (and audio input 0), puts both stamps inside the
    // small frame and lets the client name the files: ready to record.
    void prepareChannel(int encId, int camId, bool withAudio);

    // The services hosting the devices, as the device library names them.
    static std::string encoderService();
    static std::string cameraService();
    static std::string audioService();
    // Plays the service manager: the state the monitor reads for service.
    void setServiceState(const std::string &service, const std::string &state);
    std::string serviceState(const std::string &service);

    // Lines of tag whose text after "[function:<line>] " is rest.
    size_t logged(int priority, const std::string &tag, const std::string &function,
                  const std::string &rest) const;
    // Waits up to timeoutSeconds until at least count such lines were logged.
    bool waitForLogged(int priority, const std::string &tag, const std::string &function,
                       const std::string &rest, size_t count, int timeoutSeconds = 60) const;
    // Waits up to timeoutSeconds until the file being recorded at path holds
    // bytes (pictures and sound, not just headers).
    static bool waitForContent(const std::string &path, uintmax_t bytes = 100000,
                               int timeoutSeconds = 60);
    // Whether a device hands out data, which a suspended one refuses. Only for
    // devices no recording uses; they are left stopped.
    static bool cameraDelivers(dvrspace::DVRCameraDevice *camera);
    static bool audioDelivers(dvrspace::DVRAudioDevice *audio);
    dvrspace::DVRCameraDevice *camera(int index);
    dvrspace::DVRAudioDevice *audio(int index);

    RecorderTestEnv mEnv;
    LogCapture mCapture;
    // Held by strong reference, as its clients and death recipients hold it.
    android::sp<dvrspace::DVR> mService;
    android::sp<EventClient> mClient = new EventClient();

private:
    dvrspace::Recorder::CommandRunner mPreviousRunner = nullptr;
};

}  // namespace dvrtest

#endif  // DVR_TEST_DVR_SYSTEM_FIXTURE_H
