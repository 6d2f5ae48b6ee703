// Output file naming: the default path, the storage path, the client's next
// file, pattern naming, naming by client callback and default names.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "DVRSimulatorControl.h"
#include "IDVRCallback.h"
#include "RecorderFixture.h"

using namespace dvrspace;
using namespace dvrtest;

namespace {

constexpr int kLimit = 255;         // the simulated encoder's file-name limit
constexpr size_t kTimeLength = 17;  // YYYYmmdd_HH-MM-SS

bool isDirectory(const std::string &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A file-naming client living in the test process.
class NamingClient : public BnDVRCallback {
public:
    explicit NamingClient(std::string answer) : mAnswer(std::move(answer)) {}
    int onRecordStart(int, int, const char *) override { return 0; }
    int onRecordFinish(int, int, const char *) override { return 0; }
    int onRecordError(int, int, int) override { return 0; }
    int onRecordErrorSevere(int, int, int) override { return 0; }
    int onRecordAbnormal(int, int, int) override { return 0; }
    int getStampString(int, int, char *) override { return 0; }
    int fileNameGenerator(int cbkId, int index, char *buffer, int length) override {
        mAskedCbkId = cbkId;
        mAskedIndex = index;
        mAskedLength = length;
        snprintf(buffer, length, "%s", mAnswer.c_str());
        return 0;
    }
    int mAskedCbkId = -1;
    int mAskedIndex = -1;
    int mAskedLength = -1;

private:
    std::string mAnswer;
};

class RecorderFileName : public RecorderFixture {
protected:
    // Subscribes a client for file names, as the control interface does.
    android::sp<NamingClient> subscribeNamingClient(const std::string &answer) {
        android::sp<NamingClient> client = new NamingClient(answer);
        CallbackManager &manager = DVRPeer::callbackManager(*mService);
        EXPECT_EQ(0, manager.addClient(4321, client));
        EXPECT_EQ(0, manager.addCallbackObject(4321, 7, DVR_CBK_OBJ_FILENAME));
        return client;
    }
    // The default name's documented form under directory,
    // "<directory>/default_c100_[<start>]_[<end>].<extension>", with the times
    // checked to lie fileLength seconds apart, close to now.
    void expectDefaultName(const std::string &name, const std::string &directory,
                           const std::string &extension, int fileLength) {
        const std::string head = directory + "/default_c100_[";
        const std::string tail = "]." + extension;
        ASSERT_EQ(head.size() + 2 * kTimeLength + 3 + tail.size(), name.size()) << name;
        EXPECT_EQ(head, name.substr(0, head.size()));
        EXPECT_EQ("]_[", name.substr(head.size() + kTimeLength, 3));
        EXPECT_EQ(tail, name.substr(name.size() - tail.size()));
        time_t start = 0;
        time_t end = 0;
        ASSERT_TRUE(readTime(name.substr(head.size(), kTimeLength), &start)) << name;
        ASSERT_TRUE(readTime(name.substr(head.size() + kTimeLength + 3, kTimeLength), &end))
            << name;
        EXPECT_LE(std::labs(static_cast<long>(time(nullptr) - start)), 10L);
        // Away from a daylight-saving change the local times differ by the length.
        const double apart = difftime(end, start);
        EXPECT_TRUE(apart == fileLength || apart == fileLength + 3600 || apart == fileLength - 3600)
            << apart;
    }
    static bool readTime(const std::string &text, time_t *time) {
        struct tm local {};
        const char *rest = strptime(text.c_str(), "%Y%m%d_%H-%M-%S", &local);
        if (rest == nullptr || *rest != '\0') {
            return false;
        }
        local.tm_isdst = -1;
        *time = mktime(&local);
        return true;
    }
};

}  // namespace

// ------------------------------------------------------------ default path

TEST_F(RecorderFileName, DefaultPathComesFromTheRuntimeConfigurationAndIsCreated) {
    ASSERT_FALSE(isDirectory(mEnv.defaultPath()));
    build();
    EXPECT_STREQ(mEnv.defaultPath().c_str(), gDefaultPath);
    EXPECT_TRUE(isDirectory(mEnv.defaultPath()));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "read_default_path",
                         "Default path: " + mEnv.defaultPath() + "\n"));
    EXPECT_EQ(1u, logged(ANDROID_LOG_INFO, "create_default_path",
                         "Default storage path: " + mEnv.defaultPath() + "\n"));
    EXPECT_EQ(mEnv.defaultPath(), peer().storagePath());
}

