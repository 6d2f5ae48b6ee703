// Shared by the files that implement Recorder (Recorder.cpp,
// RecorderSettings.cpp, RecorderFileNames.cpp, RecorderStamps.cpp) and by
// nothing else; not installed.
#ifndef DVR_RECORDER_INTERNAL_H
#define DVR_RECORDER_INTERNAL_H

#include "DVRLog.h"
#include "dvr_utils.h"

namespace dvrspace {
namespace recorder_internal {

// The markers of a pattern file name, for the recorder's name generator.
constexpr const char *kStartTimePattern = "%ST";
constexpr const char *kEndTimePattern = "%ET";

}  // namespace recorder_internal
}  // namespace dvrspace

// Every state change is logged where it happens, so this stays a macro: the
// line names the caller.
#define SWITCH_STATE(next)                                                        \
    do {                                                                          \
        mState = (next);                                                          \
        if (mEncoder != nullptr) {                                                \
            REC_LOGW(mEncoder->mId, "Switch to state: %s\n", stm_toString(next)); \
        } else {                                                                  \
            DVR_LOGW("Switch to state: %s\n", stm_toString(next));                \
        }                                                                         \
    } while (0)

#endif  // DVR_RECORDER_INTERNAL_H
