// A recording channel's stamp overlay (time stamp and user stamp drawn into
// each frame) and its snapshot.
#define LOG_TAG "DVRRecorder"

#include "Recorder.h"

#include <cstring>
#include <ctime>

#include "DVR.h"
#include "DVRAssert.h"
#include "DVRLog.h"
#include "IDVRCallback.h"
#include "TextBrush.h"

// The class spans several files; its assertions keep naming its main one.
#undef DVR_ASSERT_SOURCE
#define DVR_ASSERT_SOURCE "Recorder.cpp"

namespace dvrspace {

namespace {

// Stamps draw on the frame itself, without a background box.
constexpr int kStampBackground = 0;
constexpr const char *kTimestampFormat = "%Y/%m/%d %H:%M:%S";

// The renderer's pixel format for the camera's; only NV12 can be stamped.
int format_translate(int videoFormat) {
    if (videoFormat != DVR_VIDEO_FORMAT_NV12) {
        DVR_LOGE("Unsupport format: 0x%x\n", videoFormat);
        DVR_ASSERT(videoFormat == DVR_VIDEO_FORMAT_NV12);
    }
    return TextBrush::kFormatNV12;
}

}  // namespace

DVRResult_e Recorder::takeSnapshot(SnapshotPA_t &result) {
    std::lock_guard<std::mutex> deviceGuard(mDeviceLock);
    if (mCamera == nullptr) {
        DVR_LOGE("Camera device not attached\n");
        return DVR_FAILURE;
    }
    void *frameVA[2] = {nullptr, nullptr};
    uint32_t framePA[2] = {0, 0};
    uint64_t timestamp = 0;
    const int ret = mCamera->getVideoFrame(frameVA, framePA, &timestamp);
    if (ret != 0) {
        DVR_LOGE("getVideoFrame failed: %d\n", ret);
        return DVR_FAILURE;
    }
    const DVRCameraCaps_t *caps = mCamera->getCaps();
    result.planePA[0] = framePA[0];
    result.planePA[1] = framePA[1];
    result.width = caps->width;
    result.height = caps->height;
    result.stride = caps->stride;
    result.timestamp = timestamp;
    // A snapshot without its user stamp is still a snapshot.
    const int stampRet = _renderStamp(frameVA);
    if (stampRet != 0) {
        DVR_LOGE("_renderStamp() failed: %d", stampRet);
    }
    return DVR_SUCCESS;
}

int Recorder::_renderStamp(void **frame) {
    DVR_ASSERT(mCamera != NULL);
    char text[IDVRCallback::kStampStringCapacity] = {};
    const DVRCameraCaps_t *caps = mCamera->getCaps();
    const int cameraId = mCamera->getID();
    const StampSettingPriv_t &timestamp = mCurSettings.timestamp;
    const StampSettingPriv_t &userStamp = mCurSettings.userStamp;

    // A brush per stamp and frame: the settings may change between frames.
    if (timestamp.enabled) {
        const time_t now = time(nullptr);
        struct tm localNow;
        const struct tm *tm = localtime_r(&now, &localNow);
        DVR_ASSERT(tm != NULL);
        strftime(text, sizeof(text), kTimestampFormat, tm);
        TextBrush brush(caps->width, caps->height, caps->stride, format_translate(caps->format),
                        timestamp.fontSize, kStampBackground, timestamp.color);
        const int ret = brush.drawText(timestamp.x, timestamp.y, frame[0], text);
        DVR_ASSERT(ret == 0);
    }
    if (!userStamp.enabled) {
        return 0;
    }
    memset(text, 0, sizeof(text));
    // Asked on every frame: the stamp's interval is not used here.
    mService.getStampFromUser(cameraId, text);
    if (text[0] == '\0') {
        return -1;
    }
    // The client must stay within the buffer; its text ends inside it regardless.
    text[sizeof(text) - 1] = '\0';
    TextBrush brush(caps->width, caps->height, caps->stride, format_translate(caps->format),
                    userStamp.fontSize, kStampBackground, userStamp.color);
    const int ret = brush.drawText(userStamp.x, userStamp.y, frame[0], text);
    DVR_ASSERT(ret == 0);
    return 0;
}

}  // namespace dvrspace
