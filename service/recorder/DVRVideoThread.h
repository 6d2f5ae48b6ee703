// Push-side capture: polls one camera five times a second and posts each frame
// to a trigger-encode thread, which stamps it and hands it to the encoder.
// Public for device integrators that feed an encoder this way; the recorder
// itself lets the encoder pull frames instead.
#ifndef DVR_VIDEO_THREAD_H
#define DVR_VIDEO_THREAD_H

#include <utils/Thread.h>

#include "DVRCameraDevice.h"
#include "TriggerEncodeThread.h"

namespace dvrspace {

class DVRVideoThread : virtual public android::Thread {
public:
    // The camera is borrowed; the target is held until destruction.
    DVRVideoThread(DVRCameraDevice *pCameraDevice, android::sp<TriggerEncodeThread> &encodeTh);
    ~DVRVideoThread() override;

private:
    // One call runs until an exit is requested.
    bool threadLoop() override;

    android::sp<TriggerEncodeThread> mEncodeTh;
    DVRCameraDevice *mCameraDevice;
};

}  // namespace dvrspace

#endif  // DVR_VIDEO_THREAD_H
