// Each case points DVR_VENDOR_DATA at a file of its own temporary directory.
#include "qv_vendor_data.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "TempDir.h"
#include "VendorDataStore.h"

using dvrtest::LogCapture;

namespace {

constexpr size_t kImageSize = 1168;
const char kTag[] = "VendorData";

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string &path, const std::string &data) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << data;
}

bool exists(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

class VendorDataTest : public ::testing::Test {
protected:
    VendorDataTest() : mPath(mDir.file("vendor_data")) {
        setenv("DVR_VENDOR_DATA", mPath.c_str(), 1);
    }

    int readInt(int position, int length) {
        int value = 0x55555555;
        EXPECT_EQ(0, qv_vendor_data_read_int(position, length, &value))
            << "position " << position << " length " << length;
        return value;
    }

    std::string damagedLine(const std::string &problem, const std::string &meaning) const {
        return "Vendor data " + mPath + " is damaged (" + problem + "); " + meaning;
    }

    dvrtest::TempDir mDir;
    const std::string mPath;
    LogCapture mCapture;
};

}  // namespace

TEST_F(VendorDataTest, ReadsFailWithoutAStoreFile) {
    int value = 0;
    bool flag = false;
    char text[4] = {};
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 2, &value));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_bool(256, &flag));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_string(238, 4, text));
    EXPECT_FALSE(exists(mPath));
    EXPECT_TRUE(mCapture.lines().empty());
}

TEST_F(VendorDataTest, ReadsOfBytesNeverWrittenFail) {
    ASSERT_EQ(0, qv_vendor_data_write_int(100, 4, 7));
    int value = 0;
    bool flag = false;
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(200, 4, &value));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(98, 4, &value));  // half written
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(102, 4, &value));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_bool(104, &flag));
    EXPECT_EQ(7, readInt(100, 4));
}

TEST_F(VendorDataTest, IntegersRoundTripAtEveryLength) {
    ASSERT_EQ(0, qv_vendor_data_write_int(0, 1, 0x7f));
    ASSERT_EQ(0, qv_vendor_data_write_int(10, 2, 1234));
    ASSERT_EQ(0, qv_vendor_data_write_int(20, 3, -70000));
    ASSERT_EQ(0, qv_vendor_data_write_int(30, 4, -2000000000));
    ASSERT_EQ(0, qv_vendor_data_write_int(1020, 4, 42));  // last four bytes
    EXPECT_EQ(0x7f, readInt(0, 1));
    EXPECT_EQ(1234, readInt(10, 2));
    EXPECT_EQ(-70000, readInt(20, 3));
    EXPECT_EQ(-2000000000, readInt(30, 4));
    EXPECT_EQ(42, readInt(1020, 4));
}

TEST_F(VendorDataTest, IntegersAreStoredLittleEndian) {
    ASSERT_EQ(0, qv_vendor_data_write_int(300, 4, 0x12345678));
    char bytes[4] = {};
    ASSERT_EQ(0, qv_vendor_data_read_string(300, 4, bytes));
    EXPECT_EQ(0x78, static_cast<unsigned char>(bytes[0]));
    EXPECT_EQ(0x56, static_cast<unsigned char>(bytes[1]));
    EXPECT_EQ(0x34, static_cast<unsigned char>(bytes[2]));
    EXPECT_EQ(0x12, static_cast<unsigned char>(bytes[3]));
    EXPECT_EQ(0x5678, readInt(300, 2));
    EXPECT_EQ(0x78, readInt(300, 1));
}

TEST_F(VendorDataTest, ShortReadsSignExtendSoMinusOneSurvives) {
    ASSERT_EQ(0, qv_vendor_data_write_int(254, 4, -1));
    EXPECT_EQ(-1, readInt(254, 2));
    ASSERT_EQ(0, qv_vendor_data_write_int(254, 4, 0x8000));
    EXPECT_EQ(-32768, readInt(254, 2));
}

TEST_F(VendorDataTest, FourByteWriteAt242ThenAt244KeepsTheLowHalfOfTheFirst) {
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    ASSERT_EQ(0, qv_vendor_data_write_int(244, 4, 30));
    EXPECT_EQ(8, readInt(242, 2));
    EXPECT_EQ(30, readInt(244, 2));
    EXPECT_EQ(30, readInt(244, 4));
    EXPECT_EQ(8 | (30 << 16), readInt(242, 4));
}

TEST_F(VendorDataTest, WritingInTheOtherOrderLetsTheSpillOverwriteTheNextValue) {
    ASSERT_EQ(0, qv_vendor_data_write_int(244, 4, 30));
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    EXPECT_EQ(8, readInt(242, 2));
    EXPECT_EQ(0, readInt(244, 2));
}

