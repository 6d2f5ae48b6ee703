// The state directory's reading rule and its writers, on real files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "SvcStateDir.h"
#include "TempDir.h"

namespace {

std::string readState(const SvcStateDir &dir, const std::string &service) {
    std::string state = "unset";
    std::string error;
    EXPECT_TRUE(dir.read(service, &state, &error)) << error;
    return state;
}

}  // namespace

TEST(SvcStateDir, ServiceWithoutFileReadsRunning) {
    dvrtest::TempDir temp;
    EXPECT_EQ("running", readState(SvcStateDir(temp.path()), "enc_service"));
}

TEST(SvcStateDir, ServiceWithoutFileReadsTheDefaultFileWhenPresent) {
    dvrtest::TempDir temp;
    temp.write(".default", "stopped\n");
    const SvcStateDir dir(temp.path());
    EXPECT_EQ("stopped", readState(dir, "enc_service"));
    temp.write("enc_service", "running\n");
    EXPECT_EQ("running", readState(dir, "enc_service"));
}

TEST(SvcStateDir, MissingDirectoryReadsRunning) {
    dvrtest::TempDir temp;
    EXPECT_EQ("running", readState(SvcStateDir(temp.file("not/made/yet")), "cam"));
}

TEST(SvcStateDir, TrailingWhiteSpaceIsNotPartOfTheState) {
    dvrtest::TempDir temp;
    temp.write("cam", "restarting \r\n\t\n");
    EXPECT_EQ("restarting", readState(SvcStateDir(temp.path()), "cam"));
}

TEST(SvcStateDir, EmptyFileReadsAsEmptyState) {
    dvrtest::TempDir temp;
    temp.write("cam", "");
    EXPECT_EQ("", readState(SvcStateDir(temp.path()), "cam"));
}

TEST(SvcStateDir, MalformedFilesFailWithAReason) {
    dvrtest::TempDir temp;
    const SvcStateDir dir(temp.path());
    temp.write("blank", "two words\n");
    temp.write("long", std::string(40, 'x'));
    temp.write("binary", std::string("run\0ning", 8));
    mkdir(temp.file("folder").c_str(), 0755);
    for (const char *service : {"blank", "long", "binary"}) {
        std::string state = "kept";
        std::string error;
        EXPECT_FALSE(dir.read(service, &state, &error)) << service;
        EXPECT_EQ("malformed state in " + temp.file(service) +
                      " (1 to 31 printable characters without blanks expected)",
                  error);
        EXPECT_EQ("kept", state);
    }
    std::string state;
    std::string error;
    EXPECT_FALSE(dir.read("folder", &state, &error));
    EXPECT_EQ("not a regular file: " + temp.file("folder"), error);
}

TEST(SvcStateDir, BadServiceNamesAreRefused) {
    dvrtest::TempDir temp;
    const SvcStateDir dir(temp.path());
    for (const std::string &name :
         std::vector<std::string>{"", ".default", "../escape", "a/b", "tab\there"}) {
        std::string state;
        std::string error;
        EXPECT_FALSE(dir.read(name, &state, &error)) << name;
        EXPECT_EQ("bad service name '" + name + "'", error);
        EXPECT_FALSE(dir.write(name, "running", &error)) << name;
    }
    EXPECT_FALSE(SvcStateDir::isValidName(std::string(256, 'a')));
    EXPECT_TRUE(SvcStateDir::isValidName(std::string(255, 'a')));
}

TEST(SvcStateDir, WriteReplacesTheFileAndCreatesTheDirectory) {
    dvrtest::TempDir temp;
    const SvcStateDir dir(temp.file("a/b"));
    std::string error;
    ASSERT_TRUE(dir.write("enc", "stopped", &error)) << error;
    EXPECT_EQ("stopped", readState(dir, "enc"));
    ASSERT_TRUE(dir.write("enc", "running", &error)) << error;
    EXPECT_EQ("running", readState(dir, "enc"));
    std::vector<std::string> problems;
    const auto states = dir.list(&problems);
    EXPECT_TRUE(problems.empty());
    EXPECT_EQ((std::map<std::string, std::string>{{"enc", "running"}}), states);
}

TEST(SvcStateDir, BadStatesAreNotWritten) {
    dvrtest::TempDir temp;
    const SvcStateDir dir(temp.path());
    for (const std::string &state :
         std::vector<std::string>{"", "two words", std::string(32, 'x'), "new\nline"}) {
        std::string error;
        EXPECT_FALSE(dir.write("enc", state, &error)) << state;
        EXPECT_EQ(
            "bad state '" + state + "' (1 to 31 printable characters without blanks expected)",
            error);
    }
    EXPECT_EQ("running", readState(dir, "enc"));
    EXPECT_TRUE(dir.list(nullptr).empty());
}

TEST(SvcStateDir, RemoveFallsBackToTheDefault) {
    dvrtest::TempDir temp;
    const SvcStateDir dir(temp.path());
    std::string error;
    ASSERT_TRUE(dir.write("enc", "stopped", &error));
    ASSERT_TRUE(dir.writeDefault("restarting", &error));
    EXPECT_EQ("stopped", readState(dir, "enc"));
    ASSERT_TRUE(dir.remove("enc", &error));
    EXPECT_EQ("restarting", readState(dir, "enc"));
    ASSERT_TRUE(dir.removeDefault(&error));
    EXPECT_EQ("running", readState(dir, "enc"));
    EXPECT_TRUE(dir.remove("enc", &error)) << "removing a missing file succeeds";
}

TEST(SvcStateDir, ListSkipsHiddenFilesAndNamesUnreadableOnes) {
    dvrtest::TempDir temp;
    temp.write("audio", "running\n");
    temp.write("cam", "stopped\n");
    temp.write("bad", "not a state");
    temp.write(".default", "stopped\n");
    temp.write(".tmp.1.2", "half");
    std::vector<std::string> problems;
    const auto states = SvcStateDir(temp.path()).list(&problems);
    EXPECT_EQ((std::map<std::string, std::string>{{"audio", "running"}, {"cam", "stopped"}}),
              states);
    ASSERT_EQ(1u, problems.size());
    EXPECT_EQ("malformed state in " + temp.file("bad") +
                  " (1 to 31 printable characters without blanks expected)",
              problems[0]);
}
