// A client's callback object with nothing to do by default: derive from it and
// override only the notifications the client cares about. Every method
// returns 0; the two queries leave the service's buffer untouched (which the
// service reads as "no stamp text" and "no file name"). Calls arrive on the
// client's binder pool threads (DVRClient starts the pool), concurrently, also
// while the client waits in a call of its own to the service.
#ifndef DVR_CALLBACK_ADAPTER_H
#define DVR_CALLBACK_ADAPTER_H

#include "BnDVRCallback.h"

namespace dvrspace {

class DVRCallbackAdapter : public BnDVRCallback {
public:
    // A file started (index: the encoder id; fileName: its path).
    int onRecordStart(int cbkId, int index, const char *fileName) override;
    // A file is complete.
    int onRecordFinish(int cbkId, int index, const char *fileName) override;
    // The encoder failed and the channel stopped (normal or severe error).
    int onRecordError(int cbkId, int index, int errorCode) override;
    int onRecordErrorSevere(int cbkId, int index, int errorCode) override;
    // The encoder service stopped under the channel.
    int onRecordAbnormal(int cbkId, int index, int value) override;
    // The user-stamp text (IDVRCallback::kStampStringCapacity bytes).
    int getStampString(int cbkId, int index, char *buffer) override;
    // The next file name, when the channel's automatic naming is on.
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override;
};

}  // namespace dvrspace

#endif  // DVR_CALLBACK_ADAPTER_H
