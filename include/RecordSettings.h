// Settings of one recording channel, as the recorder keeps them and as the
// encoder's configure() receives them.
#ifndef DVR_RECORD_SETTINGS_H
#define DVR_RECORD_SETTINGS_H

#include <cstdint>

#include "DVRTypes.h"

namespace dvrspace {

// Internal form of one text stamp, in the renderer's codes.
struct StampSettingPriv_t {
    bool enabled;
    int32_t x;         // pixels
    int32_t y;         // pixels
    int32_t fontSize;  // renderer font-size code 1 to 5
    int32_t reserved;  // kept 0
    int32_t color;     // renderer colour code
    int32_t interval;  // ms, used by the user stamp

    void clear() {
        enabled = false;
        x = 0;
        y = 0;
        fontSize = 0;
        reserved = 0;
        color = 7;
        interval = -1;
    }
};

struct RecordSettings_t {
    static constexpr int kMaxCameraSources = 4;

    DVRFileFormat_e outputFormat;  // -1 when cleared
    int32_t bitRate;               // Mbps
    int32_t frameRate;             // fps
    int32_t width;                 // pixels; -1 follows the input
    int32_t height;                // pixels; -1 follows the input
    int32_t fileLength;            // seconds per file
    bool audioRecording;
    uint32_t samplingRate;  // Hz
    int32_t cameraCount;    // DVRCAM_NUM
    int32_t cameraSources[kMaxCameraSources];
    StampSettingPriv_t timestamp;
    StampSettingPriv_t userStamp;
    uint32_t changeTime;  // monotonic clock (us) at the last change

    RecordSettings_t() {
        timestamp.clear();
        userStamp.clear();
        clear();
    }

    void clear() {
        outputFormat = static_cast<DVRFileFormat_e>(-1);
        bitRate = 0;
        frameRate = 0;
        width = 0;
        height = 0;
        fileLength = 0;
        audioRecording = false;
        samplingRate = 0;
        cameraCount = 0;
        for (int32_t &source : cameraSources) {
            source = 0;
        }
        timestamp.clear();
        userStamp.clear();
        changeTime = 0;
    }

    // Copies every field, the change time included.
    void copy(const RecordSettings_t &other) { *this = other; }
};

}  // namespace dvrspace

#endif  // DVR_RECORD_SETTINGS_H
