// One recording channel: an encoder with its settings (the ones in force and
// the staged ones), its output file names and storage path, and the camera and
// audio input the service attaches to it.
//
// Control operations run on client (binder) threads; the encoder reports on
// its own threads through the five callback functions below, which find their
// recorder in gRecorderList by encoder id. Lock order: mStateLock, then at most
// one of mSettingsLock, mDeviceLock and mFileNameLock, with mDeviceLock before
// mSettingsLock; mLock is innermost.
#ifndef DVR_RECORDER_H
#define DVR_RECORDER_H

#include <pthread.h>

#include <atomic>
#include <map>
#include <mutex>
#include <set>

#include "DVRAudioDevice.h"
#include "DVRCameraDevice.h"
#include "DVREncoderHAL.h"
#include "DVRTypes.h"
#include "EncoderCapability.h"
#include "RecordSettings.h"
#include "TriggerEncodeThread.h"

namespace dvrspace {

class DVR;
class DVRFileNameGenerator;
class Recorder;

// Every live recorder under its encoder id. Written by the recorders'
// constructors and destructors, read without a lock by the encoder callbacks.
extern std::map<int, Recorder *> gRecorderList;

// Directory for default file names, read once from the runtime configuration
// (DVR_DEFAULT_PATH) by the first recorder; null until then.
extern char *gDefaultPath;

// Reads gDefaultPath with at most min(line limit - 16, maxLength) bytes,
// falling back to "/tmp/dvr_default". Called by the first recorder's constructor.
void read_default_path(int maxLength);
// Creates gDefaultPath when missing and copies it into ret_path (capacity
// bytes); 0, or -1 when the directory cannot be created.
int create_default_path(char *ret_path, int capacity);

// The encoder's callbacks, handed to the encoder factory in this order. They
// run on the encoder's threads; an unknown encoder id aborts.
void OnRecordStartCallback(int id, const char *file);
void onRecordFinishCallback(int id, const char *file);
void onFileFinishCallback(int id, const char *file);
void onNeedDataCallback(int id, ENCNeedDataType_e type);
void onErrorCallback(int id, DVRErrorServerity_e severity, int code);

class Recorder {
public:
    // Runs one shell command, like system(); its result is ignored.
    using CommandRunner = int (*)(const char *command);

    // Loads the settings (store first, runtime configuration second), waits for
    // the encoder service to run, takes the encoder of channel index and registers
    // in gRecorderList. Every failure aborts.
    Recorder(int index, DVR &service);
    // Camera and audio must have been detached.
    ~Recorder();
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    // The id of this recorder's encoder, by which clients address the channel
    // and log lines name it; -1 without an encoder. Any thread.
    int getEncoderId() const;

    // --- Devices (service object, under its lock) ---
    // Keeps an already attached camera; clamps the staged settings to the camera.
    void attachCamera(DVRCameraDevice *pCamDev);
    void attachAudio(DVRAudioDevice *pAudDev);
    void detachCamera();
    void detachAudio();
    // Under the device lock; a WARN line and null when none is attached.
    DVRCameraDevice *getCameraDevice();
    DVRAudioDevice *getAudioDevice();
    // No lock, no log.
    DVRCameraDevice *getAttachedCamera() const { return mCamera; }
    DVRAudioDevice *getAttachedAudio() const { return mAudio; }

    // --- Settings (client threads) ---
    // Fills the staged settings from the vendor-data store, key by key falling
    // back to the runtime configuration.
    void readSettingsFromConfig();
    // Loads the factory values from the runtime configuration into the staged
    // settings and writes them to the store; a failed write aborts.
    DVRResult_e resetSettings();
    // Drops the staged changes: the settings in force become the staged ones.
    DVRResult_e abandonNewSettings();
    // True while staged and in-force settings were changed at different times.
    bool isSettingChanged();
    // Copies the settings in effect (in force while recording, staged otherwise).
    void getCurrentSettings(RecordSettings_t *pSettings);

    // Setters change the staged settings only; -2 for a value out of range.
    DVRResult_e setOutputFormat(DVRFileFormat_e format);
    DVRResult_e setBitRate(int bitRate);
    DVRResult_e setFileLength(int seconds);
    // Need a camera (-1 without one).
    DVRResult_e setFrameRate(int frameRate);
    // Only "follow the input" is accepted: width or height -1 takes the camera's size.
    DVRResult_e setResolution(int width, int height);
    DVRResult_e setTimestamp(const QVStampSettings_t &setting);
    DVRResult_e setSelfDefinedStamp(const QVStampSettings_t *pSetting);
    // Changes staged and in-force settings alike.
    DVRResult_e setAudioRecording(bool enable);
    DVRResult_e setSamplingRate(unsigned int rate);
    std::set<unsigned int> encoderSamplingRate();

    // Fields of the settings in effect, read without the lock.
    DVRFileFormat_e getOutputFormat() const;
    int getBitRate() const;
    int getFrameRate() const;
    int getFileLength() const;
    bool getAudioRecording() const;
    DVRResolution_e getResolution() const;
    DVRResult_e getTimestampSetting(QVStampSettings_t *pTsSetting);
    DVRResult_e getSelfDefinedStampSetting(QVStampSettings_t *pStampSetting);
    // The encoder capability shared by all recorders; -1 before the first
    // recorder has read it.
    static DVRResult_e getDeviceCaps(EncoderDeviceCaps_t *pCaps);

