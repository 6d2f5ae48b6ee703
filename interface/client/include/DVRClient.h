// A client's connection to the recording service: finds the service by name,
// starts this process's binder thread pool (callbacks and death notifications
// arrive there), attaches a callback object under this process's id and
// subscribes it; the destructor detaches it again.
//
//   dvrspace::DVRClient client;
//   if (!client.connect()) { fprintf(stderr, "%s\n", client.error().c_str()); }
//   client.listen(new MyCallback);               // a DVRCallbackAdapter
//   client.service()->startRecord(100);
//
// The service is looked up in the binder directory of the process: the
// environment variable DVR_BINDER_DIR, else the binder library's default for
// the user (docs/client.md). Use one DVRClient per process (the service knows
// a client by its process id), from one thread at a time; the service itself
// may be called from any thread.
#ifndef DVR_CLIENT_H
#define DVR_CLIENT_H

#include <initializer_list>
#include <string>
#include <vector>

#include "IDVR.h"
#include "IDVRCallback.h"

namespace dvrspace {

class DVRClient {
public:
    static constexpr const char *kDefaultServiceName = "dvr";
    static constexpr int kDefaultTimeoutMs = 5000;

    explicit DVRClient(std::string serviceName = kDefaultServiceName);
    // Unsubscribes and detaches the callback that listen() attached, when the
    // service still runs.
    ~DVRClient();
    DVRClient(const DVRClient &) = delete;
    DVRClient &operator=(const DVRClient &) = delete;

    // Starts the binder thread pool and waits up to timeoutMs for the service
    // (a negative timeout waits for ever). False when it did not appear;
    // error() says where it was looked for.
    bool connect(int timeoutMs = kDefaultTimeoutMs);
    // The service after a successful connect(), else null.
    const android::sp<IDVR> &service() const { return mService; }
    // False once the service's process has ended (or before connect()).
    bool serviceAlive() const;

    // Attaches callback as this process's callback object (establishCallback
    // with getpid()) and subscribes it to every type, with the type's value
    // as its cbkId. Returns 0, or the first failing result (error() says
    // which call failed). Call after connect(), once.
    int listen(const android::sp<IDVRCallback> &callback,
               std::initializer_list<DVRCbkObjType_e> types = {
                   DVR_CBK_OBJ_RECORD, DVR_CBK_OBJ_ERROR, DVR_CBK_OBJ_ABNORMAL});

    // This process's id, as the service knows the client.
    int pid() const { return mPid; }
    // Why the last connect() or listen() failed.
    const std::string &error() const { return mError; }

private:
    void detach();

    const std::string mServiceName;
    const int mPid;
    android::sp<IDVR> mService;
    android::sp<IDVRCallback> mCallback;
    std::vector<DVRCbkObjType_e> mSubscribed;
    std::string mError;
};

}  // namespace dvrspace

#endif  // DVR_CLIENT_H