TEST_F(RecorderFileName, DefaultPathIsReadOnceForAllRecorders) {
    build();
    Recorder second(1, *mService);
    EXPECT_EQ(1u, mCapture.messagesContaining("] Default path: ").size());
    EXPECT_EQ(2u, mCapture.messagesContaining("] Default storage path: ").size());
}

TEST_F(RecorderFileName, MissingDefaultPathKeyFallsBackToTheBuiltInPath) {
    mEnv.installRuntimeConfig("DVR_FPS=30\n");
    // Only the reading: the built-in path is shared by the whole machine.
    read_default_path(kLimit);
    EXPECT_STREQ("/tmp/dvr_default", gDefaultPath);
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "read_default_path",
                         "Failed to read 'DVR_DEFAULT_PATH' from runtime.cfg, use default path "
                         "'/tmp/dvr_default'\n"));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_INFO, "read_default_path", "Default path: /tmp/dvr_default\n"));
}

TEST_F(RecorderFileName, DefaultPathIsBoundedByTheLineLimitLessSixteen) {
    const std::string longPath = "/" + std::string(120, 'p');
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=" + longPath + "\n");
    read_default_path(kLimit);
    EXPECT_EQ(longPath.substr(0, 83), gDefaultPath);
}

TEST_F(RecorderFileName, DefaultPathIsBoundedByTheFileNameLimitWhenSmaller) {
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=/abcdefghij\n");
    read_default_path(6);
    EXPECT_STREQ("/abcd", gDefaultPath);
}

TEST_F(RecorderFileName, CreateDefaultPathMakesNoParents) {
    const std::string nested = "missing/default";
    mEnv.installRuntimeConfig("DVR_DEFAULT_PATH=" + nested + "\n");
    read_default_path(kLimit);
    char path[kLimit] = {};
    EXPECT_EQ(-1, create_default_path(path, kLimit));
    EXPECT_EQ(1u,
              logged(ANDROID_LOG_ERROR, "create_default_path", "Cannot create '" + nested + "'\n"));
    EXPECT_STREQ("", path);
}

TEST_F(RecorderFileName, CreateDefaultPathUsesAnExistingDirectory) {
    ASSERT_EQ(0, mkdir(mEnv.defaultPath().c_str(), 0700));
    read_default_path(kLimit);
    char path[kLimit] = {};
    EXPECT_EQ(0, create_default_path(path, kLimit));
    EXPECT_EQ(mEnv.defaultPath(), path);
}

// ------------------------------------------------------------ storage path

TEST_F(RecorderFileName, ShorterStoragePathKeepsTheTailOfTheLongerOne) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setStoragePath(nullptr));
    EXPECT_EQ("", peer().storagePath());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setStoragePath("abcdefghi"));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setStoragePath("wxyz"));
    EXPECT_EQ("wxyzefghi", peer().storagePath());
}

TEST_F(RecorderFileName, DefaultNamesUseTheStoragePathAsItStandsInTheBuffer) {
    build();
    ASSERT_EQ(0, mkdir("wxyzefghi", 0700));
    mRecorder->setStoragePath("abcdefghi");
    mRecorder->setStoragePath("wxyz");
    peer().applyStagedSettings();
    peer().genDefaultFileName();
    expectDefaultName(peer().nextFileName(), "wxyzefghi", "ts", 60);
}

TEST_F(RecorderFileName, EmptyStoragePathClearsTheWholeBuffer) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setStoragePath(""));
    EXPECT_EQ("", peer().storagePath());
}

TEST_F(RecorderFileName, StoragePathOfTheLimitIsRefused) {
    build();
    const std::string tooLong(kLimit, 'd');
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->setStoragePath(tooLong.c_str()));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "setStoragePath",
                         rec("Given storage path too long: 255 characters\n")));
    EXPECT_EQ(mEnv.defaultPath(), peer().storagePath());
    const std::string longest(kLimit - 1, 'd');
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setStoragePath(longest.c_str()));
    EXPECT_EQ(longest, peer().storagePath());
}

// ------------------------------------------------------------ next file

