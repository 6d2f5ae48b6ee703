// The client's proxy of the service, made by interface_cast<IDVR> on the
// binder that the service manager returns. Any thread may call it; each call
// blocks until the service answers or its connection is gone (see IDVR.h for
// what a failed call returns).
#ifndef DVR_BP_DVR_H
#define DVR_BP_DVR_H

#include "IDVR.h"

namespace dvrspace {

class BpDVR : public android::BpInterface<IDVR> {
public:
    explicit BpDVR(const android::sp<android::IBinder> &impl);

    DVRResult_e registerCallback(int pid, int cbkId, DVRCbkObjType_e type) override;
    DVRResult_e unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) override;
    DVRResult_e establishCallback(int pid, const android::sp<IDVRCallback> &callback) override;
    DVRResult_e destroyCallback(int pid) override;
    DVRResult_e startRecordAll() override;
    DVRResult_e stopRecordAll() override;
    DVRResult_e applySettingsAll() override;
    DVRResult_e abandonNewSettingsAll() override;
    DVRResult_e factoryReset() override;
    DVRResult_e setCameraSources(int count, const std::vector<int> &sources) override;
    DVRResult_e setAudioRecording(int enc_id, bool enable) override;
    bool getAudioRecording(int enc_id) override;
    int getCameraCount() override;
    DVRResult_e getCamera(int index, int *camId, QVDVRDeviceType_e *type) override;
    int getAudioCount() override;
    DVRResult_e getAudio(int index, int *audId) override;
    std::set<unsigned int> getSupportSamplingRate() override;
    int getRecorderCount() override;
    DVRResult_e getEncoder(int index, int *encId) override;
    DVRResult_e attachCamera(int enc_id, int cam_id) override;
    DVRResult_e detachCamera(int enc_id) override;
    DVRResult_e getAttachedCamera(int enc_id, int *index) override;
    DVRResult_e attachAudio(int enc_id, int aud_id) override;
    DVRResult_e detachAudio(int enc_id) override;
    DVRResult_e getAttachedAudio(int enc_id, int *index) override;
    DVRResult_e startRecord(int enc_id) override;
    DVRResult_e stopRecord(int enc_id) override;
    DVRResult_e autoNextFile(int enc_id, bool enable) override;
    DVRResult_e nextFile(int enc_id, const char *fileName) override;
    DVRResult_e setStoragePath(int enc_id, const char *path) override;
    DVRResult_e setFileNameFormat(int enc_id, const char *format, const char *timeFormat) override;
    DVRResult_e applySettings(int enc_id) override;
    DVRResult_e abandonNewSettings(int enc_id) override;
    DVRResult_e takeSnapshot(int enc_id, SnapshotPA_t &snapshot) override;
    DVRResult_e setOutputFormat(int enc_id, DVRFileFormat_e format) override;
    DVRResult_e setBitRate(int enc_id, int bitRate) override;
    DVRResult_e setFrameRate(int enc_id, int frameRate) override;
    DVRResult_e setResolution(int enc_id, DVRResolution_e resolution) override;
    DVRResult_e setFileLength(int enc_id, int seconds) override;
    DVRResult_e setTimestamp(int enc_id, QVStampSettings_t *stamp) override;
    DVRResult_e setSelfDefinedStamp(int enc_id, QVStampSettings_t *stamp) override;
    bool isSettingChanged(int enc_id) override;
    DVRStm_e getCurrentState(int enc_id) override;
    DVRResult_e getEncoderCapability(int enc_id, EncoderDeviceCaps_t *caps) override;
    DVRFileFormat_e getOutputFormat(int enc_id) override;
    int getBitRate(int enc_id) override;
    int getFrameRate(int enc_id) override;
    DVRResolution_e getResolution(int enc_id) override;
    int getFileLength(int enc_id) override;
    DVRResult_e getTimestampSetting(int enc_id, QVStampSettings_t *stamp) override;
    DVRResult_e getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) override;
    DVRResult_e getCameraCapability(int cam_id, CameraDeviceCaps_t *caps) override;
    DVRResult_e getAudioCapability(int aud_id, AudioDeviceCaps_t *caps) override;
    DVRResult_e setSamplingRate(int aud_id, unsigned int rate) override;
};

}  // namespace dvrspace

#endif  // DVR_BP_DVR_H
