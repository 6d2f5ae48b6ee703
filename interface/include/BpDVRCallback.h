// The service's proxy of a client's IDVRCallback, made by interface_cast on the
// binder that arrived with establishCallback. Any thread may call it; each call
// blocks until the client answers or its connection is gone.
#ifndef DVR_BP_DVR_CALLBACK_H
#define DVR_BP_DVR_CALLBACK_H

#include "IDVRCallback.h"

namespace dvrspace {

class BpDVRCallback : public android::BpInterface<IDVRCallback> {
public:
    explicit BpDVRCallback(const android::sp<android::IBinder> &impl);

    int onRecordStart(int cbkId, int index, const char *fileName) override;
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    int onRecordAbnormal(int cbkId, int index, int value) override;
    int getStampString(int cbkId, int index, char *buffer) override;
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;
};

}  // namespace dvrspace

#endif  // DVR_BP_DVR_CALLBACK_H
