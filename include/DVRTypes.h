// Public records, enumerations and exceptions of the recording service.
// Shared by the service, its clients and the device layer; every enumeration is
// a plain 32-bit signed enumeration and every record a plain structure copied by
// value across the IPC interface, so field order and sizes are part of the ABI.
#ifndef DVR_TYPES_H
#define DVR_TYPES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>

namespace dvrspace {

// Result of every control operation that reports success or failure. A recorder
// or device may return negative codes of its own; they are passed through.
enum DVRResult_e : int32_t {
    DVR_SUCCESS = 0,
    DVR_FAILURE = -1,            // unknown id, or the lower layer failed
    DVR_INVALID_ARGUMENT = -2,   // rejected value or pointer argument
    DVR_INVALID_OPERATION = -3,  // the recorder's state or a suspend forbids it
};

// Result of suspend and resume handling.
enum DVRSTDResult_e : int32_t {
    DVR_STD_SUCCESS = 0,
    DVR_STD_IGNORED = 1,  // a device reported a recoverable condition
    DVR_STD_FAILED = -1,
};

// Recorder state.
enum DVRStm_e : int32_t {
    DVR_STM_NONE = 0,       // not constructed, or destroyed
    DVR_STM_IDLE = 1,       // no output file pending; start is refused
    DVR_STM_READY = 2,      // an output file is available; start is allowed
    DVR_STM_RECORDING = 3,  // encoding
    DVR_STM_STOPPING = 4,   // a stop is in progress; stays here if it fails
};

// Output container. A cleared setting holds -1.
enum DVRFileFormat_e : int32_t {
    DVR_FILE_FORMAT_AVI = 0,
    DVR_FILE_FORMAT_TS = 1,
};

enum DVRResolution_e : int32_t {
    DVR_RESOLUTION_INPUT = 0,  // -1 x -1: the camera's own resolution
    DVR_RESOLUTION_1080P = 1,  // 1920 x 1080
    DVR_RESOLUTION_720P = 2,   // 1280 x 720
    DVR_RESOLUTION_480P = 3,   // 720 x 480
};

// What a client subscribes to.
enum DVRCbkObjType_e : int32_t {
    DVR_CBK_OBJ_RECORD = 0,    // record start and finish
    DVR_CBK_OBJ_ERROR = 1,     // encoder errors
    DVR_CBK_OBJ_ABNORMAL = 2,  // abnormal end of recording
    DVR_CBK_OBJ_STAMP = 3,     // the client supplies user-stamp text
    DVR_CBK_OBJ_FILENAME = 4,  // the client supplies the next file name
};

// Command of a queued callback. Value 5 is unused and rejected by the dispatcher.
enum DVR_CbkCmd_e : int32_t {
    DVR_CBK_RECORD_START = 1,   // text: the new file's name
    DVR_CBK_RECORD_FINISH = 2,  // text: the finished file's name
    DVR_CBK_ERROR = 3,          // integer: encoder error code, severity 0
    DVR_CBK_ERROR_SEVERE = 4,   // integer: encoder error code, severity 1
    DVR_CBK_ABNORMAL = 6,       // integer 0
};

// What the encoder asks for in its need-data callback.
enum ENCNeedDataType_e : int32_t {
    ENC_NEED_VIDEO = 1,  // one video frame
    ENC_NEED_AUDIO = 2,  // one audio chunk
};

// Severity in the encoder's error callback; any other value is an internal error.
enum DVRErrorServerity_e : int32_t {
    DVR_ERROR_NORMAL = 0,  // reported as DVR_CBK_ERROR
    DVR_ERROR_SEVERE = 1,  // reported as DVR_CBK_ERROR_SEVERE
};

// Camera type reported by the device layer and passed on to clients unchanged.
enum QVDVRDeviceType_e : int32_t {
    QV_DVR_DEVICE_TYPE_UNKNOWN = 0,
    QV_DVR_DEVICE_TYPE_MIPI = 1,
    QV_DVR_DEVICE_TYPE_CVBS = 2,
    QV_DVR_DEVICE_TYPE_USB = 3,
    QV_DVR_DEVICE_TYPE_SIMULATED = 4,
};

// Stamp font sizes from smallest to largest; other values are rejected.
enum QVDVRStampFontSize_e : int32_t {
    QV_DVR_STAMP_FONT_SIZE_SMALLEST = 0,
    QV_DVR_STAMP_FONT_SIZE_SMALL = 1,
    QV_DVR_STAMP_FONT_SIZE_MEDIUM = 2,
    QV_DVR_STAMP_FONT_SIZE_LARGE = 3,
    QV_DVR_STAMP_FONT_SIZE_LARGEST = 4,
};

// Pixel format of camera frames. NV12 is the one format the stamp renderer accepts.
enum DVRVideoFormat_e : int32_t {
    DVR_VIDEO_FORMAT_UNKNOWN = 0,
    DVR_VIDEO_FORMAT_NV12 = 1,  // luma plane, then interleaved chroma plane
    DVR_VIDEO_FORMAT_YUYV = 2,
};

// One text stamp (time stamp or user stamp).
struct QVStampSettings_t {
    bool enabled;  // true draws the stamp
    int32_t x;     // horizontal position, pixels
    int32_t y;     // vertical position, pixels
    QVDVRStampFontSize_e fontSize;
    uint8_t color;     // colour selector
    int32_t interval;  // refresh interval of a user stamp, ms
};

// Camera capability as given to clients: words two to five of the device's
// capability record (its frame rate is not passed on).
struct CameraDeviceCaps_t {
    int32_t width;   // pixels
    int32_t height;  // pixels
    int32_t stride;  // bytes per line
    DVRVideoFormat_e format;
};

// First two words of the device layer's audio capability record, unchanged.
struct AudioDeviceCaps_t {
    int32_t caps[2];
};

// Copy of the encoder capability shared by all recorders.
struct EncoderDeviceCaps_t {
    int32_t file_name_length_limit;  // byte limit of file names and paths
    int32_t max_width;
    int32_t max_height;
    int32_t max_file_length;  // seconds
    int32_t min_file_length;  // seconds
    int32_t max_bit_rate;     // Mbps
    int32_t min_bit_rate;     // Mbps
    int32_t max_frame_rate;
    int32_t min_frame_rate;
};

// A stamped camera frame returned by takeSnapshot.
struct SnapshotPA_t {
    uint32_t planePA[2];  // physical addresses of the luma and chroma planes
    int32_t width;
    int32_t height;
    int32_t stride;
    uint64_t timestamp;
};

// Exception thrown by the device layer; the service catches it only at
// device discovery.
class DVRException : public std::exception {
public:
    static constexpr size_t kMessageSize = 128;

