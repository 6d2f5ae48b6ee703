// settings-probe: constructs the service object as the service does at
// start-up, and prints the settings its recorder of channel 0 loaded as
// KEY=VALUE lines. Used to show that settings survive into a new process.
#include <cstdio>

#include "DVR.h"
#include "Recorder.h"
#include "RecorderPeer.h"

int main() {
    const android::sp<dvrspace::DVR> service = new dvrspace::DVR();
    dvrspace::RecordSettings_t s;
    dvrspace::DVRPeer::recorder(*service, 0)->getCurrentSettings(&s);
    printf(
        "DVR_FORMAT=%d\nDVR_BIT_RATE=%d\nDVR_FPS=%d\nDVR_RES_WIDTH=%d\nDVR_RES_HEIGHT=%d\n"
        "DVR_FILE_LEN=%d\nDVR_TIMESTAMP_EN=%d\nDVR_TIMESTAMP_POSX=%d\nDVR_TIMESTAMP_POSY=%d\n"
        "DVR_USER_STAMP_EN=%d\nDVR_USER_STAMP_POSX=%d\nDVR_USER_STAMP_POSY=%d\n"
        "DVR_USTMP_INTERVAL_MS=%d\nDVR_AUDIO_EN=%d\nDVRCAM_NUM=%d\nDVRCAM_SRC_SEL=%d,%d\n",
        s.outputFormat, s.bitRate, s.frameRate, s.width, s.height, s.fileLength,
        s.timestamp.enabled, s.timestamp.x, s.timestamp.y, s.userStamp.enabled, s.userStamp.x,
        s.userStamp.y, s.userStamp.interval, s.audioRecording, s.cameraCount, s.cameraSources[0],
        s.cameraSources[1]);
    return 0;
}
