// Test access to a recorder's file-name steps and buffers, which the recording
// lifecycle drives from the encoder's callbacks.
#ifndef DVR_TEST_RECORDER_PEER_H
#define DVR_TEST_RECORDER_PEER_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "DVR.h"
#include "Recorder.h"

namespace dvrspace {

class RecorderPeer {
public:
    explicit RecorderPeer(Recorder &recorder) : mRecorder(recorder) {}

    // What start() does to the settings before a recording: the staged ones
    // come into force.
    void applyStagedSettings() { mRecorder.mCurSettings.copy(mRecorder.mNewSettings); }
    void setCurrentOutputFormat(int format) {
        mRecorder.mCurSettings.outputFormat = static_cast<DVRFileFormat_e>(format);
    }
    void setCurrentFileLength(int seconds) { mRecorder.mCurSettings.fileLength = seconds; }
    void setState(DVRStm_e state) { mRecorder.mState = state; }
    // A refused explicit resolution leaves the settings lock held by the
    // calling thread; that thread may release it to destroy the recorder.
    void releaseSettingsLock() { mRecorder.mSettingsLock.unlock(); }

    std::string fileName() const { return mRecorder.mFileName; }
    std::string nextFileName() const { return mRecorder.mNextFileName; }
    std::string storagePath() const { return mRecorder.mStoragePath; }
    bool autoNextFile() const { return mRecorder.mbAutoNextFile; }

    bool isNextFileSet() { return mRecorder._isNextFileSet(); }
    void setNextFileName(const char *name) { mRecorder._setNextFileName(name); }
    int getNextFileFromUser() { return mRecorder._getNextFileFromUser(); }
    void genDefaultFileName() { mRecorder._genDefaultFileName(); }
    void updateFileName() { mRecorder._updateFileName(); }
    void applyNextFile() { mRecorder._applyNextFile(); }
    int renderStamp(void **frame) { return mRecorder._renderStamp(frame); }

    // The recording lifecycle's parts.
    static int recordCount() { return Recorder::mdRecordCount; }
    android::sp<TriggerEncodeThread> triggerEncodeThread() const {
        return mRecorder.mTriggerEncodeThread;
    }
    void setTriggerEncodeThread(const android::sp<TriggerEncodeThread> &thread) {
        mRecorder.mTriggerEncodeThread = thread;
    }
    DVREncoderHAL *encoder() const { return mRecorder.mEncoder; }
    // Stands another encoder (of the same id) in; the factory's own must be
    // back before the recorder is destroyed.
    void setEncoder(DVREncoderHAL *encoder) { mRecorder.mEncoder = encoder; }
    void setInCallback(bool inCallback) { mRecorder.mInCallback = inCallback; }

private:
    Recorder &mRecorder;
};

// Test access to the service's client registry, which clients otherwise reach
// through the control interface, its death recipients and its recorder table.
class DVRPeer {
public:
    static CallbackManager &callbackManager(DVR &service) { return *service.mCbkMgr; }
    static std::map<int, android::sp<DVRDeathRecipient>> &deathRecipients(DVR &service) {
        return service.mDeathRecipients;
    }
    // Recipients and service hold each other; a test that releases its
    // service first ends what only the service's destruction ends otherwise.
    // Under the service lock: a client's death may be handled meanwhile.
    static void forgetDeathRecipients(DVR &service) {
        std::lock_guard<std::mutex> serviceGuard(service.mLock);
        service.mDeathRecipients.clear();
    }
    // The service's recorder, camera and audio input of an index (null when
    // there is none); the service owns them.
    static Recorder *recorder(DVR &service, int index) { return service._recorderAt(index); }
    static DVRCameraDevice *camera(DVR &service, int index) {
        return service._getCameraFromList(index);
    }
    static DVRAudioDevice *audio(DVR &service, int index) {
        return service._getAudioFromList(index);
    }
    // Takes the recorder of index out of the service, which forgets it; the
    // caller owns it from then on.
    static Recorder *takeRecorder(DVR &service, int index) {
        Recorder *recorder = service.mRecorder[index];
        service.mEncIdMap.erase(recorder->getEncoderId());
        service.mRecorder[index] = nullptr;
        return recorder;
    }
    static void dropCallbackManager(DVR &service) { service.mCbkMgr.reset(); }
    static const android::sp<DVRCallbackThread> &callbackThread(DVR &service) {
        return service.mCbkThread;
    }
    static void setSuspend(DVR &service, bool suspended) { service.mIsSuspend = suspended; }
    static uint32_t recordingMask(DVR &service) { return service.mRecordingMask; }

    // Broken tables, which only a bug in the service could leave behind; each
    // returns what it took away so that the test can put it back before the
    // service is destroyed.
    static Recorder *emptySlot(DVR &service, int index) {
        Recorder *recorder = service.mRecorder[index];
        service.mRecorder[index] = nullptr;
        return recorder;
    }
    static void fillSlot(DVR &service, int index, Recorder *recorder) {
        service.mRecorder[index] = recorder;
    }
    static void mapEncoder(DVR &service, int encId, int index) { service.mEncIdMap[encId] = index; }
    static void mapCamera(DVR &service, int camId, int index) { service.mCamIdMap[camId] = index; }
    static void mapAudio(DVR &service, int audId, int index) { service.mAudIdMap[audId] = index; }
    static void unmapEncoder(DVR &service, int encId) { service.mEncIdMap.erase(encId); }
    static DVRCameraDevice *unlistCamera(DVR &service, int index) {
        DVRCameraDevice *camera = service.mCameraList.at(index);
        service.mCameraList.erase(index);
        return camera;
    }
    static void listCamera(DVR &service, int index, DVRCameraDevice *camera) {
        service.mCameraList[index] = camera;
    }
    static DVRAudioDevice *unlistAudio(DVR &service, int index) {
        DVRAudioDevice *audio = service.mAudioList.at(index);
        service.mAudioList.erase(index);
        return audio;
    }
    static void listAudio(DVR &service, int index, DVRAudioDevice *audio) {
        service.mAudioList[index] = audio;
    }
};

}  // namespace dvrspace

#endif  // DVR_TEST_RECORDER_PEER_H