    explicit DVRException(const char *message = "") {
        std::strncpy(mMessage, message != nullptr ? message : "", kMessageSize - 1);
        mMessage[kMessageSize - 1] = '\0';
    }
    ~DVRException() override = default;

    const char *what() const noexcept override { return mMessage; }

private:
    // Copied whole by the implicit copy operations.
    char mMessage[kMessageSize] = {};
};

// A device of the requested index exists but is not ready.
class DeviceNotReadyException : public DVRException {
public:
    using DVRException::DVRException;
};

// The requested index is beyond the devices available.
class DeviceNumExceedException : public DVRException {
public:
    using DVRException::DVRException;
};

static_assert(sizeof(DVRResult_e) == 4 && sizeof(DVRStm_e) == 4 && sizeof(DVR_CbkCmd_e) == 4,
              "enumerations are 32-bit");
static_assert(sizeof(QVStampSettings_t) == 24, "QVStampSettings_t layout");
static_assert(offsetof(QVStampSettings_t, x) == 4 && offsetof(QVStampSettings_t, y) == 8 &&
                  offsetof(QVStampSettings_t, fontSize) == 12 &&
                  offsetof(QVStampSettings_t, color) == 16 &&
                  offsetof(QVStampSettings_t, interval) == 20,
              "QVStampSettings_t field offsets");
static_assert(sizeof(CameraDeviceCaps_t) == 16, "CameraDeviceCaps_t layout");
static_assert(sizeof(AudioDeviceCaps_t) == 8, "AudioDeviceCaps_t layout");
static_assert(sizeof(EncoderDeviceCaps_t) == 36, "EncoderDeviceCaps_t layout");
static_assert(offsetof(SnapshotPA_t, width) == 8 && offsetof(SnapshotPA_t, stride) == 16 &&
                  offsetof(SnapshotPA_t, timestamp) == 24 && sizeof(SnapshotPA_t) == 32,
              "SnapshotPA_t layout");

}  // namespace dvrspace

#endif  // DVR_TYPES_H
