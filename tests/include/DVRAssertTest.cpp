// NDEBUG must not switch the project's assertion off.
#define NDEBUG 1
#include "DVRAssert.h"

#include <gtest/gtest.h>

TEST(AssertionDeathTest, AbortsNamingConditionAndSourceFileEvenWithNDEBUG) {
    EXPECT_DEATH(DVR_ASSERT(1 + 1 == 3), "Assertion failed: 1 \\+ 1 == 3, file DVRAssertTest.cpp");
}

TEST(AssertionDeathTest, KilledBySIGABRT) {
    EXPECT_EXIT(DVR_ASSERT(nullptr != nullptr), testing::KilledBySignal(SIGABRT),
                "nullptr != nullptr");
}

TEST(Assertion, PassesSilentlyWhenConditionHolds) {
    int evaluated = 0;
    DVR_ASSERT(++evaluated == 1);
    EXPECT_EQ(1, evaluated);
}

TEST(AssertionDeathTest, TextFormLogsTheGivenConditionInsteadOfTheExpression) {
    const int limit = 4;
    EXPECT_DEATH(DVR_ASSERT_TEXT(sizeof(int) < (size_t)limit, "sizeof(int) < limit"),
                 "Assertion failed: sizeof\\(int\\) < limit, file DVRAssertTest\\.cpp, line "
                 "[0-9]+\n?$");
}

TEST(Assertion, TextFormPassesSilentlyWhenConditionHolds) {
    int evaluated = 0;
    DVR_ASSERT_TEXT(++evaluated == 1, "evaluated once");
    EXPECT_EQ(1, evaluated);
}
