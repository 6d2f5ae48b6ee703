// The recording service object. So far it holds what its recorders and its
// clients' callbacks need: the client registry, the callback thread and the
// client death recipients, the service-monitor handle the recorders wait on
// for the encoder service, and the suspend flag.
#ifndef DVR_SERVICE_DVR_H
#define DVR_SERVICE_DVR_H

#include <utils/RefBase.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "CallbackManager.h"
#include "DVRCallbackThread.h"
#include "DVRDeathRecipient.h"
#include "DVRTypes.h"
#include "IDVRCallback.h"
#include "svc_mon.h"

namespace dvrspace {

class Recorder;

// Held through android::sp: client death recipients keep strong references.
class DVR : public virtual android::RefBase {
public:
    // Starts the callback thread, then creates the client registry and the
    // service-monitor handle; a failure aborts.
    DVR();
    // Delivers what is still queued for the clients and stops the callback thread.
    ~DVR() override;
    DVR(const DVR &) = delete;
    DVR &operator=(const DVR &) = delete;

    // True while the system is suspended. Any thread, no lock.
    bool isSuspend() const { return mIsSuspend; }
    // Never null while the object lives.
    svc_mon_handle_t getSvcMonHandle() const { return mSvcMonHandle; }

    // --- Client callbacks (binder threads, under the service lock) ---
    // Subscribes or unsubscribes; the arguments go to the client registry
    // unchanged. -1 when the registry refuses.
    DVRResult_e registerCallback(int pid, int cbkId, DVRCbkObjType_e type);
    DVRResult_e unregisterCallback(int pid, int cbkId, DVRCbkObjType_e type);
    // Attaches the client's callback object and watches its process for death.
    DVRResult_e establishCallback(int pid, const android::sp<IDVRCallback> &callback);
    // Detaches the client; -1 when pid has none.
    DVRResult_e destroyCallback(int pid);
    // The client of pid died (its death recipient calls this): every recorder
    // falls back to its own file naming and keeps recording; the client is
    // detached. Never call with the service lock held.
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

private:
    friend class DVRPeer;  // test access to the registry, recipients and recorders

    // The caller holds mLock. -1 when pid has no client.
    int destroyCallbackInternal(int pid);
    // The first subscriber of a query type: its cbkId and its object as an
    // IDVRCallback (null when it is none). False when nobody subscribed.
    bool _firstSubscriber(DVRCbkObjType_e type, int *cbkId, android::sp<IDVRCallback> *cbkHandler);

    std::shared_ptr<CallbackManager> mCbkMgr;
    // One slot per channel, mRecCount of them; NULL without recorders.
    Recorder **mRecorder;
    int mRecCount;
    // Entries stay after their client is detached: a later establishCallback
    // for the same PID replaces them, otherwise they go with the service.
    std::map<int, android::sp<DVRDeathRecipient>> mDeathRecipients;
    // The service lock.
    std::mutex mLock;
    svc_mon_handle_t mSvcMonHandle;
    std::atomic<bool> mIsSuspend;
    android::sp<DVRCallbackThread> mCbkThread;
};

}  // namespace dvrspace

#endif  // DVR_SERVICE_DVR_H
