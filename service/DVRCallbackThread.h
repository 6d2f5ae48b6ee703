// "DVR Callback Thread": the one consumer of the client-notification queue.
// Recorders, encoder threads and the service monitor queue records through
// triggerCallback (via DVR::doCallback) and never wait for a client; this
// thread delivers them one at a time, first in, first out, over binder calls
// that may block.
#ifndef DVR_CALLBACK_THREAD_H
#define DVR_CALLBACK_THREAD_H

#include <utils/Thread.h>

#include <atomic>
#include <cstdint>

#include "CbkInfo.h"
#include "DVRMessageQueue.h"

namespace dvrspace {

class DVRCallbackThread : public virtual android::Thread {
public:
    // Does not start the thread: the owner calls run("DVR Callback Thread", 0, 0).
    DVRCallbackThread();
    ~DVRCallbackThread() override;

    // Queues a copy of *info; the caller may reuse its record at once. Dropped
    // silently once exitAndWait has stopped the queue. Any thread.
    void triggerCallback(CbkInfo_t *info);

    // Delivers everything queued so far, then ends and joins the thread: the
    // status of requestExitAndWait(), 0 on success. Called once, by the owner,
    // from a thread other than this one.
    android::status_t exitAndWait();

    // The service sets this interval (microseconds) to 30000 while any
    // recorder records and back to 300000 when the last one stops; delivery
    // does not depend on it. Any thread.
    void setInterval(int32_t intervalUs) { mIntervalUs = intervalUs; }
    int32_t interval() const { return mIntervalUs; }

protected:
    // Delivers one record; false ends the thread. An unknown command aborts.
    bool threadLoop() override;

private:
    // Pause between two looks at the queue while it drains.
    static constexpr unsigned int kDrainPollUs = 10000;

    DVRMessageQueue<CbkInfo_t> mMsgQueue;
    std::atomic<int32_t> mIntervalUs;
    // Set by exitAndWait when the queue stops: a failed receive then ends the thread.
    std::atomic<bool> mStopping;
};

}  // namespace dvrspace

#endif  // DVR_CALLBACK_THREAD_H
