// The reader keeps process-wide state, so every test case runs in its own
// process (one ctest entry each) and sets up its own image and command line.
#include "runtimecfg.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "LogCapture.h"
#include "TempDir.h"

using dvrtest::LogCapture;

namespace {

constexpr uint32_t kUnalignedOffset = 0x1234;
constexpr size_t kBlockSize = 10240;

class RuntimeCfgTest : public ::testing::Test {
protected:
    // Writes a memory image holding block at offset and a command line naming it.
    void install(const std::string &block, uint32_t offset = kUnalignedOffset,
                 const std::string &beforeBlock = "") {
        std::string image(offset + kBlockSize + 4096, '\0');
        image.replace(offset - beforeBlock.size(), beforeBlock.size(), beforeBlock);
        image.replace(offset, block.size(), block);
        char cmdline[128];
        snprintf(cmdline, sizeof(cmdline), "quiet res_rtcfg=10K@0x%x console=ttyS0\n", offset);
        useFiles(mDir.write("cmdline", cmdline), mDir.write("mem.img", image));
    }
    void installCmdline(const std::string &cmdline) {
        std::string image(kUnalignedOffset + kBlockSize + 4096, '\0');
        image.replace(kUnalignedOffset, 12, "\nDVR_FPS=25\n");
        useFiles(mDir.write("cmdline", cmdline), mDir.write("mem.img", image));
    }
    void useFiles(const std::string &cmdlinePath, const std::string &memPath) {
        setenv("DVR_RTCFG_CMDLINE", cmdlinePath.c_str(), 1);
        setenv("DVR_RTCFG_MEM", memPath.c_str(), 1);
    }
    dvrtest::TempDir mDir;
    LogCapture mCapture;
};

}  // namespace

TEST_F(RuntimeCfgTest, LineLimitIs100) {
    EXPECT_EQ(100, qv_config_get_line_max());
}