TEST_F(RecorderFileName, NextFileMakesAnIdleRecorderReady) {
    build();
    EXPECT_FALSE(mRecorder->hasNextFile());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->nextFile("/data/clip1.ts"));
    EXPECT_TRUE(mRecorder->hasNextFile());
    EXPECT_EQ("/data/clip1.ts", peer().nextFileName());
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "nextFile", rec("Switch to state: DVR_STM_READY\n")));
    // Already ready: no second switch.
    EXPECT_EQ(DVR_SUCCESS, mRecorder->nextFile("/data/clip2.ts"));
    EXPECT_EQ("/data/clip2.ts", peer().nextFileName());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "nextFile", rec("Switch to state: DVR_STM_READY\n")));
}

TEST_F(RecorderFileName, NextFileRefusesNullEmptyAndTooLongNames) {
    build();
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->nextFile(nullptr));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "nextFile", rec("Invalid NULL pFileName!\n")));
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->nextFile(""));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "nextFile", rec("Invalid empty file name\n")));
    const std::string tooLong(kLimit, 'n');
    EXPECT_EQ(DVR_INVALID_ARGUMENT, mRecorder->nextFile(tooLong.c_str()));
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "nextFile",
                         rec("Given file name length exceeds 254 (255)\n")));
    EXPECT_FALSE(mRecorder->hasNextFile());
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
}

TEST_F(RecorderFileName, NextFileOfLimitLessOneCharactersIsAccepted) {
    build();
    const std::string longest(kLimit - 1, 'n');
    EXPECT_EQ(DVR_SUCCESS, mRecorder->nextFile(longest.c_str()));
    EXPECT_EQ(longest, peer().nextFileName());
}

TEST_F(RecorderFileName, NextFileIsSetOnlyWhileItDiffersFromTheCurrentFile) {
    build();
    EXPECT_FALSE(peer().isNextFileSet());
    mRecorder->nextFile("/data/a.ts");
    EXPECT_TRUE(peer().isNextFileSet());
    peer().applyNextFile();
    EXPECT_EQ("/data/a.ts", peer().fileName());
    EXPECT_FALSE(peer().isNextFileSet());
    EXPECT_TRUE(mRecorder->hasNextFile());
}

TEST_F(RecorderFileName, SettingAnEmptyNextFileNameIsIgnoredWithAnError) {
    build();
    mRecorder->nextFile("/data/a.ts");
    peer().setNextFileName("");
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "_setNextFileName", rec("Invalid empty file name\n")));
    EXPECT_EQ("/data/a.ts", peer().nextFileName());
}

// ------------------------------------------------------------ pattern naming

TEST_F(RecorderFileName, FileNameFormatSwitchesBetweenIdleAndReady) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("/data/v_%ST_%ET.ts", "%H%M%S"));
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(
        1u, logged(ANDROID_LOG_WARN, "setFileNameFormat", rec("Switch to state: DVR_STM_READY\n")));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat(nullptr, nullptr));
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    EXPECT_EQ(
        1u, logged(ANDROID_LOG_WARN, "setFileNameFormat", rec("Switch to state: DVR_STM_IDLE\n")));
    // No format on an idle recorder: nothing to switch.
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("", "%H"));
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    EXPECT_EQ(
        1u, logged(ANDROID_LOG_WARN, "setFileNameFormat", rec("Switch to state: DVR_STM_IDLE\n")));
}

TEST_F(RecorderFileName, ClearingTheFormatMakesAReadyRecorderIdleEvenWithANextFile) {
    build();
    mRecorder->nextFile("/data/a.ts");
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat(nullptr, nullptr));
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    EXPECT_TRUE(mRecorder->hasNextFile());
}

TEST_F(RecorderFileName, FileNameFormatLeavesOtherStatesAlone) {
    build();
    peer().setState(DVR_STM_RECORDING);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat("/data/%ST.ts", "%H"));
    EXPECT_EQ(DVR_STM_RECORDING, mRecorder->getCurrentState());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->setFileNameFormat(nullptr, nullptr));
    EXPECT_EQ(DVR_STM_RECORDING, mRecorder->getCurrentState());
    peer().setState(DVR_STM_IDLE);
}

// ------------------------------------------------------------ automatic naming

