#include "dvr_utils.h"

#include <gtest/gtest.h>
#include <unistd.h>

using namespace dvrspace;

TEST(StateNames, EveryStateHasItsName) {
    EXPECT_STREQ("DVR_STM_NONE", stm_toString(DVR_STM_NONE));
    EXPECT_STREQ("DVR_STM_IDLE", stm_toString(DVR_STM_IDLE));
    EXPECT_STREQ("DVR_STM_READY", stm_toString(DVR_STM_READY));
    EXPECT_STREQ("DVR_STM_RECORDING", stm_toString(DVR_STM_RECORDING));
    EXPECT_STREQ("DVR_STM_STOPPING", stm_toString(DVR_STM_STOPPING));
}

TEST(StateNames, UnknownValuesGiveAFixedText) {
    EXPECT_STREQ("DVR_STM_UNKNOWN", stm_toString(static_cast<DVRStm_e>(5)));
    EXPECT_STREQ("DVR_STM_UNKNOWN", stm_toString(static_cast<DVRStm_e>(-1)));
    EXPECT_STREQ("DVR_STM_UNKNOWN", stm_toString(static_cast<DVRStm_e>(0x7fffffff)));
}

TEST(MonotonicClock, AdvancesInMicroseconds) {
    const uint64_t before = getMonotonicClockUs();
    usleep(20000);
    const uint64_t after = getMonotonicClockUs();
    EXPECT_GE(after - before, 20000u);
    EXPECT_LT(after - before, 5000000u);
}
