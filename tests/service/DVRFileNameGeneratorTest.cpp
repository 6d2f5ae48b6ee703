// The generator reads the wall clock through a replaceable function, so every
// expected name here is exact; the zone is fixed to UTC for the same reason.
#include "dvr_file_name_generator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

using dvrspace::DVRFileNameGenerator;

namespace {

constexpr time_t kFixedNow = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr const char *kTimeFmt = "%Y%m%d_%H-%M-%S";
constexpr const char *kStart = "20231114_22-13-20";
constexpr const char *kEndAfterMinute = "20231114_22-14-20";

time_t fixedClock() {
    return kFixedNow;
}

class FileNameGeneratorTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    std::string generate(const char *fileNameFmt, int secondsAhead = 60) {
        char name[256] = {};
        const int length =
            mGenerator.genFileNameOnce(name, secondsAhead, sizeof(name), fileNameFmt, kTimeFmt);
        EXPECT_EQ(strlen(name), static_cast<size_t>(length));
        return name;
    }
    DVRFileNameGenerator mGenerator{128, "%ST", "%ET", &fixedClock};
};

}  // namespace

TEST_F(FileNameGeneratorTest, ReplacesStartAndEndPatternsWithTheirTimes) {
    EXPECT_EQ(std::string("video_") + kStart + "_" + kEndAfterMinute, generate("video_%ST_%ET"));
}

TEST_F(FileNameGeneratorTest, EndTimeLiesTheGivenSecondsAhead) {
    EXPECT_EQ("/20231114_22-13-20/20231115_00-13-20", generate("/%ST/%ET", 7200));
}

TEST_F(FileNameGeneratorTest, PatternAtTheVeryStartIsKeptLiterally) {
    EXPECT_EQ("%ST_video", generate("%ST_video"));
    EXPECT_EQ("%ST_%ET", generate("%ST_%ET"));
}

TEST_F(FileNameGeneratorTest, FormatWithoutPatternsIsReturnedUnchanged) {
    EXPECT_EQ("/data/plain_name.ts", generate("/data/plain_name.ts"));
}

TEST_F(FileNameGeneratorTest, LeadingPatternCharactersAreSkippedAndPieceEndsAtTheFirstOne) {
    // "TEST_": the leading T is skipped and the piece ends at the S.
    EXPECT_EQ(std::string("E") + kStart, generate("TEST_%ST"));
}

TEST_F(FileNameGeneratorTest, PieceBeforeEndPatternEndsAtItsFirstE) {
    // "East_" after "cam_" is dropped: E belongs to the end pattern.
    EXPECT_EQ(std::string("cam_") + kEndAfterMinute + ".ts", generate("cam_East_%ET.ts"));
}

TEST_F(FileNameGeneratorTest, TextOfOnlyPatternCharactersBeforeAPatternKeepsTheFormat) {
    EXPECT_EQ("T%ST", generate("T%ST"));
}

TEST_F(FileNameGeneratorTest, EndPatternFirstThenStartPattern) {
    EXPECT_EQ(std::string("a") + kEndAfterMinute + "b" + kStart + "c", generate("a%ETb%STc"));
}

TEST_F(FileNameGeneratorTest, EmptyTimeFormatInsertsNothing) {
    char name[64] = {};
    EXPECT_EQ(3, mGenerator.genFileNameOnce(name, 60, sizeof(name), "v_%ST_", ""));
    EXPECT_STREQ("v__", name);
}

TEST_F(FileNameGeneratorTest, GenFileNameUsesTheStoredFormatsAndLeavesThemIntact) {
    mGenerator.setFormat("rec_%ST-%ET.avi", "%H%M%S");
    char first[64] = {};
    char second[64] = {};
    EXPECT_EQ(21, mGenerator.genFileName(first, 10, sizeof(first)));
    EXPECT_STREQ("rec_221320-221330.avi", first);
    EXPECT_EQ(21, mGenerator.genFileName(second, 10, sizeof(second)));
    EXPECT_STREQ(first, second);
}

