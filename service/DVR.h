// The recording service object, published to clients as IDVR. It owns the
// cameras and audio inputs found at start-up, one Recorder per camera (one
// when there is none), the client registry with the callback thread, and its
// links to the service monitor and the system message channel.
//
// Exactly one lives per service process, held through android::sp (binder
// and client death recipients keep strong references). Construction and
// destruction run on the thread that creates and releases it; every other
// operation may run on any thread, most of them under the service lock.
//
// Lock order: the service lock mLock, then the client registry's locks, then
// the callback queue's locks; a recorder's own locks come after mLock.
#ifndef DVR_SERVICE_DVR_H
#define DVR_SERVICE_DVR_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "CallbackManager.h"
#include "DVRAudioDevice.h"
#include "DVRCallbackThread.h"
#include "DVRCameraDevice.h"
#include "DVRDeathRecipient.h"
#include "DVRTypes.h"
#include "IDVR.h"
#include "IDVRCallback.h"
#include "ServiceMessager.h"
#include "svc_mon.h"

namespace dvrspace {

class DVRSvcReceiver;
class Recorder;

class DVR : public BnDVR {
public:
    // Dumps the build options, registers with the service monitor and the
    // message channel, discovers cameras and audio inputs, builds the
    // recorders and the callback thread, the client registry and the
    // sampling rates. Every failure aborts (or exits, for a device layer
    // that throws an unexpected exception): no half-built service exists.
    DVR();
    // Stops the recorders and the callback thread, deletes the devices and
    // leaves the service monitor.
    ~DVR() override;
    DVR(const DVR &) = delete;
    DVR &operator=(const DVR &) = delete;

    // --- IDVR: client callbacks (binder threads, under the service lock) ---
    // Subscribes or unsubscribes; the arguments go to the client registry
    // unchanged. -1 when the registry refuses.
    DVRResult_e registerCallback(int pid, int cbkId, DVRCbkObjType_e type) override;
    DVRResult_e unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type) override;
    // Attaches the client's callback object and watches its process for death.
    DVRResult_e establishCallback(int pid, const android::sp<IDVRCallback> &callback) override;
    // Detaches the client; -1 when pid has none.
    DVRResult_e destroyCallback(int pid) override;

    // --- IDVR: control (binder threads) ---
    // Channels are addressed by encoder id, devices by device id; an unknown
    // id gives -1 (getters: -1 or false). Operations that wait for a recorder
    // to stop hold the service lock for the whole wait.
    DVRResult_e startRecordAll() override;
    DVRResult_e stopRecordAll() override;
    // Restarts every recording channel so that its staged settings take effect.
    DVRResult_e applySettingsAll() override;
    DVRResult_e abandonNewSettingsAll() override;
    DVRResult_e factoryReset() override;
    // -3 unless every recorder is idle or ready; then reselects the camera
    // sources and rebuilds cameras and recorders.
    DVRResult_e setCameraSources(int count, const std::vector<int> &sources) override;
    DVRResult_e setAudioRecording(int enc_id, bool enable) override;
    // The argument is not used: the first camera channel answers.
    bool getAudioRecording(int enc_id) override;
    // No lock: the tables change only at construction, teardown and rebuilds.
    int getCameraCount() override;
    DVRResult_e getCamera(int index, int *camId, QVDVRDeviceType_e *type) override;
    int getAudioCount() override;
    DVRResult_e getAudio(int index, int *audId) override;
    // A copy; rates that both the encoder and the audio input accept.
    std::set<unsigned int> getSupportSamplingRate() override;
    int getRecorderCount() override;
    DVRResult_e getEncoder(int index, int *encId) override;
    DVRResult_e attachCamera(int enc_id, int cam_id) override;
    DVRResult_e detachCamera(int enc_id) override;
    // Aborts for an unknown enc_id (a client bug the service does not survive).
    DVRResult_e getAttachedCamera(int enc_id, int *index) override;
    DVRResult_e attachAudio(int enc_id, int aud_id) override;
    DVRResult_e detachAudio(int enc_id) override;
    // Aborts for an unknown enc_id.
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
    // A null stamp aborts.
    DVRResult_e setSelfDefinedStamp(int enc_id, QVStampSettings_t *stamp) override;
    bool isSettingChanged(int enc_id) override;
    DVRStm_e getCurrentState(int enc_id) override;
    // The capabilities all channels share; enc_id is not used.
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
    // -2 for a rate outside getSupportSamplingRate(); the rate then reaches
    // the audio input and every recorder it feeds.
    DVRResult_e setSamplingRate(int aud_id, unsigned int rate) override;

