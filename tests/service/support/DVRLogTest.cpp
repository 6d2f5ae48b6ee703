#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"

#define LOG_TAG "DVRService"
#include "DVRLog.h"

using dvrtest::LogCapture;

namespace {

// Each returns the source line it logged from.
int serviceLine() {
    DVR_LOGW("value %d\n", 7);
    return __LINE__ - 1;
}
int recorderLine(int id) {
    REC_LOGE(id, "Switch to state: %s", "DVR_STM_IDLE");
    return __LINE__ - 1;
}

}  // namespace

TEST(LogLines, ServiceLinesStartWithFunctionAndLine) {
    LogCapture capture;
    const int line = serviceLine();
    ASSERT_EQ(1u, capture.lines().size());
    const auto logged = capture.lines()[0];
    EXPECT_EQ(ANDROID_LOG_WARN, logged.priority);
    EXPECT_EQ("DVRService", logged.tag);
    EXPECT_EQ("[serviceLine:" + std::to_string(line) + "] value 7\n", logged.message);
}

TEST(LogLines, RecorderLinesCarryTheEncoderIdAfterTwoBlanks) {
    LogCapture capture;
    const std::string prefix = "[recorderLine:" + std::to_string(recorderLine(-1)) + "]  [";
    recorderLine(12);
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "DVRService",
                                 prefix + "-1] Switch to state: DVR_STM_IDLE"));
    EXPECT_TRUE(capture.contains(ANDROID_LOG_ERROR, "DVRService",
                                 prefix + "12] Switch to state: DVR_STM_IDLE"));
}

TEST(LogLines, DebugLinesAreDelivered) {
    LogCapture capture;
    DVR_LOGD("quiet %s", "detail");
    ASSERT_EQ(1u, capture.lines().size());
    EXPECT_EQ(ANDROID_LOG_DEBUG, capture.lines()[0].priority);
    EXPECT_NE(std::string::npos, capture.lines()[0].message.find("] quiet detail"));
}