TEST_F(FileNameGeneratorTest, IsFormatSetFollowsTheFileNameFormat) {
    EXPECT_FALSE(mGenerator.isFormatSet());
    mGenerator.setFormat("x_%ST", kTimeFmt);
    EXPECT_TRUE(mGenerator.isFormatSet());
    mGenerator.setFormat(nullptr, kTimeFmt);
    EXPECT_FALSE(mGenerator.isFormatSet());
    mGenerator.setFormat("x_%ST", kTimeFmt);
    mGenerator.setFormat("", kTimeFmt);
    EXPECT_FALSE(mGenerator.isFormatSet());
}

TEST_F(FileNameGeneratorTest, ClearedFormatsGenerateAnEmptyName) {
    mGenerator.setFormat("x_%ST", kTimeFmt);
    mGenerator.setFormat(nullptr, nullptr);
    char name[16] = "stale";
    EXPECT_EQ(0, mGenerator.genFileName(name, 60, sizeof(name)));
    EXPECT_STREQ("", name);
}

TEST_F(FileNameGeneratorTest, GenTimeFormatsNowAndNowPlusOffsetAndReturnsEndLength) {
    char start[32] = {};
    char end[32] = {};
    EXPECT_EQ(17, mGenerator.genTime(start, end, 60, sizeof(start), kTimeFmt));
    EXPECT_STREQ(kStart, start);
    EXPECT_STREQ(kEndAfterMinute, end);
}

TEST_F(FileNameGeneratorTest, FindPatternReportsTheEarlierPattern) {
    char *pattern = nullptr;
    int index = -1;
    EXPECT_EQ(3, mGenerator.findPattern("ab_%ST_%ET", &pattern, &index));
    EXPECT_STREQ("%ST", pattern);
    EXPECT_EQ(1, index);
    EXPECT_EQ(2, mGenerator.findPattern("ab%ET_%ST", &pattern, &index));
    EXPECT_STREQ("%ET", pattern);
    EXPECT_EQ(2, index);
    EXPECT_EQ(1, mGenerator.findPattern("a%ET", &pattern, &index));
    EXPECT_EQ(2, index);
    EXPECT_EQ(0, mGenerator.findPattern("plain", &pattern, &index));
    EXPECT_EQ(nullptr, pattern);
    EXPECT_EQ(0, index);
}

TEST(FileNameGenerator, FindPatternGivesTheEndPatternOnATie) {
    DVRFileNameGenerator generator(16, "%T", "%T", &fixedClock);
    char *pattern = nullptr;
    int index = 0;
    EXPECT_EQ(1, generator.findPattern("x%T", &pattern, &index));
    EXPECT_EQ(2, index);
}

TEST(FileNameGenerator, DefaultNameWithTheRealClockFollowsTheDocumentedPattern) {
    DVRFileNameGenerator generator(256, "%ST", "%ET");
    char name[256] = {};
    generator.genFileNameOnce(name, 90, sizeof(name), "/tmp/rec/default_c3_[%ST]_[%ET].ts",
                              kTimeFmt);
    // /tmp/rec/default_c3_[YYYYmmdd_HH-MM-SS]_[YYYYmmdd_HH-MM-SS].ts
    const std::string text = name;
    const std::string head = "/tmp/rec/default_c3_[";
    constexpr size_t kTimeLength = 17;
    ASSERT_EQ(head.size() + 2 * kTimeLength + 7, text.size()) << text;
    EXPECT_EQ(head, text.substr(0, head.size()));
    EXPECT_EQ("]_[", text.substr(head.size() + kTimeLength, 3));
    EXPECT_EQ("].ts", text.substr(text.size() - 4));
    struct tm start {};
    struct tm end {};
    const std::string startText = text.substr(head.size(), kTimeLength);
    const std::string endText = text.substr(head.size() + kTimeLength + 3, kTimeLength);
    const char *startRest = strptime(startText.c_str(), kTimeFmt, &start);
    const char *endRest = strptime(endText.c_str(), kTimeFmt, &end);
    ASSERT_TRUE(startRest != nullptr && *startRest == '\0') << startText;
    ASSERT_TRUE(endRest != nullptr && *endRest == '\0') << endText;
    start.tm_isdst = -1;
    end.tm_isdst = -1;
    const time_t startTime = mktime(&start);
    EXPECT_LE(std::labs(static_cast<long>(time(nullptr) - startTime)), 5L);
    // Away from a daylight-saving change the local times differ by the offset.
    const double apart = difftime(mktime(&end), startTime);
    EXPECT_TRUE(apart == 90 || apart == 90 + 3600 || apart == 90 - 3600) << apart;
}