TEST_F(VendorDataTest, BooleansRoundTripAndAnyNonZeroByteIsTrue) {
    ASSERT_EQ(0, qv_vendor_data_write_bool(256, true));
    ASSERT_EQ(0, qv_vendor_data_write_bool(265, false));
    ASSERT_EQ(0, qv_vendor_data_write_int(278, 1, 2));
    bool flag = false;
    ASSERT_EQ(0, qv_vendor_data_read_bool(256, &flag));
    EXPECT_TRUE(flag);
    ASSERT_EQ(0, qv_vendor_data_read_bool(265, &flag));
    EXPECT_FALSE(flag);
    ASSERT_EQ(0, qv_vendor_data_read_bool(278, &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(1, readInt(256, 1));
}

TEST_F(VendorDataTest, TextsAreNulPaddedToTheirLength) {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, "AVI"));
    ASSERT_EQ(0, qv_vendor_data_write_string(480, 4, "1"));
    char text[4];
    memset(text, 'x', sizeof(text));
    ASSERT_EQ(0, qv_vendor_data_read_string(238, 4, text));
    EXPECT_EQ(0, memcmp(text, "AVI\0", 4));
    ASSERT_EQ(0, qv_vendor_data_read_string(480, 4, text));
    EXPECT_EQ(0, memcmp(text, "1\0\0\0", 4));
}

TEST_F(VendorDataTest, TextOfTheFullLengthOrLongerIsStoredUnterminated) {
    ASSERT_EQ(0, qv_vendor_data_write_int(604, 1, 9));
    ASSERT_EQ(0, qv_vendor_data_write_string(600, 4, "0,1,2"));
    char text[4] = {};
    ASSERT_EQ(0, qv_vendor_data_read_string(600, 4, text));
    EXPECT_EQ(0, memcmp(text, "0,1,", 4));
    EXPECT_EQ(9, readInt(604, 1));  // nothing spilled past the length
}

TEST_F(VendorDataTest, EmptyTextWritesNulBytes) {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, ""));
    char text[4] = {'x', 'x', 'x', 'x'};
    ASSERT_EQ(0, qv_vendor_data_read_string(238, 4, text));
    EXPECT_EQ(0, memcmp(text, "\0\0\0\0", 4));
}

// The service's factory reset writes these in this order and reads them back
// at its next start with 2-byte reads for bit rate, frame rate, file length.
TEST_F(VendorDataTest, ServiceSettingsLayoutReadsBackAsWritten) {
    ASSERT_EQ(0, qv_vendor_data_write_string(238, 4, "TS"));
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    ASSERT_EQ(0, qv_vendor_data_write_int(244, 4, 30));
    ASSERT_EQ(0, qv_vendor_data_write_int(246, 4, 1920));
    ASSERT_EQ(0, qv_vendor_data_write_int(250, 4, 1080));
    ASSERT_EQ(0, qv_vendor_data_write_int(254, 4, 300));
    ASSERT_EQ(0, qv_vendor_data_write_bool(256, true));
    ASSERT_EQ(0, qv_vendor_data_write_int(257, 4, 16));
    ASSERT_EQ(0, qv_vendor_data_write_int(261, 4, 24));
    ASSERT_EQ(0, qv_vendor_data_write_bool(265, false));
    ASSERT_EQ(0, qv_vendor_data_write_int(266, 4, 100));
    ASSERT_EQ(0, qv_vendor_data_write_int(270, 4, 200));
    ASSERT_EQ(0, qv_vendor_data_write_int(274, 4, 1000));
    ASSERT_EQ(0, qv_vendor_data_write_bool(278, true));
    ASSERT_EQ(0, qv_vendor_data_write_int(476, 4, 2));
    ASSERT_EQ(0, qv_vendor_data_write_string(480, 4, "0,1"));

    char format[4] = {};
    ASSERT_EQ(0, qv_vendor_data_read_string(238, 4, format));
    EXPECT_STREQ("TS", format);
    EXPECT_EQ(8, readInt(242, 2));
    EXPECT_EQ(30, readInt(244, 2));
    EXPECT_EQ(1920, readInt(246, 4));
    EXPECT_EQ(1080, readInt(250, 4));
    EXPECT_EQ(300, readInt(254, 2));
    bool flag = false;
    ASSERT_EQ(0, qv_vendor_data_read_bool(256, &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(16, readInt(257, 4));
    EXPECT_EQ(24, readInt(261, 4));
    ASSERT_EQ(0, qv_vendor_data_read_bool(265, &flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(100, readInt(266, 4));
    EXPECT_EQ(200, readInt(270, 4));
    EXPECT_EQ(1000, readInt(274, 4));
    ASSERT_EQ(0, qv_vendor_data_read_bool(278, &flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(2, readInt(476, 4));
    char sources[4] = {};
    ASSERT_EQ(0, qv_vendor_data_read_string(480, 4, sources));
    EXPECT_EQ(0, memcmp(sources, "0,1\0", 4));
}

TEST_F(VendorDataTest, PositionsOutsideTheRecordAreRejectedAndChangeNothing) {
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_int(-1, 4, 1));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_int(1021, 4, 1));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_bool(1024, true));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_string(1000, 100, "text"));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_string(0, 0x7fffffff, "text"));
    EXPECT_FALSE(exists(mPath));
    EXPECT_TRUE(
        mCapture.contains(ANDROID_LOG_ERROR, kTag,
                          "Vendor data: position 1021 length 4 is outside the record (0..1023)"));
    EXPECT_TRUE(
        mCapture.contains(ANDROID_LOG_ERROR, kTag,
                          "Vendor data: position -1 length 4 is outside the record (0..1023)"));
    int value = 0;
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_int(1022, 4, &value));
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_int(-4, 2, &value));
}