    // True while the system is suspended. Any thread, no lock.
    bool isSuspend() const { return mIsSuspend; }
    // Never null while the object lives.
    svc_mon_handle_t getSvcMonHandle() const { return mSvcMonHandle; }

    // --- Client death (binder thread of the death notice, takes the lock) ---
    // Every recorder falls back to its own file naming and keeps recording;
    // the client is detached. Never call with the service lock held.
    void clientDied(int pid);

    // --- Notifications and queries (recorder threads, no service lock) ---
    // Queues one notification per subscriber of type, in the registry's order,
    // for the callback thread; never waits for a client. A null text sends "".
    void doCallback(int index, DVRCbkObjType_e type, DVR_CbkCmd_e cmd, const char *text, int value);
    // Asks the first client subscribed to DVR_CBK_OBJ_STAMP for the user-stamp
    // text of the camera index, synchronously. pStamp
    // (IDVRCallback::kStampStringCapacity bytes) stays untouched when no
    // client answers.
    void getStampFromUser(int index, char *pStamp);
    // Asks the first client subscribed to DVR_CBK_OBJ_FILENAME for the next
    // file name of the recorder whose camera is index, synchronously.
    // pRetFileName (length bytes) stays untouched when no client answers.
    void getFileNameFromUser(int index, char *pRetFileName, int length);

    // --- System suspend (message channel thread) ---
    // Refuses (-1) while a camera channel records or does not finish
    // stopping within 8 s, else suspends encoders and cameras; the audio
    // inputs are suspended in every case. Takes the service lock.
    DVRSTDResult_e onSuspend();
    // Resumes encoders and cameras, then audio inputs, stopping at the first
    // problem: -1 for a failure, 1 for a device's recoverable error.
    DVRSTDResult_e onResume();
    // The whole system has resumed: ends message handling for this object's
    // life and allows recording again.
    void onResumeSuccess();

    // --- Service monitor (monitor thread, takes the lock) ---
    // Tears down what a stopped or restarting encoder, camera or audio service
    // leaves invalid, restarts a stopped one, and rebuilds on "running".
    void serviceMonitor(const svc_state_t *states, int count);
    // Tells the subscribers that every channel is going away, stops all
    // recording and destroys the recorders. The caller holds the lock.
    void abnormal();

    // --- Discovery and building blocks (construction, rebuilds) ---
    // The listed device of index, else a new one from the factory, else null.
    DVRCameraDevice *probeCameraDevice(int index);
    DVRAudioDevice *probeAudioDevice(int index);
    // Fill the id maps and lists; return the number of devices.
    int initializeCameraDevice();
    int initializeAudioDevice();
    // Starts a new callback thread, then creates count recorders unless they
    // exist already.
    void initializeRecorder(int count);
    // Encoder rates of recorder 0 that audio input 0 also offers.
    std::set<unsigned int> calculateSupportSamplingRate();
    // Deletes the recorders, then stops the callback thread after it has
    // delivered what was queued.
    void finalizeRecorder();
    void finalizeCameraDevice();
    void finalizeAudioDevice();

    // Id to table index, -99 when unknown.
    int findCameraIndex(int camId);
    int findAudioIndex(int audId);
    int findEncoderIndex(int encId);

