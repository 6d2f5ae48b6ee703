// What the service names files, predicted with the documented rules: default
// names cut at 63 characters of format, pieces cut at a pattern's letters.
#include <gtest/gtest.h>

#include "FileNamePrediction.h"
#include "UtcTime.h"

using dvrguard::FileNamePrediction;

namespace {

const char *const kStart = "20231114_22-13-20";
const char *const kEnd = "20231114_22-14-20";  // one minute of file later

}  // namespace

TEST(FileNamePrediction, DefaultNameOfAShortPathIsKept) {
    const FileNamePrediction prediction =
        FileNamePrediction::defaultName("/rec/ch0", 100, 1, 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ(std::string("/rec/ch0/default_c100_[") + kStart + "]_[" + kEnd + "].ts",
              prediction.name());
    EXPECT_FALSE(prediction.mangled());
    EXPECT_EQ("", prediction.abortReason());
}

TEST(FileNamePrediction, DefaultNameOfAnAviChannelEndsInAvi) {
    const FileNamePrediction prediction =
        FileNamePrediction::defaultName("/rec", 7, 0, 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ(std::string("/rec/default_c7_[") + kStart + "]_[" + kEnd + "].avi",
              prediction.name());
}

TEST(FileNamePrediction, PathOf36CharactersCutsTheDefaultNamesExtension) {
    const std::string path = "/home/user/projects/dvr/recordings/c";
    ASSERT_EQ(36u, path.size());
    const FileNamePrediction prediction =
        FileNamePrediction::defaultName(path, 100, 1, 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ(path + "/default_c100_[" + kStart + "]_[" + kEnd + "].t", prediction.name());
    EXPECT_EQ(path + "/default_c100_[" + kStart + "]_[" + kEnd + "].ts", prediction.intended());
    EXPECT_TRUE(prediction.mangled());
}

TEST(FileNamePrediction, PathOf35CharactersStillGivesWholeNames) {
    const std::string path = "/home/user/projects/dvr/recordings/";
    ASSERT_EQ(35u, path.size());
    EXPECT_FALSE(
        FileNamePrediction::defaultName(path, 100, 1, 60, 255, dvrtest::utcTestTime()).mangled());
}

TEST(FileNamePrediction, UpperCaseSInThePathCutsItAndTheNameLeavesTheDirectory) {
    const FileNamePrediction prediction =
        FileNamePrediction::defaultName("/data/Src/reco", 100, 1, 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ(std::string("/data/") + kStart + "]_[" + kEnd + "].ts", prediction.name());
    EXPECT_TRUE(prediction.mangled());
}

TEST(FileNamePrediction, DefaultNameAtTheLimitAborts) {
    const FileNamePrediction prediction =
        FileNamePrediction::defaultName("/rec", 100, 1, 60, 60, dvrtest::utcTestTime());
    EXPECT_EQ("", prediction.name());
    EXPECT_EQ("its default names have 60 characters; the service aborts on 59 or more",
              prediction.abortReason());
}

TEST(FileNamePrediction, PatternWithAnUpperCaseTInFrontOfStartIsCut) {
    const FileNamePrediction prediction = FileNamePrediction::patternName(
        "CAM_FRONT_%ST_%ET.ts", "", 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ("CAM_FRON_.ts", prediction.name());
    EXPECT_EQ("CAM_FRONT__.ts", prediction.intended());
    EXPECT_TRUE(prediction.mangled());
}

TEST(FileNamePrediction, PatternOfLowerCaseTextGetsBothTimes) {
    const FileNamePrediction prediction = FileNamePrediction::patternName(
        "/rec/video_%ST_%ET.ts", "%Y%m%d_%H-%M-%S", 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ(std::string("/rec/video_") + kStart + "_" + kEnd + ".ts", prediction.name());
    EXPECT_FALSE(prediction.mangled());
}

TEST(FileNamePrediction, TestInFrontOfStartBecomesTheLetterE) {
    const FileNamePrediction prediction =
        FileNamePrediction::patternName("TEST_%ST", "%H", 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ("E22", prediction.name());
    EXPECT_EQ("TEST_22", prediction.intended());
}

TEST(FileNamePrediction, PatternAtTheVeryStartStaysLiteral) {
    const FileNamePrediction prediction =
        FileNamePrediction::patternName("%ST_cam.ts", "%H", 60, 255, dvrtest::utcTestTime());
    EXPECT_EQ("%ST_cam.ts", prediction.name());
    EXPECT_EQ("22_cam.ts", prediction.intended());
    EXPECT_TRUE(prediction.mangled());
}

TEST(FileNamePrediction, PatternAsLongAsTheLimitAborts) {
    const FileNamePrediction prediction =
        FileNamePrediction::patternName(std::string(20, 'a'), "%H", 60, 20, dvrtest::utcTestTime());
    EXPECT_EQ("the pattern has 20 characters; the service aborts on 20 or more",
              prediction.abortReason());
}

TEST(FileNamePrediction, PatternWhoseNamesReachTheLimitAborts) {
    const FileNamePrediction prediction = FileNamePrediction::patternName(
        "/r/a_%ST", "%Y%m%d_%H-%M-%S", 60, 20, dvrtest::utcTestTime());
    EXPECT_EQ("its names have 22 characters; the service aborts on 20 or more",
              prediction.abortReason());
}
