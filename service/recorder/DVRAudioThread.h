// Push-side capture: polls one audio input five times a second and posts each
// chunk, or a block of silence while disabled, to a trigger-encode thread.
// Public for device integrators that feed an encoder this way; the recorder
// itself lets the encoder pull audio instead.
#ifndef DVR_AUDIO_THREAD_H
#define DVR_AUDIO_THREAD_H

#include <utils/Thread.h>

#include <mutex>

#include "DVRAudioDevice.h"
#include "TriggerEncodeThread.h"

namespace dvrspace {

class DVRAudioThread : virtual public android::Thread {
public:
    // Bytes of silence posted per pass while disabled.
    static constexpr unsigned int kDummyAudioBytes = 1024;

    // The device is borrowed; the target is held until destruction. Disabled
    // (enable false) it posts silence.
    DVRAudioThread(DVRAudioDevice *pAudioDevice, android::sp<TriggerEncodeThread> &encodeTh,
                   bool enable);
    ~DVRAudioThread() override;

    // Switches between real audio and silence; any thread, also while running.
    void setEnable(bool enable);

private:
    friend class DVRAudioThreadPeer;  // test access to the silence block

    // One call runs until an exit is requested.
    bool threadLoop() override;
    // Allocates the silence block when there is none; a failure aborts.
    void _allocDummyBuffer();

    android::sp<TriggerEncodeThread> mEncodeTh;
    DVRAudioDevice *mAudioDevice;
    bool mEnable;
    // Present exactly while disabled.
    unsigned char *mDummyAudioBuffer;
    // Serialises setEnable() against a pass, so the block is never freed while
    // it is being posted.
    std::mutex mLock;
};

}  // namespace dvrspace

#endif  // DVR_AUDIO_THREAD_H
