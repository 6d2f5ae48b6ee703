// scripts/demo as a new user runs it: from a fresh clone at an awkward path,
// in a directory of their own.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "CommandResult.h"
#include "RecordingReader.h"
#include "TempDir.h"

namespace {

constexpr size_t kCheckoutPathLength = 120;
constexpr const char *kDirectoryLine =
    "The recordings, the snapshot, the notifications, the catalog and the server's and keeper's "
    "logs are in ";
constexpr const char *kOrderHeading = "== files in recording order";

std::string shellQuoted(const std::string &text) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

std::set<std::string> entriesOf(const std::string &directory) {
    std::set<std::string> names;
    if (DIR *dir = opendir(directory.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.insert(name);
            }
        }
        closedir(dir);
    }
    return names;
}

bool exists(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

// The files listed under the recording-order heading ("1. PATH").
std::vector<std::string> listedFiles(const std::vector<std::string> &lines) {
    std::vector<std::string> files;
    auto line = std::find(lines.begin(), lines.end(), kOrderHeading);
    for (line = line == lines.end() ? line : line + 1; line != lines.end(); ++line) {
        const std::string prefix = std::to_string(files.size() + 1) + ". ";
        if (line->compare(0, prefix.size(), prefix) != 0) {
            break;
        }
        files.push_back(line->substr(prefix.size()));
    }
    return files;
}

TEST(MainJob, RunsToItsEndFromACloneUnderA120CharacterPathAndItsFilesAreWhereItSays) {
    if (!exists(std::string(DVR_SOURCE_DIR) + "/.git")) {
        GTEST_SKIP() << DVR_SOURCE_DIR << " is not a git checkout to clone";
    }
    dvrtest::TempDir dir;
    // A space, the pattern letters S, T and E and a "%" in the checkout's path.
    std::string checkout = dir.file("Checkout of STEvE's 100% dvr ");
    checkout.append(
        kCheckoutPathLength > checkout.size() ? kCheckoutPathLength - checkout.size() : 0, 'x');
    ASSERT_GE(checkout.size(), kCheckoutPathLength);
    const dvrtest::CommandResult clone = dvrtest::runCommand(
        "git clone --quiet " + shellQuoted(DVR_SOURCE_DIR) + " " + shellQuoted(checkout));
    ASSERT_EQ(0, clone.status) << clone.err;
    // The caller's directory, with something of the caller's in it.
    const std::string caller = dir.file("caller");
    ASSERT_EQ(0, mkdir(caller.c_str(), 0755));
    ASSERT_EQ(0, mkdir((caller + "/recordings").c_str(), 0755));
    dir.write("caller/recordings/keep.txt", "the caller's");

    const dvrtest::CommandResult demo = dvrtest::runCommand(
        "cd " + shellQuoted(caller) + " && " + shellQuoted(checkout + "/scripts/demo") +
        " --no-build --build-dir " + shellQuoted(DVR_BINARY_DIR) + " --seconds 3");
    ASSERT_EQ(0, demo.status) << demo.out << demo.err;
    const std::vector<std::string> lines = dvrtest::linesOf(demo.out);
    ASSERT_FALSE(lines.empty());
    ASSERT_EQ(0u, lines.back().find(kDirectoryLine)) << demo.out;
    const std::string out = lines.back().substr(strlen(kDirectoryLine));
    EXPECT_EQ(0u, out.find("/tmp/dvrdemo.")) << out;

    // Three files a channel, all in that directory, listed in the order they
    // started (their names begin with channel and start time).
    const std::vector<std::string> files = listedFiles(lines);
    ASSERT_EQ(6u, files.size()) << demo.out;
    std::set<std::string> recordings;
    for (const std::string &name : entriesOf(out)) {
        if (name.size() > 3 && name.compare(name.size() - 3, 3, ".ts") == 0) {
            recordings.insert(out + "/" + name);
        }
    }
    EXPECT_EQ(recordings, std::set<std::string>(files.begin(), files.end()));
    int perChannel[2] = {0, 0};
    std::string previousStart;
    for (const std::string &file : files) {
        const std::string name = file.substr(out.size() + 1);
        ASSERT_EQ('c', name[0]) << name;
        ++perChannel[name[1] == '1' ? 1 : 0];
        const std::string start = name.substr(3, 15);  // YYYYmmdd-HHMMSS
        EXPECT_LE(previousStart, start) << name;
        previousStart = start;
        const dvrspace::RecordingInfo info = dvrspace::RecordingReader::read(file);
        ASSERT_TRUE(info.opened) << file << ": " << info.error;
        EXPECT_GT(info.videoFrames(), 0u) << file;
        EXPECT_TRUE(info.hasAudio) << file;
    }
    EXPECT_EQ(3, perChannel[0]);
    EXPECT_EQ(3, perChannel[1]);
    // The server's log is kept, the service's private world is gone.
    std::ifstream log(out + "/server.log");
    std::stringstream logText;
    logText << log.rdbuf();
    EXPECT_NE(std::string::npos, logText.str().find("] Serving 'dvr' with up to")) << out;
    EXPECT_TRUE(exists(out + "/snapshot_c0.png"));
    EXPECT_TRUE(exists(out + "/notifications.log"));
    // The keeper catalogued the six files and found its health good.
    EXPECT_TRUE(exists(out + "/catalog.db"));
    EXPECT_TRUE(exists(out + "/keeper.log"));
    EXPECT_NE(std::string::npos, demo.out.find("\nchannel 100: 3 files, ")) << demo.out;
    EXPECT_NE(std::string::npos, demo.out.find("\nchannel 101: 3 files, ")) << demo.out;
    EXPECT_NE(std::string::npos, demo.out.find("\nhealth: 0\n")) << demo.out;
    // The web console ran on a loopback port and printed its URL.
    EXPECT_NE(std::string::npos,
              demo.out.find("\n== the web console, open while the demo runs: http://127.0.0.1:"))
        << demo.out;
    EXPECT_TRUE(exists(out + "/web.log"));
    EXPECT_FALSE(exists(out + "/run"));

    // Nothing written into the clone, nothing of the caller's touched.
    const dvrtest::CommandResult status =
        dvrtest::runCommand("git -C " + shellQuoted(checkout) + " status --porcelain --ignored");
    EXPECT_EQ(0, status.status);
    EXPECT_EQ("", status.out);
    EXPECT_EQ(std::set<std::string>{"recordings"}, entriesOf(caller));
    EXPECT_EQ(std::set<std::string>{"keep.txt"}, entriesOf(caller + "/recordings"));

    dvrtest::runCommand("rm -rf " + shellQuoted(out));
}

}  // namespace
