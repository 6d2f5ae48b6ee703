// Every failed store write of a factory reset aborts with its own message.
// This executable puts itself in front of the vendor-data store's write
// functions: the chosen write fails, all others reach the real store.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "RecorderFixture.h"
#include "qv_vendor_data.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

int gWritesSeen = 0;
int gFailingWrite = 0;  // 1-based; 0 fails none

bool failThisWrite() {
    return ++gWritesSeen == gFailingWrite;
}

template <typename Function>
Function realStoreFunction(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int qv_vendor_data_write_int(int position, int length, int value) {
    static const auto real = realStoreFunction<int (*)(int, int, int)>("qv_vendor_data_write_int");
    return failThisWrite() ? -EIO : real(position, length, value);
}

extern "C" int qv_vendor_data_write_bool(int position, bool value) {
    static const auto real = realStoreFunction<int (*)(int, bool)>("qv_vendor_data_write_bool");
    return failThisWrite() ? -EIO : real(position, value);
}

extern "C" int qv_vendor_data_write_string(int position, int length, const char *text) {
    static const auto real =
        realStoreFunction<int (*)(int, int, const char *)>("qv_vendor_data_write_string");
    return failThisWrite() ? -EIO : real(position, length, text);
}

namespace {

struct FailedWrite {
    int index;  // 1-based, in the write order
    const char *message;
};

// Keeps the printed parameter (and so the test's listed name) stable.
void PrintTo(const FailedWrite &write, std::ostream *out) {
    *out << "write " << write.index;
}

class RecorderResetWriteFailure : public RecorderFixture,
                                  public ::testing::WithParamInterface<FailedWrite> {};

}  // namespace

TEST_P(RecorderResetWriteFailure, AbortsWithItsMessageAfterTheEarlierWritesReachedTheStore) {
    build();
    const FailedWrite &failed = GetParam();
    EXPECT_DEATH(
        {
            gWritesSeen = 0;
            gFailingWrite = failed.index;
            mRecorder->resetSettings();
        },
        std::string("\\[resetSettings:[0-9]+\\]  \\[100\\] ") + failed.message +
            ".*Assertion failed: ret == 0");
    // The writes before the failed one are durable, the source list (always
    // the last) never happened.
    char text[5] = {};
    EXPECT_EQ(failed.index > 1 ? 0 : -ENOENT, qv_vendor_data_read_string(238, 4, text));
    if (failed.index > 1) {
        EXPECT_STREQ("TS", text);
    }
    EXPECT_EQ(-ENOENT, qv_vendor_data_read_string(480, 4, text));
}

INSTANTIATE_TEST_SUITE_P(
    WriteOrder, RecorderResetWriteFailure,
    ::testing::Values(FailedWrite{1, "Fail to write dvr_format into vendor data!"},
                      FailedWrite{2, "Fail to write bitrate into vendor data!"},
                      FailedWrite{3, "Fail to write framerate into vendor data!"},
                      FailedWrite{4, "Fail to write framerate into vendor data!"},
                      FailedWrite{5, "Fail to write DVR_RES_HEIGHT_POS into vendor data!"},
                      FailedWrite{6, "Fail to write DVR_FILE_LEN_POS into vendor data!"},
                      FailedWrite{7, "Fail to write DVR_TIMESTAMP_EN_POS into vendor data!"},
                      FailedWrite{8, "Fail to write DVR_TIMESTAMP_POSX_POS into vendor data!"},
                      FailedWrite{9, "Fail to write DVR_TIMESTAMP_POSY_POS into vendor data!"},
                      FailedWrite{10, "Fail to write DVR_USER_STAMP_EN_POS into vendor data!"},
                      FailedWrite{11, "Fail to write DVR_USER_STAMP_EN_POS into vendor data!"},
                      FailedWrite{12, "Fail to write DVR_USER_STAMP_POSY_POS into vendor data!"},
                      FailedWrite{13, "Fail to write DVR_USTMP_INTERVAL_MS_POS into vendor data!"},
                      FailedWrite{14, "Fail to write DVR_AUDIO_EN_POS into vendor data!"},
                      FailedWrite{15, "Fail to write DVRCAM_NUM into vendor data!"},
                      FailedWrite{16, "Fail to write DVRCAM_SRC_SEL into vendor data!"}),
    [](const ::testing::TestParamInfo<FailedWrite> &info) {
        return "Write" + std::to_string(info.param.index);
    });