TEST_F(VendorDataTest, IntegerLengthsOutsideOneToFourAreRejected) {
    int value = 0;
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_int(0, 0, 1));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_int(0, 5, 1));
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_int(0, 8, &value));
    EXPECT_FALSE(exists(mPath));
    EXPECT_EQ(1u, mCapture.count(ANDROID_LOG_ERROR, kTag,
                                 "Vendor data: integer length 5 is not 1 to 4 bytes"));
}

TEST_F(VendorDataTest, NullPointersAreRejected) {
    ASSERT_EQ(0, qv_vendor_data_write_int(0, 4, 1));
    const std::string before = readFile(mPath);
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_int(0, 4, nullptr));
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_bool(0, nullptr));
    EXPECT_EQ(-EINVAL, qv_vendor_data_read_string(0, 4, nullptr));
    EXPECT_EQ(-EINVAL, qv_vendor_data_write_string(0, 4, nullptr));
    EXPECT_EQ(before, readFile(mPath));
    EXPECT_EQ(4u, mCapture.count(ANDROID_LOG_ERROR, kTag, "Vendor data: null buffer"));
}

TEST_F(VendorDataTest, AFailedWriteReportsTheSystemErrorAndChangesNothing) {
    const std::string blocker = mDir.write("plain_file", "not a directory");
    const std::string path = blocker + "/vendor_data";
    setenv("DVR_VENDOR_DATA", path.c_str(), 1);
    EXPECT_EQ(-ENOTDIR, qv_vendor_data_write_int(0, 4, 1));
    EXPECT_TRUE(mCapture.contains(ANDROID_LOG_ERROR, kTag,
                                  "Vendor data " + path + ".lock: cannot open: Not a directory"));
    int value = 0;
    EXPECT_EQ(-ENOTDIR, qv_vendor_data_read_int(0, 4, &value));
    EXPECT_EQ("not a directory", readFile(blocker));
}

TEST_F(VendorDataTest, AWriteCreatesMissingDirectoriesOfTheStorePath) {
    const std::string path = mDir.file("a/b/vendor_data");
    setenv("DVR_VENDOR_DATA", path.c_str(), 1);
    ASSERT_EQ(0, qv_vendor_data_write_int(476, 4, 2));
    EXPECT_EQ(2, readInt(476, 4));
    EXPECT_EQ(kImageSize, readFile(path).size());
}

TEST_F(VendorDataTest, DefaultPathIsUnderTheServiceStateDirectory) {
    unsetenv("DVR_VENDOR_DATA");
    setenv("XDG_STATE_HOME", "/state", 1);
    setenv("HOME", "/home/op", 1);
    const bool root = geteuid() == 0;
    EXPECT_EQ(root ? "/var/lib/dvr/vendor_data" : "/state/dvr/vendor_data",
              VendorDataStore::configuredPath());
    unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(root ? "/var/lib/dvr/vendor_data" : "/home/op/.local/state/dvr/vendor_data",
              VendorDataStore::configuredPath());
    setenv("DVR_VENDOR_DATA", "/elsewhere/vd", 1);
    EXPECT_EQ("/elsewhere/vd", VendorDataStore::configuredPath());
}