TEST_F(RecorderFileName, AutoNextFileSwitchesReadyAndIdle) {
    build();
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    EXPECT_TRUE(peer().autoNextFile());
    EXPECT_EQ(DVR_STM_READY, mRecorder->getCurrentState());
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    EXPECT_EQ(2u,
              logged(ANDROID_LOG_WARN, "autoNextFile", rec("Switch to state: DVR_STM_READY\n")));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(false));
    EXPECT_FALSE(peer().autoNextFile());
    EXPECT_EQ(DVR_STM_IDLE, mRecorder->getCurrentState());
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "autoNextFile", rec("Switch to state: DVR_STM_IDLE\n")));
}

TEST_F(RecorderFileName, AutoNextFileWhileRecordingNamesTheNextFileAtOnce) {
    build();
    peer().applyStagedSettings();
    peer().setState(DVR_STM_RECORDING);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    EXPECT_EQ(DVR_STM_RECORDING, mRecorder->getCurrentState());
    // No camera to ask a client for: the default name instead.
    EXPECT_EQ(
        1u, logged(ANDROID_LOG_ERROR, "_getNextFileFromUser", rec("Camera device NOT attached\n")));
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "ts", 60);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(false));
    EXPECT_EQ(DVR_STM_RECORDING, mRecorder->getCurrentState());
    peer().setState(DVR_STM_IDLE);
}

TEST_F(RecorderFileName, AutoNextFileLeavesAStoppingRecorderAlone) {
    build();
    peer().setState(DVR_STM_STOPPING);
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(true));
    EXPECT_EQ(DVR_SUCCESS, mRecorder->autoNextFile(false));
    EXPECT_EQ(DVR_STM_STOPPING, mRecorder->getCurrentState());
    EXPECT_TRUE(mCapture.messagesContaining("autoNextFile").empty());
    peer().setState(DVR_STM_IDLE);
}

TEST_F(RecorderFileName, NameFromTheSubscribedClientBecomesTheNextFile) {
    buildWithCamera();
    android::sp<NamingClient> client = subscribeNamingClient("/data/from_client.ts");
    mRecorder->autoNextFile(true);
    EXPECT_EQ(0, peer().getNextFileFromUser());
    EXPECT_EQ("/data/from_client.ts", peer().nextFileName());
    EXPECT_EQ(7, client->mAskedCbkId);
    EXPECT_EQ(mCamera->getID(), client->mAskedIndex);
    EXPECT_EQ(kLimit, client->mAskedLength);
}

TEST_F(RecorderFileName, EmptyNameFromTheClientFallsBackToTheDefaultName) {
    buildWithCamera();
    subscribeNamingClient("");
    mRecorder->autoNextFile(true);
    peer().applyStagedSettings();
    peer().updateFileName();
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "_getNextFileFromUser",
                         rec("File name is empty (or not gotten)!\n")));
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "ts", 60);
}

TEST_F(RecorderFileName, NoNamingClientCountsAsAnEmptyName) {
    buildWithCamera();
    mRecorder->autoNextFile(true);
    EXPECT_EQ(-1, peer().getNextFileFromUser());
    EXPECT_EQ(1u, logged(ANDROID_LOG_ERROR, "_getNextFileFromUser",
                         rec("File name is empty (or not gotten)!\n")));
    EXPECT_FALSE(mRecorder->hasNextFile());
}

TEST_F(RecorderFileName, WithoutAutomaticNamingTheDefaultNameIsUsed) {
    buildWithCamera();
    android::sp<NamingClient> client = subscribeNamingClient("/data/unused.ts");
    peer().applyStagedSettings();
    peer().updateFileName();
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "ts", 60);
    EXPECT_EQ(-1, client->mAskedCbkId);
}

// ------------------------------------------------------------ default names

TEST_F(RecorderFileName, DefaultNameFollowsTheDocumentedPattern) {
    build();
    peer().applyStagedSettings();
    peer().setCurrentOutputFormat(DVR_FILE_FORMAT_AVI);
    peer().setCurrentFileLength(300);
    peer().genDefaultFileName();
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "avi", 300);
}

TEST_F(RecorderFileName, InvalidFormatGivesTheTsExtensionAfterAWarning) {
    build();
    peer().applyStagedSettings();
    peer().setCurrentOutputFormat(-1);
    peer().genDefaultFileName();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_genDefaultFileName",
                         "Invalid file format, default set 'ts'\n"));
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "ts", 60);
}

