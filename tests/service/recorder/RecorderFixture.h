// A recorder on the simulated devices, built when the test has prepared its
// configuration, and taken apart again in the required order.
#ifndef DVR_TEST_RECORDER_FIXTURE_H
#define DVR_TEST_RECORDER_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "DVR.h"
#include "DVRCameraDeviceFactory.h"
#include "LogCapture.h"
#include "Recorder.h"
#include "RecorderPeer.h"
#include "RecorderTestEnv.h"

namespace dvrtest {

// The first simulated encoder's id, which the recorder of channel 0 takes.
constexpr int kEncoderId = 100;

class RecorderFixture : public ::testing::Test {
protected:
    void TearDown() override {
        if (mRecorder != nullptr) {
            if (mRecorder->getAttachedCamera() != nullptr) {
                mRecorder->detachCamera();
            }
            mRecorder.reset();
        }
        delete mCamera;
        mService.clear();
    }

    void build() {
        mService = new dvrspace::DVR();
        mRecorder = std::make_unique<dvrspace::Recorder>(0, *mService);
    }
    void attachCamera() {
        mCamera = dvrspace::DVRCameraDeviceFactory::getFactory()->createDevice(0);
        ASSERT_NE(nullptr, mCamera);
        mRecorder->attachCamera(mCamera);
    }
    dvrspace::RecordSettings_t settings() {
        dvrspace::RecordSettings_t copy;
        mRecorder->getCurrentSettings(&copy);
        return copy;
    }
    dvrspace::RecorderPeer peer() { return dvrspace::RecorderPeer(*mRecorder); }

    // Line counts with the function name and the exact text after it; rec()
    // puts the encoder-id part of recorder lines in front of a text.
    size_t logged(int priority, const std::string &function, const std::string &rest) const {
        return countLogged(mCapture, priority, "DVRRecorder", function, rest);
    }
    static std::string rec(const std::string &text, int id = kEncoderId) {
        return " [" + std::to_string(id) + "] " + text;
    }

    RecorderTestEnv mEnv;
    LogCapture mCapture;
    // Reference counted, like every service object.
    android::sp<dvrspace::DVR> mService;
    std::unique_ptr<dvrspace::Recorder> mRecorder;
    dvrspace::DVRCameraDevice *mCamera = nullptr;
};

}  // namespace dvrtest

#endif  // DVR_TEST_RECORDER_FIXTURE_H
