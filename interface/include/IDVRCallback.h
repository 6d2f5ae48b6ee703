// The client's callback interface. A client implements it by deriving from
// BnDVRCallback and hands the object to IDVR::establishCallback; the service
// then holds a BpDVRCallback and calls it from its callback-dispatch thread
// (the five notifications) or from a recorder's thread (the two queries). In
// the client each call runs on a binder pool thread, also while that client
// waits in a call of its own to the service.
//
// Every call is synchronous and returns the client's status. cbkId is the
// integer given when subscribing, index the recorder the call concerns. If the
// client cannot be reached, a notification returns -1 and a query the
// transport's error, leaving its buffer untouched.
#ifndef DVR_IDVR_CALLBACK_H
#define DVR_IDVR_CALLBACK_H

#include <binder/IInterface.h>

namespace dvrspace {

class IDVRCallback : public android::IInterface {
public:
    DECLARE_META_INTERFACE(DVRCallback)

    // Size of the buffer that getStampString writes into, terminator included;
    // longer answers are cut to fit.
    static constexpr int kStampStringCapacity = 128;
    // Largest buffer that fileNameGenerator accepts; a larger length is refused
    // with BAD_VALUE before the client sees it.
    static constexpr int kMaxFileNameCapacity = 64 * 1024;

    virtual int onRecordStart(int cbkId, int index, const char *fileName) = 0;
    virtual int onRecordFinish(int cbkId, int index, const char *fileName) = 0;
    virtual int onRecordError(int cbkId, int index, int errorCode) = 0;
    virtual int onRecordErrorSevere(int cbkId, int index, int errorCode) = 0;
    virtual int onRecordAbnormal(int cbkId, int index, int value) = 0;
    // Writes the user-stamp text into buffer (kStampStringCapacity bytes, or
    // NULL when the caller passed none).
    virtual int getStampString(int cbkId, int index, char *buffer) = 0;
    // Writes the next file name into buffer (length bytes, or NULL when the
    // caller passed none); an empty name means the client has none.
    virtual int fileNameGenerator(int cbkId, int index, char *buffer, int length) = 0;
};

}  // namespace dvrspace

// The stub and the proxy come with the interface, as its users expect.
#include "BnDVRCallback.h"
#include "BpDVRCallback.h"

#endif  // DVR_IDVR_CALLBACK_H
