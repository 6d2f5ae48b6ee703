#include "DVRTypes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace dvrspace;

TEST(SharedTypes, ResultCodesHaveTheirFixedValues) {
    EXPECT_EQ(0, DVR_SUCCESS);
    EXPECT_EQ(-1, DVR_FAILURE);
    EXPECT_EQ(-2, DVR_INVALID_ARGUMENT);
    EXPECT_EQ(-3, DVR_INVALID_OPERATION);
    EXPECT_EQ(0, DVR_STD_SUCCESS);
    EXPECT_EQ(1, DVR_STD_IGNORED);
    EXPECT_EQ(-1, DVR_STD_FAILED);
}

TEST(SharedTypes, StatesFormatsAndResolutionsHaveTheirFixedValues) {
    EXPECT_EQ(0, DVR_STM_NONE);
    EXPECT_EQ(1, DVR_STM_IDLE);
    EXPECT_EQ(2, DVR_STM_READY);
    EXPECT_EQ(3, DVR_STM_RECORDING);
    EXPECT_EQ(4, DVR_STM_STOPPING);
    EXPECT_EQ(0, DVR_FILE_FORMAT_AVI);
    EXPECT_EQ(1, DVR_FILE_FORMAT_TS);
    EXPECT_EQ(0, DVR_RESOLUTION_INPUT);
    EXPECT_EQ(1, DVR_RESOLUTION_1080P);
    EXPECT_EQ(2, DVR_RESOLUTION_720P);
    EXPECT_EQ(3, DVR_RESOLUTION_480P);
}

TEST(SharedTypes, CallbackObjectsCommandsAndEncoderCodesHaveTheirFixedValues) {
    EXPECT_EQ(0, DVR_CBK_OBJ_RECORD);
    EXPECT_EQ(1, DVR_CBK_OBJ_ERROR);
    EXPECT_EQ(2, DVR_CBK_OBJ_ABNORMAL);
    EXPECT_EQ(3, DVR_CBK_OBJ_STAMP);
    EXPECT_EQ(4, DVR_CBK_OBJ_FILENAME);
    EXPECT_EQ(1, ENC_NEED_VIDEO);
    EXPECT_EQ(2, ENC_NEED_AUDIO);
    EXPECT_EQ(0, DVR_ERROR_NORMAL);
    EXPECT_EQ(1, DVR_ERROR_SEVERE);
    EXPECT_EQ(0, QV_DVR_STAMP_FONT_SIZE_SMALLEST);
    EXPECT_EQ(4, QV_DVR_STAMP_FONT_SIZE_LARGEST);
    EXPECT_EQ(1, DVR_VIDEO_FORMAT_NV12);
}

TEST(SharedTypes, CallbackCommandFiveIsNeverProduced) {
    const DVR_CbkCmd_e commands[] = {DVR_CBK_RECORD_START, DVR_CBK_RECORD_FINISH, DVR_CBK_ERROR,
                                     DVR_CBK_ERROR_SEVERE, DVR_CBK_ABNORMAL};
    const int expected[] = {1, 2, 3, 4, 6};
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); ++i) {
        EXPECT_EQ(expected[i], commands[i]);
        EXPECT_NE(5, commands[i]);
    }
}

TEST(SharedTypes, EnumerationsArePlain32BitSigned) {
    EXPECT_EQ(4u, sizeof(DVRResult_e));
    EXPECT_EQ(4u, sizeof(DVRFileFormat_e));
    EXPECT_EQ(4u, sizeof(QVDVRStampFontSize_e));
    EXPECT_LT(static_cast<DVRFileFormat_e>(-1), 0);
}

TEST(SharedTypes, RecordsKeepFieldOrderAndSize) {
    QVStampSettings_t stamp{true, 10, 20, QV_DVR_STAMP_FONT_SIZE_LARGE, 5, 1000};
    unsigned char raw[sizeof(stamp)];
    std::memcpy(raw, &stamp, sizeof(stamp));
    int32_t word = 0;
    std::memcpy(&word, raw + 4, 4);
    EXPECT_EQ(10, word);
    std::memcpy(&word, raw + 8, 4);
    EXPECT_EQ(20, word);
    std::memcpy(&word, raw + 12, 4);
    EXPECT_EQ(3, word);
    EXPECT_EQ(5, raw[16]);
    std::memcpy(&word, raw + 20, 4);
    EXPECT_EQ(1000, word);
    EXPECT_EQ(1, raw[0]);

    EncoderDeviceCaps_t caps{255, 1920, 1080, 600, 1, 25, 1, 30, 1};
    int32_t words[9];
    std::memcpy(words, &caps, sizeof(words));
    EXPECT_EQ(255, words[0]);
    EXPECT_EQ(1, words[8]);
    EXPECT_EQ(32u, sizeof(SnapshotPA_t));
}

TEST(DeviceExceptions, WhatReturnsTheMessage) {
    DVRException plain("camera 2 is busy");
    EXPECT_STREQ("camera 2 is busy", plain.what());
    DVRException empty;
    EXPECT_STREQ("", empty.what());
}

TEST(DeviceExceptions, LongMessagesAreCutTo127Bytes) {
    const std::string longText(300, 'x');
    DVRException exception(longText.c_str());
    EXPECT_EQ(std::string(127, 'x'), exception.what());
}

TEST(DeviceExceptions, CopyingCopiesTheWholeBuffer) {
    DeviceNotReadyException original("not ready");
    DeviceNotReadyException copy(original);
    EXPECT_STREQ("not ready", copy.what());
    EXPECT_NE(original.what(), copy.what());
    DVRException assigned("other");
    assigned = original;
    EXPECT_STREQ("not ready", assigned.what());
}

TEST(DeviceExceptions, SubclassesAreCaughtAsDVRException) {
    try {
        throw DeviceNumExceedException("index 9 beyond 2 cameras");
    } catch (const DVRException &caught) {
        EXPECT_STREQ("index 9 beyond 2 cameras", caught.what());
    }
    bool caughtNotReady = false;
    try {
        throw DeviceNotReadyException("later");
    } catch (const DeviceNumExceedException &) {
        FAIL() << "wrong exception type";
    } catch (const DeviceNotReadyException &) {
        caughtNotReady = true;
    }
    EXPECT_TRUE(caughtNotReady);
}
