// A simulated hardware encoder: pulls video frames and audio chunks through
// the need-data callback on its own thread, one per frame or chunk period
// (real-time pacing) or back to back (fast pacing), encodes them with FFmpeg
// and writes a sequence of files of fileLength seconds each: of capture time,
// so a file that lost frames still ends when its time is up. At each file's
// end it logs (INFO) the frames written and the frame slots left empty.
//
// Threads: control operations on any thread; callbacks on the encoder's own
// worker thread, except record-finish, which stop() issues itself when the
// worker is stuck in the error callback waiting for that very stop.
#ifndef DVR_SIM_ENCODER_H
#define DVR_SIM_ENCODER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DVREncoderHAL.h"
#include "DVRMediaWriter.h"
#include "DVRPhysicalArena.h"
#include "DVRSimConfig.h"

namespace dvrspace {

struct DVREncoderCallbacks {
    DVRRecordStartCallback recordStart;
    DVRRecordFinishCallback recordFinish;
    DVRFileFinishCallback fileFinish;
    DVRNeedDataCallback needData;
    DVRErrorCallback error;
};

class DVRSimEncoder : public DVREncoderHAL {
public:
    // Error codes besides the negative errno values of failed file operations.
    static constexpr int kBadAddress = -14;  // a pushed frame is not in the arena

    DVRSimEncoder(int id, const DVREncoderSimConfig &config, const DVREncoderCallbacks &callbacks,
                  DVRPhysicalArena *arena);
    ~DVRSimEncoder() override;

    // -2 for settings or camera words it cannot encode, -3 while playing.
    int configure(RecordSettings_t *settings, const DVRCameraCaps_t &cameraCaps) override;
    // Used for the next file: at start(), or at the next roll-over.
    int setFileName(const char *path) override;
    int isPlaying() override;
    // -1 when not configured, without a file name, suspended or playing.
    int start() override;
    int stop() override;
    int requestKeyFrame() override;
    int pushVideoFrame(const uint32_t framePA[2], uint64_t *timestamp) override;
    int pushAudioData(void *data, int length, uint64_t *timestamp) override;
    int getCapability(EncoderCapability_t *capability) override;
    std::set<unsigned int> getSupportedSamplingRates() override;
    // -1 while playing.
    int suspend() override;
    int resume() override;

private:
    enum class Callback { None, RecordStart, FileFinish, NeedData, Error, RecordFinish };
    // When the worker last asked for a picture or a chunk, and the capture
    // time of the newest one it had received before that request.
    struct Schedule {
        int64_t requests = 0;
        int64_t lastDueUs = 0;             // of the last request, after start
        uint64_t captureBeforeLastUs = 0;  // newest capture time before it
    };

    void run();
    // Runs a callback unless a stop came first; false when it was not run.
    bool invoke(Callback kind, const std::function<void()> &call, bool evenWhenStopping = false);
    bool waitUntilDue(int64_t dueUs, std::chrono::steady_clock::time_point start);
    // When the next video request is due, in µs after start.
    int64_t nextVideoDue(const Schedule &schedule, int frameRate,
                         std::chrono::steady_clock::time_point start);
    // When the next audio request is due, in µs after start.
    int64_t nextAudioDue(const Schedule &schedule, std::chrono::steady_clock::time_point start);
    // Asks for one audio chunk; false when a stop came first.
    bool requestAudio(Schedule *schedule, int64_t dueUs);
    // Starts the next file under the name the service gave, or a free
    // numbered variant of the last one.
    void startNextFile();
    // Record-start for the recording's first file once it exists on disk.
    void announceFirstFile();
    bool rollOver();
    // Writes the picture that opens the next file, held back by
    // pushVideoFrame, once the roll-over made that file.
    void writeHeldPicture();
    // Encodes a picture into the open file; a failure becomes mWriterError.
    // The caller holds mWriterLock.
    int writePicture(const uint8_t *luma, const uint8_t *chroma, uint64_t captureUs);
    // Logs what the file just completed holds. The caller holds mWriterLock.
    void logFileEnd(const std::string &name);
    // Stalls the worker as the starvation knob asks; false when stopped.
    bool starve(int64_t videoRequests);
    // Reports a writer failure once, then idles until stop().
    void failRecording(int code);
    // Completes the last file and reports record-finish, once per recording.
    void finishRecording(bool onWorker);
    int writerError();
    void joinThreads();
    std::string uniqueName(const std::string &path) const;

    const DVREncoderSimConfig mConfig;
    const DVREncoderCallbacks mCallbacks;
    DVRPhysicalArena *const mArena;

    std::mutex mLock;  // guards everything below except the writer
    std::condition_variable mWake;
    bool mConfigured = false;
    bool mPlaying = false;
    bool mSuspended = false;
    bool mStopRequested = false;
    bool mFinalized = false;
    bool mWorkerDone = false;
    Callback mRunning = Callback::None;
    std::thread::id mWorkerId;
    DVRMediaFormat mFormat;
    int mFileLength = 0;  // seconds
    int mCameraWidth = 0;
    int mCameraHeight = 0;
    int mCameraStride = 0;
    std::string mNextName;        // last name from setFileName
    bool mNextNameFresh = false;  // given since the last file opened
    std::string mFileName;        // file being written
    bool mFileAnnounced = false;  // the client learnt of mFileName: record-finish is due
    int mPendingError = 0;        // bad address seen by a push, reported by the worker
    std::thread mWorker;
    std::thread mLateCallback;

    std::mutex mWriterLock;  // serialises the writer; taken before mLock
    DVRMediaWriter mWriter;
    int mWriterError = 0;  // first failure of the recording's writer
    int64_t mSlotsPerFile = 0;
    // The first picture of the next file: it came with the need-data request
    // that found the file full, and is only valid until the push returns.
    std::vector<uint8_t> mHeldPicture;
    uint64_t mHeldCaptureUs = 0;
    bool mPictureHeld = false;
};

}  // namespace dvrspace

#endif  // DVR_SIM_ENCODER_H