TEST_F(VendorDataTest, ALeftoverTemporaryFileFromAKilledWriterIsHarmless) {
    ASSERT_EQ(0, qv_vendor_data_write_int(10, 4, 1));
    writeFile(mPath + ".tmp", "half a recor");
    EXPECT_EQ(1, readInt(10, 4));
    ASSERT_EQ(0, qv_vendor_data_write_int(10, 4, 2));
    EXPECT_EQ(2, readInt(10, 4));
    EXPECT_FALSE(exists(mPath + ".tmp"));
}

TEST_F(VendorDataTest, ABadChecksumIsLoggedOnceAndReadsAsEmpty) {
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    std::string image = readFile(mPath);
    ASSERT_EQ(kImageSize, image.size());
    image[16 + 242] ^= 0x01;
    writeFile(mPath, image);
    int value = 0;
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 2, &value));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 4, &value));
    EXPECT_EQ(1u, mCapture.count(ANDROID_LOG_ERROR, kTag,
                                 damagedLine("bad checksum", "reading it as empty")));
}

TEST_F(VendorDataTest, AFileOfTheWrongSizeIsLoggedAndReadsAsEmpty) {
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    writeFile(mPath, readFile(mPath).substr(0, 100));
    int value = 0;
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 2, &value));
    EXPECT_TRUE(mCapture.contains(
        ANDROID_LOG_ERROR, kTag,
        damagedLine("wrong size: 100 bytes, expected 1168", "reading it as empty")));
}

TEST_F(VendorDataTest, AnEmptyOrForeignFileIsLoggedAndReadsAsEmpty) {
    writeFile(mPath, "");
    bool flag = false;
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_bool(256, &flag));
    EXPECT_TRUE(mCapture.contains(
        ANDROID_LOG_ERROR, kTag,
        damagedLine("wrong size: 0 bytes, expected 1168", "reading it as empty")));
    writeFile(mPath, std::string(kImageSize, '\xff'));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_bool(256, &flag));
    EXPECT_TRUE(mCapture.contains(ANDROID_LOG_ERROR, kTag,
                                  damagedLine("bad magic", "reading it as empty")));
}

TEST_F(VendorDataTest, AWriteOverADamagedFileStartsANewRecord) {
    ASSERT_EQ(0, qv_vendor_data_write_int(242, 4, 8));
    std::string image = readFile(mPath);
    image[kImageSize - 1] ^= 0x40;
    writeFile(mPath, image);
    int value = 0;
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 4, &value));
    ASSERT_EQ(0, qv_vendor_data_write_int(250, 4, 1080));
    EXPECT_TRUE(mCapture.contains(ANDROID_LOG_ERROR, kTag,
                                  damagedLine("bad checksum", "starting a new record")));
    EXPECT_EQ(1080, readInt(250, 4));
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(242, 4, &value));
}

TEST_F(VendorDataTest, RandomGarbageNeverCrashesAReader) {
    unsigned seed = 12345;
    for (int round = 0; round < 50; ++round) {
        std::string garbage(round % 2 == 0 ? kImageSize : static_cast<size_t>(rand_r(&seed) % 3000),
                            '\0');
        for (char &byte : garbage) {
            byte = static_cast<char>(rand_r(&seed));
        }
        if (round % 5 == 0 && garbage.size() >= 4) {
            garbage.replace(0, 4, "QVVD");
        }
        writeFile(mPath, garbage);
        int value = 0;
        EXPECT_EQ(-ENOENT, qv_vendor_data_read_int(0, 4, &value));
    }
}

TEST_F(VendorDataTest, WritersOnSeveralThreadsLoseNoUpdate) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int round = 1; round <= kRounds; ++round) {
                ASSERT_EQ(0, qv_vendor_data_write_int(t * 8, 4, round));
                ASSERT_EQ(0, qv_vendor_data_write_int(t * 8 + 4, 2, -round));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(kRounds, readInt(t * 8, 4));
        EXPECT_EQ(-kRounds, readInt(t * 8 + 4, 2));
    }
}

TEST_F(VendorDataTest, WritersInSeveralProcessesLoseNoUpdate) {
    constexpr int kProcesses = 3;
    constexpr int kRounds = 25;
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        pid_t child = fork();
        ASSERT_NE(-1, child);
        if (child == 0) {
            for (int round = 1; round <= kRounds; ++round) {
                if (qv_vendor_data_write_int(p * 4, 4, round) != 0) {
                    _exit(1);
                }
            }
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int p = 0; p < kProcesses; ++p) {
        EXPECT_EQ(kRounds, readInt(p * 4, 4));
    }
}
