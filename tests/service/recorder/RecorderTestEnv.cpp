#include "RecorderTestEnv.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "DVRSimulatorControl.h"
#include "qv_vendor_data.h"

namespace dvrtest {
namespace {

constexpr unsigned kBlockOffset = 0x1234;
constexpr size_t kBlockSize = 10240;

}  // namespace

RecorderTestEnv::RecorderTestEnv() : mPreviousDir(std::filesystem::current_path().string()) {
    std::filesystem::current_path(mDir.path());
    setenv("DVR_VENDOR_DATA", storePath().c_str(), 1);
    setenv("DVR_SVC_DIR", serviceDir().c_str(), 1);
    // The service's receiver claims its name on the message channel.
    setenv("DVR_MSG_DIR", mDir.file("msg").c_str(), 1);
    dvrspace::DVRSimulatorControl::reset();
    dvrspace::DVRSimulatorControl::setPacing(dvrspace::DVRSimPacing::Fast);
    installRuntimeConfig(shippedConfig(defaultPath()));
}

RecorderTestEnv::~RecorderTestEnv() {
    std::filesystem::current_path(mPreviousDir);
}

std::string RecorderTestEnv::shippedConfig(const std::string &defaultPath) {
    return "DVR_FORMAT=TS\n"
           "DVR_BIT_RATE=4\n"
           "DVR_FPS=30\n"
           "DVR_RES_WIDTH=1920\n"
           "DVR_RES_HEIGHT=1080\n"
           "DVR_FILE_LEN=60\n"
           "DVR_TIMESTAMP_EN=y\n"
           "DVR_TIMESTAMP_POSX=32\n"
           "DVR_TIMESTAMP_POSY=32\n"
           "DVR_USER_STAMP_EN=y\n"
           "DVR_USER_STAMP_POSX=32\n"
           "DVR_USER_STAMP_POSY=1000\n"
           "DVR_USTMP_INTERVAL_MS=1000\n"
           "DVR_AUDIO_EN=y\n"
           "DVRCAM_NUM=2\n"
           "DVRCAM_SRC_SEL=0,1\n"
           "DVR_DEFAULT_PATH=" +
           defaultPath + "\n";
}

void RecorderTestEnv::installRuntimeConfig(const std::string &lines) {
    const std::string block = "# runtime.cfg written by the test\n" + lines;
    ASSERT_LT(block.size(), kBlockSize);
    std::string image(kBlockOffset + kBlockSize + 4096, '\0');
    image.replace(kBlockOffset, block.size(), block);
    char cmdline[96];
    snprintf(cmdline, sizeof(cmdline), "quiet res_rtcfg=10K@0x%x console=ttyS0\n", kBlockOffset);
    setenv("DVR_RTCFG_CMDLINE", mDir.write("cmdline", cmdline).c_str(), 1);
    setenv("DVR_RTCFG_MEM", mDir.write("runtime.img", image).c_str(), 1);
}

void RecorderTestEnv::installShippedConfigWith(const std::map<std::string, std::string> &values) {
    std::string config = shippedConfig(defaultPath());
    for (const auto &[key, value] : values) {
        const size_t start = config.find(key + "=");
        ASSERT_NE(std::string::npos, start) << key;
        const size_t valueStart = start + key.size() + 1;
        config.replace(valueStart, config.find('\n', valueStart) - valueStart, value);
    }
    installRuntimeConfig(config);
}

void RecorderTestEnv::removeRuntimeConfig() {
    setenv("DVR_RTCFG_CMDLINE", mDir.write("cmdline", "quiet console=ttyS0\n").c_str(), 1);
}

size_t countLogged(const LogCapture &capture, int priority, const std::string &tag,
                   const std::string &function, const std::string &rest) {
    const std::string prefix = "[" + function + ":";
    size_t matches = 0;
    for (const LogLine &line : capture.lines()) {
        if (line.priority != priority || line.tag != tag ||
            line.message.compare(0, prefix.size(), prefix) != 0) {
            continue;
        }
        const size_t close = line.message.find("] ", prefix.size());
        if (close == std::string::npos || close == prefix.size()) {
            continue;
        }
        const std::string number = line.message.substr(prefix.size(), close - prefix.size());
        if (number.find_first_not_of("0123456789") == std::string::npos &&
            line.message.substr(close + 2) == rest) {
            ++matches;
        }
    }
    return matches;
}

dvrspace::DVRSimCameraConfig smallSimCamera(int id) {
    dvrspace::DVRSimCameraConfig camera;
    camera.id = id;
    camera.width = 320;
    camera.height = 240;
    camera.stride = 320;
    return camera;
}

std::string readStoreText(int position, int length) {
    std::string text(length + 1, '\0');
    EXPECT_EQ(0, qv_vendor_data_read_string(position, length, text.data()));
    return text.c_str();
}

}  // namespace dvrtest
