// The recording service's control interface. Clients hold an sp<IDVR> (a BpDVR
// from interface_cast on the service's binder) and may call any operation from
// any thread; the service implements it by deriving from BnDVR, and each call
// runs there on one of its binder pool threads, so calls arrive concurrently.
//
// Results use the DVRResult_e codes (0 success, -1 not found or failed, -2
// invalid argument, -3 wrong state); a recorder's own negative code passes
// through unchanged. Pointer arguments may be NULL: the null travels to the
// service, which answers -2 where it needs the pointer. When the service cannot
// be reached, a DVRResult_e operation returns DVR_FAILURE, an int or enum
// getter -1, a bool getter false, a set getter an empty set, and out-parameters
// are left as they were.
#ifndef DVR_IDVR_H
#define DVR_IDVR_H

#include <binder/IInterface.h>

#include <set>
#include <vector>

#include "DVRTypes.h"
#include "IDVRCallback.h"

namespace dvrspace {

class IDVR : public android::IInterface {
public:
    DECLARE_META_INTERFACE(DVR)

    // Callbacks. pid is the client's process id; cbkId is echoed back as the
    // first argument of every IDVRCallback call for this subscription.
    virtual DVRResult_e registerCallback(int pid, int cbkId, DVRCbkObjType_e type) = 0;
    virtual DVRResult_e unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) = 0;
    virtual DVRResult_e establishCallback(int pid, const android::sp<IDVRCallback> &callback) = 0;
    virtual DVRResult_e destroyCallback(int pid) = 0;

    // Every recorder at once.
    virtual DVRResult_e startRecordAll() = 0;
    virtual DVRResult_e stopRecordAll() = 0;
    virtual DVRResult_e applySettingsAll() = 0;
    virtual DVRResult_e abandonNewSettingsAll() = 0;
    virtual DVRResult_e factoryReset() = 0;
    virtual DVRResult_e setCameraSources(int count, const std::vector<int> &sources) = 0;
    // enc_id -1 addresses every recorder.
    virtual DVRResult_e setAudioRecording(int enc_id, bool enable) = 0;
    virtual bool getAudioRecording(int enc_id) = 0;

    // Devices and recorders by index, 0 to count - 1.
    virtual int getCameraCount() = 0;
    virtual DVRResult_e getCamera(int index, int *camId, QVDVRDeviceType_e *type) = 0;
    virtual int getAudioCount() = 0;
    virtual DVRResult_e getAudio(int index, int *audId) = 0;
    virtual std::set<unsigned int> getSupportSamplingRate() = 0;
    virtual int getRecorderCount() = 0;
    virtual DVRResult_e getEncoder(int index, int *encId) = 0;

    // Device attachment of one recorder, addressed by its encoder id.
    virtual DVRResult_e attachCamera(int enc_id, int cam_id) = 0;
    virtual DVRResult_e detachCamera(int enc_id) = 0;
    virtual DVRResult_e getAttachedCamera(int enc_id, int *index) = 0;
    virtual DVRResult_e attachAudio(int enc_id, int aud_id) = 0;
    virtual DVRResult_e detachAudio(int enc_id) = 0;
    virtual DVRResult_e getAttachedAudio(int enc_id, int *index) = 0;

    // Recording and output files of one recorder.
    virtual DVRResult_e startRecord(int enc_id) = 0;
    virtual DVRResult_e stopRecord(int enc_id) = 0;
    virtual DVRResult_e autoNextFile(int enc_id, bool enable) = 0;
    virtual DVRResult_e nextFile(int enc_id, const char *fileName) = 0;
    virtual DVRResult_e setStoragePath(int enc_id, const char *path) = 0;
    virtual DVRResult_e setFileNameFormat(int enc_id, const char *format,
                                          const char *timeFormat) = 0;
    virtual DVRResult_e applySettings(int enc_id) = 0;
    virtual DVRResult_e abandonNewSettings(int enc_id) = 0;
    // snapshot is filled by the service; what the client put in travels too.
    virtual DVRResult_e takeSnapshot(int enc_id, SnapshotPA_t &snapshot) = 0;

    // Staged settings of one recorder; applySettings makes them current.
    virtual DVRResult_e setOutputFormat(int enc_id, DVRFileFormat_e format) = 0;
    virtual DVRResult_e setBitRate(int enc_id, int bitRate) = 0;
    virtual DVRResult_e setFrameRate(int enc_id, int frameRate) = 0;
    virtual DVRResult_e setResolution(int enc_id, DVRResolution_e resolution) = 0;
    virtual DVRResult_e setFileLength(int enc_id, int seconds) = 0;
    virtual DVRResult_e setTimestamp(int enc_id, QVStampSettings_t *stamp) = 0;
    virtual DVRResult_e setSelfDefinedStamp(int enc_id, QVStampSettings_t *stamp) = 0;
    virtual bool isSettingChanged(int enc_id) = 0;
    virtual DVRStm_e getCurrentState(int enc_id) = 0;
    virtual DVRResult_e getEncoderCapability(int enc_id, EncoderDeviceCaps_t *caps) = 0;
    virtual DVRFileFormat_e getOutputFormat(int enc_id) = 0;
    virtual int getBitRate(int enc_id) = 0;
    virtual int getFrameRate(int enc_id) = 0;
    virtual DVRResolution_e getResolution(int enc_id) = 0;
    virtual int getFileLength(int enc_id) = 0;
    virtual DVRResult_e getTimestampSetting(int enc_id, QVStampSettings_t *stamp) = 0;
    virtual DVRResult_e getSelfDefinedStampSetting(int enc_id, QVStampSettings_t *stamp) = 0;

    // Device capabilities and audio input settings, by device id.
    virtual DVRResult_e getCameraCapability(int cam_id, CameraDeviceCaps_t *caps) = 0;
    virtual DVRResult_e getAudioCapability(int aud_id, AudioDeviceCaps_t *caps) = 0;
    virtual DVRResult_e setSamplingRate(int aud_id, unsigned int rate) = 0;
};

}  // namespace dvrspace

// The stub and the proxy come with the interface, as its users expect.
#include "BnDVR.h"
#include "BpDVR.h"

#endif  // DVR_IDVR_H
