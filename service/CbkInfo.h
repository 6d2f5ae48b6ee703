// One queued client notification: which client handler to call, for which
// recorder, with which command and payload. Queued by DVR::doCallback and
// delivered by DVRCallbackThread.
#ifndef DVR_CBK_INFO_H
#define DVR_CBK_INFO_H

#include <cstdint>
#include <string>

#include "DVRTypes.h"
#include "IDVRCallback.h"

namespace dvrspace {

struct CbkInfo_t {
    android::sp<IDVRCallback> cbk;  // may be null; the dispatcher calls it regardless
    int32_t cmd = 0;                // DVR_CbkCmd_e
    int32_t cbkId = 0;              // echoed to the client as its first argument
    int32_t index = 0;              // the recorder concerned
    std::string text;               // file name for commands 1 and 2
    int32_t value = 0;              // error code for commands 3 and 4, 0 for 6

    // Makes this record equal to src; safe when src is this record.
    void copyData(const CbkInfo_t &src) {
        // Reference src's handler before dropping ours.
        android::sp<IDVRCallback> handler = src.cbk;
        cbk = handler;
        cmd = src.cmd;
        cbkId = src.cbkId;
        index = src.index;
        text = src.text;
        value = src.value;
    }
};

}  // namespace dvrspace

#endif  // DVR_CBK_INFO_H
