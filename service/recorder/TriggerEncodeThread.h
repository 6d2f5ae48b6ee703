// The per-recorder worker that brings the encoder up and, when capture threads
// feed it, hands their frames and audio chunks to the encoder one at a time.
//
// A Recorder creates it at its first start, keeps it for its whole life and
// runs the same object again at every later start: readyToRun() configures and
// starts the encoder, threadLoop() sleeps until data is posted or the recorder
// stops it, preStop() stops the encoder and waits for its last callback.
//
// Threads: readyToRun() and threadLoop() run on the thread itself; producers
// call collectVideoData() and collectAudioData() from their own threads; the
// recorder's control thread calls preStop(), trigger(), requestExit() and
// join() in that order to stop it.
#ifndef DVR_TRIGGER_ENCODE_THREAD_H
#define DVR_TRIGGER_ENCODE_THREAD_H

#include <pthread.h>
#include <utils/Thread.h>

#include <atomic>
#include <cstdint>

#include "DVREncoderHAL.h"
#include "RecordSettings.h"

namespace dvrspace {

class Recorder;

class TriggerEncodeThread : virtual public android::Thread {
public:
    // Both are borrowed and must outlive the thread.
    TriggerEncodeThread(Recorder *pRecorder, DVREncoderHAL *pEncoder);
    // The thread must have ended.
    ~TriggerEncodeThread() override;

    // Configures the encoder with the recorder's settings and the camera's
    // capability words, names its first file and starts it; every failure
    // aborts. Runs once per run(), on the new thread.
    android::status_t readyToRun() override;

    // Stops the encoder and waits for its last callback; returns the result of
    // the encoder's stop(). Control thread, before requestExit().
    int preStop();
    // Wakes the loop once; lost when the loop is not waiting.
    void trigger();
    // Stamps the frame and posts it for the encoder, replacing a frame not yet
    // taken. Waits up to a second for the loop to be ready; aborts beyond that.
    void collectVideoData(void **frameVA, unsigned int *framePA);
    // Posts an audio chunk, replacing one not yet taken; waits like
    // collectVideoData().
    void collectAudioData(void *data, unsigned int length);
    // True once preStop() has run; stays true for the object's life.
    bool isPreStopped() const { return mbPreStopped; }

private:
    friend class TriggerEncodeThreadPeer;  // test access to the pending slots

    bool threadLoop() override;
    void _dataReady();
    // 0 once the loop waits (or is stopping, or not running); -1 after
    // milliseconds (none when not positive).
    int _waitRunning(long milliseconds);
    int getEncoderId() const;

    // Pending frame: both zero when none.
    void *mFrameVA[2];
    uint32_t mFramePA[2];
    // Pending audio: null when none.
    void *mAudioData;
    uint32_t mAudioLength;
    Recorder *mRecorder;
    DVREncoderHAL *mEncoder;
    // Hand-off to the loop; also guards the pending slots, which producers
    // write on their own threads.
    pthread_cond_t mCond;
    pthread_mutex_t mMutex;
    RecordSettings_t mSettings;
    // True exactly while the loop is blocked on mCond.
    std::atomic<bool> mbWaiting;
    // Set by preStop() and never cleared: an exit without it is a programming
    // error the loop checks for.
    std::atomic<bool> mbPreStopped;
};

}  // namespace dvrspace

#endif  // DVR_TRIGGER_ENCODE_THREAD_H
