// Glue between the system and the service object: DVRSvcReceiver answers
// the system's suspend-to-disk (hibernation) messages, and service_monitor
// passes the service monitor's reports on.
#ifndef DVR_STD_H
#define DVR_STD_H

#include <string>

#include "ServiceMessager.h"
#include "svc_mon.h"

namespace dvrspace {

class DVR;

// Receives ("<SVC_NAME>", "hibernationstate", value) on the message
// channel's delivery thread, makes the service suspend or resume and
// replies with the outcome. Registered by its constructor; owned by the
// service object, which deletes it once the system confirms the resume.
class DVRSvcReceiver : public system_extension::ServiceMessageReceiver {
public:
    // The name is $SVC_NAME, "dvr_server" when unset. Null arguments abort.
    DVRSvcReceiver(DVR *dvr, system_extension::ServiceMessager *msgr);
    ~DVRSvcReceiver() override;
    DVRSvcReceiver(const DVRSvcReceiver &) = delete;
    DVRSvcReceiver &operator=(const DVRSvcReceiver &) = delete;

    // "suspendbegin" and "resumebegin" are answered with
    // "suspend<outcome>" / "resume<outcome>"; "resumesuccess" and
    // "resumeignored" end the handling; everything else is ignored.
    void onMessageReceived(const std::string &name, const std::string &message,
                           const std::string &value) override;

private:
    std::string mSvcName;
    DVR *mDvr;
    system_extension::ServiceMessager *mMsgr;
};

// The service monitor's handler; context is the DVR. Arguments that the
// monitor never gives (another reporter, nulls) abort.
void service_monitor(const char *svc_name, const svc_state_t *state_data, int count, void *context);

}  // namespace dvrspace

#endif  // DVR_STD_H