TEST_F(RuntimeCfgTest, FindsKeysOfEveryTypeInABlockAtAnUnalignedOffset) {
    install("# header\nDVR_FORMAT=TS\nDVR_FPS=30\nDVR_AUDIO_EN=y\n");
    EXPECT_EQ(kUnalignedOffset, qv_config_parse_offset());
    EXPECT_EQ(0, qv_config_init());
    int fps = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(30, fps);
    char format[8] = {};
    EXPECT_EQ(2, qv_config_get_string("DVR_FORMAT", format, sizeof(format)));
    EXPECT_STREQ("TS", format);
    bool audio = false;
    EXPECT_EQ(0, qv_config_get_bool("DVR_AUDIO_EN", &audio));
    EXPECT_TRUE(audio);
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(RuntimeCfgTest, TextStartsExactlyAtTheOffsetInsideItsPage) {
    // A decoy line just before the offset would be found if the text pointer
    // were the mapping start or any other place before the offset.
    install("\nDVR_FPS=15\n", kUnalignedOffset, "\nDVR_FPS=99\nDVR_BIT_RATE=7\n");
    int fps = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(15, fps);
    int bitRate = 0;
    EXPECT_EQ(-1, qv_config_get_int("DVR_BIT_RATE", &bitRate));
}

TEST_F(RuntimeCfgTest, PageAlignedOffsetWorksToo) {
    install("\nDVR_FPS=12\n", 0x2000);
    int fps = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(12, fps);
}

TEST_F(RuntimeCfgTest, KeyOnTheFirstLineIsNeverFound) {
    install("DVR_FPS=30\nDVR_FILE_LEN=60\n");
    int value = 7;
    EXPECT_EQ(-1, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(-1, value);
    EXPECT_EQ(0, qv_config_get_int("DVR_FILE_LEN", &value));
    EXPECT_EQ(60, value);
}

TEST_F(RuntimeCfgTest, BlanksAroundEqualsDoNotMatch) {
    install("\nDVR_FPS = 30\nDVR_FILE_LEN =60\nDVR_BIT_RATE= 4\n");
    int value = 0;
    EXPECT_EQ(-1, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(-1, qv_config_get_int("DVR_FILE_LEN", &value));
    // The key matches; the library conversion skips the leading blank.
    EXPECT_EQ(0, qv_config_get_int("DVR_BIT_RATE", &value));
    EXPECT_EQ(4, value);
}

TEST_F(RuntimeCfgTest, TrailingBlankIsKeptByStringButNotByInteger) {
    install("\nDVR_FPS=5 \n");
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(5, value);
    char text[8] = {};
    EXPECT_EQ(2, qv_config_get_string("DVR_FPS", text, sizeof(text)));
    EXPECT_EQ('5', text[0]);
    EXPECT_EQ(' ', text[1]);
    EXPECT_EQ('\0', text[2]);
}

TEST_F(RuntimeCfgTest, LongerOrShorterKeysDoNotMatch) {
    install("\nXDVR_FPS=1\nDVR_FPS_MAX=2\nDVR_FPS=3\n");
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(3, value);
}

TEST_F(RuntimeCfgTest, FirstOfTwoLinesWins) {
    install("\nDVR_FPS=10\nDVR_FPS=20\n");
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(10, value);
}

TEST_F(RuntimeCfgTest, IntegerForms) {
    install(
        "\nNEG_HEX=-0x10\nUPPER_X=0X10\nOCT=0o17\nBIN=0b101\nHEX_THEN_BIN=0x0b11\n"
        "DEC=42\nNEG=-7\nHEX=0xff\nEMPTY=\nWORD=y\n");
    const struct {
        const char *key;
        int expected;
    } cases[] = {{"NEG_HEX", -16}, {"UPPER_X", 0}, {"OCT", 15},  {"BIN", 5},   {"HEX_THEN_BIN", 3},
                 {"DEC", 42},      {"NEG", -7},    {"HEX", 255}, {"EMPTY", 0}, {"WORD", 0}};
    for (const auto &c : cases) {
        int value = 12345;
        EXPECT_EQ(0, qv_config_get_int(c.key, &value)) << c.key;
        EXPECT_EQ(c.expected, value) << c.key;
    }
}

TEST_F(RuntimeCfgTest, OutOfRangeIntegersSaturate) {
    install("\nBIG=99999999999\nSMALL=-99999999999\n");
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("BIG", &value));
    EXPECT_EQ(2147483647, value);
    EXPECT_EQ(0, qv_config_get_int("SMALL", &value));
    EXPECT_EQ(-2147483647, value);
}

TEST_F(RuntimeCfgTest, AbsentKeyWritesMinusOneOnlyForIntegers) {
    install("\nDVR_FPS=30\n");
    int number = 55;
    EXPECT_EQ(-1, qv_config_get_int("DVR_MISSING", &number));
    EXPECT_EQ(-1, number);
    bool flag = true;
    EXPECT_EQ(-1, qv_config_get_bool("DVR_MISSING", &flag));
    EXPECT_TRUE(flag);
    char text[8] = "keep";
    EXPECT_EQ(-1, qv_config_get_string("DVR_MISSING", text, sizeof(text)));
    EXPECT_STREQ("keep", text);
}

TEST_F(RuntimeCfgTest, BooleanForms) {
    install("\nA=y\nB=yes\nC=n\nD=no\nE=true\nF=1\nG=\nH=Y\n");
    bool value = false;
    EXPECT_EQ(0, qv_config_get_bool("A", &value));
    EXPECT_TRUE(value);
    value = false;
    EXPECT_EQ(0, qv_config_get_bool("B", &value));
    EXPECT_TRUE(value);
    EXPECT_EQ(0, qv_config_get_bool("C", &value));
    EXPECT_FALSE(value);
    value = true;
    EXPECT_EQ(0, qv_config_get_bool("D", &value));
    EXPECT_FALSE(value);
    for (const char *failing : {"E", "F", "G", "H"}) {
        bool untouched = true;
        EXPECT_EQ(-1, qv_config_get_bool(failing, &untouched)) << failing;
        EXPECT_TRUE(untouched) << failing;
    }
}

TEST_F(RuntimeCfgTest, LongValueIsCutToBufferSizeMinusOne) {
    install("\nDVR_DEFAULT_PATH=/media/sdcard/recordings\n");
    char text[8];
    memset(text, 'z', sizeof(text));
    EXPECT_EQ(7, qv_config_get_string("DVR_DEFAULT_PATH", text, sizeof(text)));
    EXPECT_STREQ("/media/", text);
    char exact[24] = {};
    EXPECT_EQ(23, qv_config_get_string("DVR_DEFAULT_PATH", exact, sizeof(exact)));
    EXPECT_STREQ("/media/sdcard/recording", exact);
}

TEST_F(RuntimeCfgTest, EmptyValueGivesEmptyString) {
    install("\nDVR_FORMAT=\n");
    char text[4] = "abc";
    EXPECT_EQ(0, qv_config_get_string("DVR_FORMAT", text, sizeof(text)));
    EXPECT_STREQ("", text);
}

TEST_F(RuntimeCfgTest, LastLineWithoutNewlineIsReadByIntegerAndBooleanOnly) {
    install("\nDVR_FPS=30\nDVR_AUDIO_EN=y");
    char text[8] = "keep";
    EXPECT_EQ(-1, qv_config_get_string("DVR_AUDIO_EN", text, sizeof(text)));
    EXPECT_STREQ("keep", text);
    bool flag = false;
    EXPECT_EQ(0, qv_config_get_bool("DVR_AUDIO_EN", &flag));
    EXPECT_TRUE(flag);
}

TEST_F(RuntimeCfgTest, IntegerOnLastLineWithoutNewlineIsRead) {
    install("\nDVR_FPS=30\nDVR_FILE_LEN=45");
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FILE_LEN", &value));
    EXPECT_EQ(45, value);
    char text[8] = "keep";
    EXPECT_EQ(-1, qv_config_get_string("DVR_FILE_LEN", text, sizeof(text)));
}

TEST_F(RuntimeCfgTest, TenCharacterOffsetIsAcceptedWhateverPrecedesTheAtSign) {
    installCmdline("root=/dev/mmcblk0 res_rtcfg=anything-at-all@0x00001234 rw\n");
    EXPECT_EQ(0x1234u, qv_config_parse_offset());
    int fps = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(25, fps);
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(RuntimeCfgTest, ElevenCharacterOffsetIsOverBound) {
    installCmdline("res_rtcfg=10K@0x000001234 rw\n");
    EXPECT_EQ(0u, qv_config_parse_offset());
    EXPECT_TRUE(mCapture.contains(
        ANDROID_LOG_ERROR, "RTCFG",
        "runtimecfg.cpp qv_config_parse_offset  75, Error: offset over bound: 0x000001234 \n"))
        << ::testing::PrintToString(mCapture.messagesContaining("over bound"));
}

TEST_F(RuntimeCfgTest, ParameterAtTheVeryEndFailsSilently) {
    installCmdline("console=ttyS0 res_rtcfg=10K@0x1234\n");
    EXPECT_EQ(0u, qv_config_parse_offset());
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(RuntimeCfgTest, MissingParameterOrAtSignGivesZero) {
    installCmdline("console=ttyS0 quiet\n");
    EXPECT_EQ(0u, qv_config_parse_offset());
    installCmdline("res_rtcfg=0x1234 quiet\n");
    EXPECT_EQ(0u, qv_config_parse_offset());
    installCmdline("");
    EXPECT_EQ(0u, qv_config_parse_offset());
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(RuntimeCfgTest, UnreadableCommandLineIsLoggedAndEveryLookupFails) {
    const std::string missing = mDir.file("no-such-cmdline");
    useFiles(missing, mDir.file("no-such-mem"));
    int value = 3;
    EXPECT_EQ(-1, qv_config_get_int("DVR_FPS", &value));
    EXPECT_EQ(3, value);
    EXPECT_TRUE(mCapture.contains(
        ANDROID_LOG_ERROR, "RTCFG",
        "runtimecfg.cpp [qv_config_parse_offset 60] can not read cmdline: " + missing + " "))
        << ::testing::PrintToString(mCapture.messagesContaining("cmdline"));
    EXPECT_TRUE(mCapture.contains(
        ANDROID_LOG_ERROR, "RTCFG",
        "runtimecfg.cpp [qv_config_init 99] can not parsing offset from " + missing + "\n"))
        << ::testing::PrintToString(mCapture.messagesContaining("parsing"));
    EXPECT_EQ(-1, qv_config_init());
}

TEST_F(RuntimeCfgTest, UnopenableMemoryIsLogged) {
    install("\nDVR_FPS=30\n");
    setenv("DVR_RTCFG_MEM", mDir.file("absent.img").c_str(), 1);
    EXPECT_EQ(-1, qv_config_init());
    EXPECT_TRUE(mCapture.contains(ANDROID_LOG_ERROR, "RTCFG",
                                  "runtimecfg.cpp [qv_config_init 111] Error: open "
                                  "KERNEL_MEM_PATH failed\n"))
        << ::testing::PrintToString(mCapture.messagesContaining("KERNEL_MEM_PATH"));
}

TEST_F(RuntimeCfgTest, ImageShorterThanTheBlockCannotBeMapped) {
    install("\nDVR_FPS=30\n");
    mDir.write("short.img", std::string(kUnalignedOffset + 100, '\n'));
    setenv("DVR_RTCFG_MEM", mDir.file("short.img").c_str(), 1);
    EXPECT_EQ(-1, qv_config_init());
    EXPECT_TRUE(
        mCapture.contains(ANDROID_LOG_ERROR, "RTCFG", "Can't map runtime config chunk memory"));
}

TEST_F(RuntimeCfgTest, BlockWithoutTerminatorIsRefused) {
    std::string image(kUnalignedOffset + kBlockSize + 4096, 'A');
    image.replace(kUnalignedOffset, 12, "\nDVR_FPS=25\n");
    char cmdline[64];
    snprintf(cmdline, sizeof(cmdline), "res_rtcfg=10K@0x%x \n", kUnalignedOffset);
    useFiles(mDir.write("cmdline", cmdline), mDir.write("mem.img", image));
    int fps = 0;
    EXPECT_EQ(-1, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(1u, mCapture.messagesContaining("Error: no NUL within 10240 bytes").size());
}

TEST_F(RuntimeCfgTest, FailedAttemptsAreRetriedAndAFoundOffsetIsKept) {
    const std::string missing = mDir.file("later-cmdline");
    useFiles(missing, mDir.file("later.img"));
    int fps = 0;
    EXPECT_EQ(-1, qv_config_get_int("DVR_FPS", &fps));
    // The command line appears; the memory image does not yet.
    mDir.write("later-cmdline", "res_rtcfg=10K@0x1234 \n");
    EXPECT_EQ(-1, qv_config_init());
    // Now the image exists and the command line is gone: the offset found
    // before is used without reading the command line again.
    unlink(missing.c_str());
    std::string image(kUnalignedOffset + kBlockSize + 4096, '\0');
    image.replace(kUnalignedOffset, 12, "\nDVR_FPS=25\n");
    mDir.write("later.img", image);
    mCapture.clear();
    EXPECT_EQ(0, qv_config_get_int("DVR_FPS", &fps));
    EXPECT_EQ(25, fps);
    EXPECT_TRUE(mCapture.lines().empty());
    EXPECT_EQ(0, qv_config_init());
}

TEST_F(RuntimeCfgTest, ReleaseAlwaysReturnsZero) {
    install("\nDVR_FPS=30\n");
    EXPECT_EQ(0, qv_config_init());
    EXPECT_EQ(0, qv_config_release());
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(RuntimeCfgTest, ImageToolOutputIsReadAsOnTheDevice) {
    const std::string config = mDir.write(
        "runtime.cfg", "DVR_FORMAT=AVI\nDVR_BIT_RATE=0x8\nDVR_TIMESTAMP_EN=n\nDVR_FILE_LEN=30");
    const std::string image = mDir.file("tool.img");
    const std::string cmdline = mDir.file("tool.cmdline");
    const std::string command =
        std::string(RTCFG_IMAGE_TOOL) + " " + config + " " + image + " " + cmdline;
    ASSERT_EQ(0, system(command.c_str()));
    useFiles(cmdline, image);
    EXPECT_EQ(0x1234u, qv_config_parse_offset());
    char format[4] = {};
    EXPECT_EQ(3, qv_config_get_string("DVR_FORMAT", format, sizeof(format)));
    EXPECT_STREQ("AVI", format);
    int value = 0;
    EXPECT_EQ(0, qv_config_get_int("DVR_BIT_RATE", &value));
    EXPECT_EQ(8, value);
    // The tool ends the last line, so the string lookup finds it too.
    char length[4] = {};
    EXPECT_EQ(2, qv_config_get_string("DVR_FILE_LEN", length, sizeof(length)));
    bool stamp = true;
    EXPECT_EQ(0, qv_config_get_bool("DVR_TIMESTAMP_EN", &stamp));
    EXPECT_FALSE(stamp);
}

TEST_F(RuntimeCfgTest, ImageToolRejectsAnOversizedConfiguration) {
    const std::string config = mDir.write("big.cfg", "\nDVR_X=" + std::string(11000, '1') + "\n");
    const std::string command = std::string(RTCFG_IMAGE_TOOL) + " " + config + " " +
                                mDir.file("big.img") + " " + mDir.file("big.cmdline") +
                                " 2>/dev/null";
    const int status = system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_NE(0, access(mDir.file("big.img").c_str(), F_OK));
}

TEST_F(RuntimeCfgTest, ShippedFactoryDefaultsCarryEveryServiceKey) {
    const std::string command = std::string(RTCFG_IMAGE_TOOL) + " " + DVR_SOURCE_DIR +
                                "/config/runtime.cfg " + mDir.file("f.img") + " " +
                                mDir.file("f.cmdline");
    ASSERT_EQ(0, system(command.c_str()));
    useFiles(mDir.file("f.cmdline"), mDir.file("f.img"));
    char text[64] = {};
    EXPECT_EQ(2, qv_config_get_string("DVR_FORMAT", text, 4));
    EXPECT_STREQ("TS", text);
    const struct {
        const char *key;
        int expected;
    } integers[] = {{"DVR_BIT_RATE", 4},        {"DVR_FPS", 30},
                    {"DVR_RES_WIDTH", 1920},    {"DVR_RES_HEIGHT", 1080},
                    {"DVR_FILE_LEN", 60},       {"DVRCAM_NUM", 2},
                    {"DVR_TIMESTAMP_POSX", 32}, {"DVR_USTMP_INTERVAL_MS", 1000}};
    for (const auto &c : integers) {
        int value = 0;
        EXPECT_EQ(0, qv_config_get_int(c.key, &value)) << c.key;
        EXPECT_EQ(c.expected, value) << c.key;
    }
    for (const char *flag : {"DVR_TIMESTAMP_EN", "DVR_USER_STAMP_EN", "DVR_AUDIO_EN"}) {
        bool on = false;
        EXPECT_EQ(0, qv_config_get_bool(flag, &on)) << flag;
        EXPECT_TRUE(on) << flag;
    }
    EXPECT_EQ(3, qv_config_get_string("DVRCAM_SRC_SEL", text, 4));
    EXPECT_STREQ("0,1", text);
    EXPECT_EQ(16, qv_config_get_string("DVR_DEFAULT_PATH", text, sizeof(text)));
    EXPECT_STREQ("/tmp/dvr_default", text);
}
