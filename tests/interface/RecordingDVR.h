// A test service: every IDVR operation appends one line to a transcript file,
// "<n> <operation>(<arguments>)" with n the transaction's offset from
// FIRST_CALL_TRANSACTION, and answers with the results of its Plan. A NULL
// pointer argument that the operation writes through gets -2, as the real
// service answers. Runs in the forked service process of a test.
#ifndef DVR_TEST_INTERFACE_RECORDING_DVR_H
#define DVR_TEST_INTERFACE_RECORDING_DVR_H

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "IDVR.h"

namespace dvrtest {

class RecordingDVR : public dvrspace::BnDVR {
public:
    // What the service answers; the test chooses it before the fork.
    struct Plan {
        // Result of an operation by name (0 when absent). The int getters
        // return it plus their enc_id, so crossed replies would show.
        std::map<std::string, int> results;
        bool flag = false;  // every bool result
        int outId = 0;      // every id or index written through a pointer
        // getEncoder's, getCamera's and getAudio's ids by index; outId for an
        // index beyond them.
        std::vector<int> encoderIds;
        std::vector<int> cameraIds;
        std::vector<int> audioIds;
        dvrspace::QVDVRDeviceType_e deviceType = dvrspace::QV_DVR_DEVICE_TYPE_UNKNOWN;
        std::set<unsigned int> samplingRates;
        dvrspace::SnapshotPA_t snapshot{};
        dvrspace::QVStampSettings_t stamp{};
        dvrspace::EncoderDeviceCaps_t encoderCaps{};
        dvrspace::CameraDeviceCaps_t cameraCaps{};
        dvrspace::AudioDeviceCaps_t audioCaps{};
        // startRecord calls every IDVRCallback method of the established
        // callback before it returns; stopRecord does so from another thread
        // after it returned. Each answer goes into the transcript.
        bool callBackFromRecordCalls = false;
        int cbkId = 0;  // first argument of those callback calls
    };

    RecordingDVR(const Plan &plan, const std::string &transcriptPath);
    ~RecordingDVR() override;

    android::status_t onTransact(uint32_t code, const android::Parcel &data, android::Parcel *reply,
                                 uint32_t flags) override;