TEST_F(RecorderFileName, RemovedStorageDirectoryFallsBackToTheRecreatedDefaultPath) {
    build();
    const std::string storage = "storage";
    ASSERT_EQ(0, mkdir(storage.c_str(), 0700));
    ASSERT_EQ(DVR_SUCCESS, mRecorder->setStoragePath(storage.c_str()));
    ASSERT_EQ(0, rmdir(storage.c_str()));
    ASSERT_EQ(0, rmdir(mEnv.defaultPath().c_str()));
    peer().applyStagedSettings();
    mCapture.clear();
    peer().genDefaultFileName();
    EXPECT_EQ(1u, logged(ANDROID_LOG_WARN, "_genDefaultFileName",
                         "Storage path '" + storage + "' gone, use default path '" +
                             mEnv.defaultPath() + "'\n"));
    EXPECT_TRUE(isDirectory(mEnv.defaultPath()));
    EXPECT_EQ(mEnv.defaultPath(), peer().storagePath());
    expectDefaultName(peer().nextFileName(), mEnv.defaultPath(), "ts", 60);
}

TEST_F(RecorderFileName, DefaultNameFormatIsCutAtSixtyThreeCharacters) {
    build();
    // 40 characters of directory leave 23 for "/default_c100_[%ST]_[%E".
    const std::string storage(40, 's');
    ASSERT_EQ(0, mkdir(storage.c_str(), 0700));
    mRecorder->setStoragePath(storage.c_str());
    peer().applyStagedSettings();
    peer().genDefaultFileName();
    const std::string name = peer().nextFileName();
    const std::string head = storage + "/default_c100_[";
    ASSERT_EQ(head.size() + kTimeLength + 5, name.size()) << name;
    EXPECT_EQ(head, name.substr(0, head.size()));
    time_t start = 0;
    EXPECT_TRUE(readTime(name.substr(head.size(), kTimeLength), &start)) << name;
    EXPECT_EQ("]_[%E", name.substr(head.size() + kTimeLength));
}

TEST_F(RecorderFileName, ApplyingTheNextFileHandsItToTheEncoder) {
    build();
    mRecorder->nextFile("/data/next.ts");
    peer().applyNextFile();
    EXPECT_EQ("/data/next.ts", peer().fileName());
}

// ------------------------------------------------------------ aborts

using RecorderFileNameDeathTest = RecorderFileName;

TEST_F(RecorderFileNameDeathTest, DefaultNameWithoutAFileLengthAborts) {
    build();
    EXPECT_DEATH(peer().genDefaultFileName(),
                 "Assertion failed: mCurSettings\\.enc\\.mFileLength > 0, file Recorder\\.cpp, "
                 "line [0-9]+\n?$");
}

TEST_F(RecorderFileNameDeathTest, AskingTheClientWithoutAutomaticNamingAborts) {
    build();
    EXPECT_DEATH(peer().getNextFileFromUser(), "Assertion failed: mbAutoNextFile == true");
}

TEST_F(RecorderFileNameDeathTest, NullOrTooLongNextFileNamesAbort) {
    build();
    EXPECT_DEATH(peer().setNextFileName(nullptr), "Assertion failed: pFileName != NULL");
    const std::string tooLong(kLimit, 'n');
    EXPECT_DEATH(peer().setNextFileName(tooLong.c_str()),
                 "Assertion failed: \\(int\\)file_len < mgDeviceCaps->file_name_length_limit");
}

TEST_F(RecorderFileNameDeathTest, EncoderRefusingTheFileNameAborts) {
    build();
    mRecorder->nextFile("/data/next.ts");
    DVRSimulatorControl::setEncoderResult(kEncoderId, DVRSimEncoderOp::SetFileName, -5);
    EXPECT_DEATH(peer().applyNextFile(), "Assertion failed: ret == 0");
}

TEST_F(RecorderFileNameDeathTest, UncreatableDefaultPathAbortsTheConstructor) {
    mEnv.installShippedConfigWith({{"DVR_DEFAULT_PATH", "no/such/dir"}});
    EXPECT_DEATH(build(), "Cannot create 'no/such/dir'.*Assertion failed: ret == 0");
}