using FileNameGeneratorDeathTest = FileNameGeneratorTest;

TEST_F(FileNameGeneratorDeathTest, NameThatDoesNotFitAborts) {
    char name[16] = {};
    EXPECT_DEATH(mGenerator.genFileNameOnce(name, 60, sizeof(name), "long_name_%ST", kTimeFmt),
                 "Assertion failed: strlen\\(file_name\\) < length");
}

TEST_F(FileNameGeneratorDeathTest, NameOfExactlyTheSizeAbortsWhileOneLessFits) {
    char name[8] = {};
    EXPECT_EQ(7, mGenerator.genFileNameOnce(name, 0, sizeof(name), "1234567", kTimeFmt));
    EXPECT_DEATH(mGenerator.genFileNameOnce(name, 0, sizeof(name), "12345678", kTimeFmt),
                 "strlen\\(file_name\\) < length");
}

TEST_F(FileNameGeneratorDeathTest, PatternOfFourCharactersAborts) {
    EXPECT_DEATH(DVRFileNameGenerator(16, "%STX", "%ET"),
                 "\\(start_time_pattern\\) != NULL && \\(strlen\\(start_time_pattern\\) < "
                 "TIME_PATTERN_LENGTH\\)");
    EXPECT_DEATH(DVRFileNameGenerator(16, "%ST", "%ETX"),
                 "\\(end_time_pattern\\) != NULL && \\(strlen\\(end_time_pattern\\) < "
                 "TIME_PATTERN_LENGTH\\)");
}

TEST_F(FileNameGeneratorDeathTest, NullPatternAborts) {
    EXPECT_DEATH(DVRFileNameGenerator(16, nullptr, "%ET"), "\\(start_time_pattern\\) != NULL");
}

TEST_F(FileNameGeneratorDeathTest, NonPositiveLimitAborts) {
    EXPECT_DEATH(DVRFileNameGenerator(0, "%ST", "%ET"), "Assertion failed: mFormatLengthLimit > 0");
}

TEST_F(FileNameGeneratorDeathTest, FormatOfTheLimitOrLongerAborts) {
    DVRFileNameGenerator generator(8, "%ST", "%ET", &fixedClock);
    generator.setFormat("1234567", "%H%M%S");
    EXPECT_TRUE(generator.isFormatSet());
    EXPECT_DEATH(generator.setFormat("12345678", nullptr),
                 "Assertion failed: strlen\\(pFileNameFmt\\) < mFormatLengthLimit, file "
                 "dvr_file_name_generator\\.cpp, line [0-9]+\n?$");
    EXPECT_DEATH(generator.setFormat(nullptr, "%Y%m%d%H"),
                 "Assertion failed: strlen\\(pTimeFmt\\) < mFormatLengthLimit, file "
                 "dvr_file_name_generator\\.cpp, line [0-9]+\n?$");
}

TEST_F(FileNameGeneratorDeathTest, NullResultPointersAbort) {
    DVRFileNameGenerator generator(8, "%ST", "%ET", &fixedClock);
    int index = 0;
    char *pattern = nullptr;
    EXPECT_DEATH(generator.findPattern("x", nullptr, &index), "retPattern != NULL");
    EXPECT_DEATH(generator.findPattern("x", &pattern, nullptr), "retPtnIdx != NULL");
}