    dvrspace::DVRResult_e registerCallback(int pid, int cbkId,
                                           dvrspace::DVRCbkObjType_e type) override;
    dvrspace::DVRResult_e unregisterCallback(int pid, int cbkId,
                                             dvrspace::DVRCbkObjType_e type) override;
    dvrspace::DVRResult_e establishCallback(
        int pid, const android::sp<dvrspace::IDVRCallback> &callback) override;
    dvrspace::DVRResult_e destroyCallback(int pid) override;
    dvrspace::DVRResult_e startRecordAll() override;
    dvrspace::DVRResult_e stopRecordAll() override;
    dvrspace::DVRResult_e applySettingsAll() override;
    dvrspace::DVRResult_e abandonNewSettingsAll() override;
    dvrspace::DVRResult_e factoryReset() override;
    dvrspace::DVRResult_e setCameraSources(int count, const std::vector<int> &sources) override;
    dvrspace::DVRResult_e setAudioRecording(int enc_id, bool enable) override;
    bool getAudioRecording(int enc_id) override;
    int getCameraCount() override;
    dvrspace::DVRResult_e getCamera(int index, int *camId,
                                    dvrspace::QVDVRDeviceType_e *type) override;
    int getAudioCount() override;
    dvrspace::DVRResult_e getAudio(int index, int *audId) override;
    std::set<unsigned int> getSupportSamplingRate() override;
    int getRecorderCount() override;
    dvrspace::DVRResult_e getEncoder(int index, int *encId) override;
    dvrspace::DVRResult_e attachCamera(int enc_id, int cam_id) override;
    dvrspace::DVRResult_e detachCamera(int enc_id) override;
    dvrspace::DVRResult_e getAttachedCamera(int enc_id, int *index) override;
    dvrspace::DVRResult_e attachAudio(int enc_id, int aud_id) override;
    dvrspace::DVRResult_e detachAudio(int enc_id) override;
    dvrspace::DVRResult_e getAttachedAudio(int enc_id, int *index) override;
    dvrspace::DVRResult_e startRecord(int enc_id) override;
    dvrspace::DVRResult_e stopRecord(int enc_id) override;
    dvrspace::DVRResult_e autoNextFile(int enc_id, bool enable) override;
    dvrspace::DVRResult_e nextFile(int enc_id, const char *fileName) override;
    dvrspace::DVRResult_e setStoragePath(int enc_id, const char *path) override;
    dvrspace::DVRResult_e setFileNameFormat(int enc_id, const char *format,
                                            const char *timeFormat) override;
    dvrspace::DVRResult_e applySettings(int enc_id) override;
    dvrspace::DVRResult_e abandonNewSettings(int enc_id) override;
    dvrspace::DVRResult_e takeSnapshot(int enc_id, dvrspace::SnapshotPA_t &snapshot) override;
    dvrspace::DVRResult_e setOutputFormat(int enc_id, dvrspace::DVRFileFormat_e format) override;
    dvrspace::DVRResult_e setBitRate(int enc_id, int bitRate) override;
    dvrspace::DVRResult_e setFrameRate(int enc_id, int frameRate) override;
    dvrspace::DVRResult_e setResolution(int enc_id, dvrspace::DVRResolution_e resolution) override;
    dvrspace::DVRResult_e setFileLength(int enc_id, int seconds) override;
    dvrspace::DVRResult_e setTimestamp(int enc_id, dvrspace::QVStampSettings_t *stamp) override;
    dvrspace::DVRResult_e setSelfDefinedStamp(int enc_id,
                                              dvrspace::QVStampSettings_t *stamp) override;
    bool isSettingChanged(int enc_id) override;
    dvrspace::DVRStm_e getCurrentState(int enc_id) override;
    dvrspace::DVRResult_e getEncoderCapability(int enc_id,
                                               dvrspace::EncoderDeviceCaps_t *caps) override;
    dvrspace::DVRFileFormat_e getOutputFormat(int enc_id) override;
    int getBitRate(int enc_id) override;
    int getFrameRate(int enc_id) override;
    dvrspace::DVRResolution_e getResolution(int enc_id) override;
    int getFileLength(int enc_id) override;
    dvrspace::DVRResult_e getTimestampSetting(int enc_id,
                                              dvrspace::QVStampSettings_t *stamp) override;
    dvrspace::DVRResult_e getSelfDefinedStampSetting(int enc_id,
                                                     dvrspace::QVStampSettings_t *stamp) override;
    dvrspace::DVRResult_e getCameraCapability(int cam_id,
                                              dvrspace::CameraDeviceCaps_t *caps) override;
    dvrspace::DVRResult_e getAudioCapability(int aud_id,
                                             dvrspace::AudioDeviceCaps_t *caps) override;
    dvrspace::DVRResult_e setSamplingRate(int aud_id, unsigned int rate) override;

private:
    // Appends "<n> <operation>(<described arguments>)".
    template <typename... A>
    void record(const char *operation, const A &...arguments);
    void writeLine(const std::string &line);
    dvrspace::DVRResult_e plannedResult(const char *operation) const;
    int plannedId(const std::vector<int> &ids, int index) const;
    // Writes value through target, or answers -2 for a NULL target.
    template <typename T>
    dvrspace::DVRResult_e fill(const char *operation, T *target, const T &value);
    // Calls every IDVRCallback method and records each answer.
    void callBack(int index);

    const Plan mPlan;
    const int mTranscript;
    std::mutex mLock;
    android::sp<dvrspace::IDVRCallback> mCallback;
    std::thread mLateCallbacks;
};

}  // namespace dvrtest

#endif  // DVR_TEST_INTERFACE_RECORDING_DVR_H
