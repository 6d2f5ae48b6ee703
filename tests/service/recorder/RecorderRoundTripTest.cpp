// Factory defaults travel from a runtime configuration image (made by
// rtcfg-image, as the boot loader's block would be) through resetSettings into
// the vendor-data store, and a new process loads them back from the store alone.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "RecorderFixture.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

std::string readFile(const std::string &path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class RecorderRoundTrip : public RecorderFixture {};

}  // namespace

TEST_F(RecorderRoundTrip, FactoryDefaultsResetIntoTheStoreAreLoadedByANewProcess) {
    const std::string config =
        mEnv.dir().write("runtime.cfg",
                         "# factory defaults\n"
                         "DVR_FORMAT=TS\nDVR_BIT_RATE=6\nDVR_FPS=25\nDVR_RES_WIDTH=1280\n"
                         "DVR_RES_HEIGHT=720\nDVR_FILE_LEN=90\nDVR_TIMESTAMP_EN=1\n"
                         "DVR_TIMESTAMP_POSX=16\nDVR_TIMESTAMP_POSY=24\nDVR_USER_STAMP_EN=0\n"
                         "DVR_USER_STAMP_POSX=40\nDVR_USER_STAMP_POSY=700\n"
                         "DVR_USTMP_INTERVAL_MS=250\nDVR_AUDIO_EN=1\nDVRCAM_NUM=2\n"
                         "DVRCAM_SRC_SEL=1,0\nDVR_DEFAULT_PATH=default\n");
    const std::string image = mEnv.dir().file("factory.img");
    const std::string cmdline = mEnv.dir().file("factory.cmdline");
    ASSERT_EQ(0, system((std::string(RTCFG_IMAGE_TOOL) + " " + config + " " + image + " " +
                         cmdline + " > /dev/null")
                            .c_str()));
    setenv("DVR_RTCFG_MEM", image.c_str(), 1);
    setenv("DVR_RTCFG_CMDLINE", cmdline.c_str(), 1);

    build();
    // Memory-only changes: the reset replaces them, and they are never stored.
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setOutputFormat(DVR_FILE_FORMAT_AVI));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setBitRate(9));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->resetSettings());
    EXPECT_EQ(6, mRecorder->getBitRate());
    EXPECT_EQ(DVR_FILE_FORMAT_AVI, mRecorder->getOutputFormat());
    destroyRecorder();

    // The new process finds no settings in the runtime configuration: only the
    // store has them.
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=default\n");
    const std::string output = mEnv.dir().file("probe.out");
    const std::string errors = mEnv.dir().file("probe.err");
    ASSERT_EQ(0, system((std::string(SETTINGS_PROBE) + " > " + output + " 2> " + errors).c_str()))
        << readFile(errors);
    EXPECT_EQ(
        "DVR_FORMAT=1\nDVR_BIT_RATE=6\nDVR_FPS=25\nDVR_RES_WIDTH=1280\nDVR_RES_HEIGHT=720\n"
        "DVR_FILE_LEN=90\nDVR_TIMESTAMP_EN=1\nDVR_TIMESTAMP_POSX=16\n"
        "DVR_TIMESTAMP_POSY=24\nDVR_USER_STAMP_EN=0\nDVR_USER_STAMP_POSX=40\n"
        "DVR_USER_STAMP_POSY=700\nDVR_USTMP_INTERVAL_MS=250\nDVR_AUDIO_EN=1\n"
        "DVRCAM_NUM=2\nDVRCAM_SRC_SEL=1,0\n",
        readFile(output));
    const std::string log = readFile(errors);
    EXPECT_EQ(std::string::npos, log.find("in vendor data, check runtime config")) << log;
    EXPECT_EQ(std::string::npos, log.find("from runtime.cfg failed")) << log;
}
