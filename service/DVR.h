// The recording service object. So far it holds what its recorders consult:
// the client registry for file-name queries, the service-monitor handle the
// recorders wait on for the encoder service, and the suspend flag.
#ifndef DVR_SERVICE_DVR_H
#define DVR_SERVICE_DVR_H

#include <atomic>
#include <memory>

#include "CallbackManager.h"
#include "svc_mon.h"

namespace dvrspace {

class DVR {
public:
    // Creates the client registry and the service-monitor handle; a failure aborts.
    DVR();
    ~DVR();
    DVR(const DVR &) = delete;
    DVR &operator=(const DVR &) = delete;

    // True while the system is suspended. Any thread, no lock.
    bool isSuspend() const { return mIsSuspend; }
    // Never null while the object lives.
    svc_mon_handle_t getSvcMonHandle() const { return mSvcMonHandle; }

    // Asks the first client subscribed to DVR_CBK_OBJ_FILENAME for the next
    // file name of the recorder whose camera is index, synchronously on the
    // calling (recorder) thread and without the service lock. pRetFileName
    // (length bytes) stays untouched when no client answers.
    void getFileNameFromUser(int index, char *pRetFileName, int length);

private:
    friend class DVRPeer;  // test access to the client registry

    std::shared_ptr<CallbackManager> mCbkMgr;
    svc_mon_handle_t mSvcMonHandle;
    std::atomic<bool> mIsSuspend;
};

}  // namespace dvrspace

#endif  // DVR_SERVICE_DVR_H