    // --- Control (client threads) ---
    // Brings the staged settings into force, starts the devices and the
    // encoder (through the trigger-encode thread, without waiting for it).
    // -3 while suspended or outside DVR_STM_READY.
    DVRResult_e start();
    // Stops the encoder, waits for its last callback and stops the devices.
    // -3 outside DVR_STM_RECORDING, and when the encoder never reports
    // playing, which leaves DVR_STM_STOPPING behind for good.
    DVRResult_e stopAndWait();
    // Read without a lock.
    DVRStm_e getCurrentState() const { return mState; }
    DVR &getService() const { return mService; }

    // --- Suspend and service failure (service object) ---
    // 0, or -1 when the encoder refuses.
    int onSuspend();
    int onResume();
    // Tells the clients that the encoder service ended abnormally.
    void abnormal();

    // --- Encoder events (the encoder's threads, through the free callbacks) ---
    // Fetches one video frame (stamped) or audio chunk and pushes it to the
    // encoder; only while recording. An unknown type aborts.
    void onNeedData(ENCNeedDataType_e type);
    // The encoder rolled over: names its next file and reports the finished
    // and the new file; only while recording.
    void onFileFinish(const char *pFinishFile);
    void OnRecordStart(const char *pStartFile);
    void onRecordFinish(const char *pLastFile);
    // Stops the recording, then reports the error; an unknown severity aborts.
    void onError(DVRErrorServerity_e severity, int code);

    // Replaces how the storage-tuning commands of the first start and the last
    // stop are run (system() by default, which fails harmlessly where the
    // board's controller is missing); returns the previous runner. Call it
    // while no recorder starts or stops.
    static CommandRunner setCommandRunner(CommandRunner runner);

    // --- File names (client threads) ---
    // Directory for default names; null or empty clears it.
    DVRResult_e setStoragePath(const char *path);
    // The client's path for the next file.
    DVRResult_e nextFile(const char *pFileName);
    // Pattern naming (see DVRFileNameGenerator); no format means default names.
    DVRResult_e setFileNameFormat(const char *fileNameFmt, const char *timeFmt);
    // Names come from the file-name client while on.
    DVRResult_e autoNextFile(bool enable);
    bool hasNextFile();

    // --- Stamps and snapshot ---
    // Takes the camera's next frame, draws the stamps into it and returns its
    // physical addresses: 0, or -1 without a camera or frame. Client threads.
    DVRResult_e takeSnapshot(SnapshotPA_t &result);

private:
    friend class RecorderPeer;  // test access to the naming steps
    // Its start-up names the first file and configures the encoder with the
    // settings in force; its stop waits through _waitLastCallback().
    friend class TriggerEncodeThread;

    const RecordSettings_t &_settingsInEffect() const;
    void _stampChangeTime(RecordSettings_t &settings);

    void _getCapsFromDevices();
    void _capsCheckSystemLimit(EncoderCapability_t *pCaps);
    void _capsCheckAndCorrection();

    bool _isNextFileSet();
    void _setNextFileName(const char *pFileName);
    int _getNextFileFromUser();
    void _genDefaultFileName();
    void _updateFileName();
    void _applyNextFile();

    // Draws the time stamp and the user stamp (text asked from the stamp
    // client) of the current settings into the NV12 frame at frame[0]: 0, or -1
    // when the client gave no text (the time stamp is drawn all the same). A
    // camera must be attached.
    int _renderStamp(void **frame);

    // Waits up to two frame periods for a callback that was already due to
    // begin, then up to a second for it to end; longer aborts.
    void _waitLastCallback();
    // The first start runs the low-threshold command, the last stop the
    // high-threshold one.
    static void _countRecordingStart();
    static void _countRecordingStop();

    // Shared by all recorders: allocated by the first, freed with the last.
    static EncoderCapability_t *mgDeviceCaps;
    static int mdRefCount;
    // Recorders currently recording.
    static int mdRecordCount;

    // Guards mNextFileName while it is written.
    std::mutex mLock;
    std::mutex mSettingsLock;
    // Serialises the operations that change the state.
    std::mutex mStateLock;
    // Guards the device pointers and the audio handle.
    std::mutex mDeviceLock;
    std::atomic<DVRStm_e> mState;
    DVRCameraDevice *mCamera;
    DVRAudioDevice *mAudio;
    int mAudioHandle;
    RecordSettings_t mCurSettings;
    RecordSettings_t mNewSettings;
    char *mFileName;
    char *mNextFileName;
    char *mStoragePath;
    // Created by the first start, run again by every later one.
    android::sp<TriggerEncodeThread> mTriggerEncodeThread;
    DVR &mService;
    DVREncoderHAL *mEncoder;
    DVRFileNameGenerator *mFileNameGenerator;
    // Guards the generator.
    pthread_mutex_t mFileNameLock;
    // Written before any lock is taken, read by the encoder callbacks.
    std::atomic<bool> mbAutoNextFile;
    // True while an encoder callback runs; polled by _waitLastCallback().
    std::atomic<bool> mInCallback;
};

}  // namespace dvrspace

#endif  // DVR_RECORDER_H