    // The first two capability words of an audio input, as clients see them.
    static void copyAudioCaps(AudioDeviceCaps_t *out, const DVRAudioCaps_t &in);

private:
    friend class DVRPeer;  // test access to the tables and the registry

    static void _dumpOptions();

    // The caller holds mLock. -1 when pid has no client.
    int destroyCallbackInternal(int pid);
    // The first subscriber of a query type: its cbkId and its object as an
    // IDVRCallback (null when it is none). False when nobody subscribed.
    bool _firstSubscriber(DVRCbkObjType_e type, int *cbkId, android::sp<IDVRCallback> *cbkHandler);

    DVRCameraDevice *_getCameraFromList(int index);
    DVRAudioDevice *_getAudioFromList(int index);
    // Recorder of a slot, null when the slot or the whole table is empty.
    Recorder *_recorderAt(int index) const;
    // The common frame's lookup: the index of enc_id's recorder, -1 after an
    // ERROR line for an unknown id; a corrupt map aborts. The caller holds mLock.
    int _lookupEncoder(const char *function, int enc_id);
    // A recorder's non-zero result, logged in the name of the client's
    // operation, and passed on.
    DVRResult_e _logFailure(const char *function, int index, DVRResult_e result);
    // The common frame: under mLock, operation on enc_id's channel with args,
    // or unknownResult for an unknown id. operation is a Recorder member (run
    // on the channel's recorder), a DVR member whose first parameter is the
    // channel's index, or a function of the recorder.
    template <typename Result, typename Operation, typename... Args>
    Result _inFrame(const char *function, int enc_id, Result unknownResult, Operation operation,
                    Args &&...args);
    // The same for a DVRResult_e operation: -1 for an unknown id, a failure
    // logged in the name of the client's operation.
    template <typename Operation, typename... Args>
    DVRResult_e _forward(const char *function, int enc_id, Operation operation, Args &&...args);
    // operation on the channel of index, as the frame runs it.
    template <typename Operation, typename... Args>
    auto _onChannel(int index, Operation operation, Args &&...args);

    // The caller holds mLock.
    DVRResult_e startRecordInternal(int index);
    DVRResult_e stopRecordInternal(int index);
    DVRResult_e stopRecordAllInternal();
    // applySettings on channel index: a recording channel restarts, which
    // brings its staged settings into force; other states keep them staged.
    DVRResult_e _restartIfRecording(int index);
    // The monitor's "running": the recorders for the current camera count.
    void _rebuildRecorders();

    std::shared_ptr<CallbackManager> mCbkMgr;
    // One slot per channel, mRecCount of them; NULL without recorders.
    Recorder **mRecorder;
    std::map<int, int> mCamIdMap;
    int mCameraCount;
    std::map<int, int> mAudIdMap;
    int mAudioCount;
    std::map<int, int> mEncIdMap;
    int mRecCount;
    std::map<int, DVRCameraDevice *> mCameraList;
    std::map<int, DVRAudioDevice *> mAudioList;
    // Entries stay after their client is detached: a later establishCallback
    // for the same PID replaces them, otherwise they go with the service.
    std::map<int, android::sp<DVRDeathRecipient>> mDeathRecipients;
    // The service lock.
    std::mutex mLock;
    svc_mon_handle_t mSvcMonHandle;
    svc_mon_notify_handle_t mSvcMonNotifyHdl;
    system_extension::ServiceMessager *mSvcMsgr;
    DVRSvcReceiver *mSvcReceiver;
    std::atomic<bool> mIsSuspend;
    std::set<unsigned int> mSupportSamplingRate;
    android::sp<DVRCallbackThread> mCbkThread;
    uint32_t mRecordingMask;
    // Set under mLock when teardown begins: a monitor report arriving then
    // must not rebuild what is being destroyed.
    bool mTearingDown;
};

}  // namespace dvrspace

#endif  // DVR_SERVICE_DVR_H
