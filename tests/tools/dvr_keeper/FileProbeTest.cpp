// The catalog's figures read from the packets alone match dvr::recinfo's
// reader, and the check of a file's last group of pictures tells a whole
// file from one whose end is damaged.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "CommandResult.h"
#include "FileProbe.h"
#include "RecordingReader.h"
#include "TempDir.h"

namespace {

using dvrkeeper::FileProbe;
using dvrkeeper::Recording;
using dvrspace::RecordingInfo;
using dvrspace::RecordingReader;

// Two seconds of 25 fps video with key pictures every 10 and AAC audio, of
// which the encoder never sees pictures 20 to 24: 45 pictures, 5 slots
// missing in a transport stream, the largest gap 6 frame periods (240 ms).
std::string makeRecording(const dvrtest::TempDir &dir, const std::string &name) {
    const std::string path = dir.file(name);
    const dvrtest::CommandResult made = dvrtest::runCommand(
        "ffmpeg -loglevel error -f lavfi -i testsrc=size=320x240:rate=25 -f lavfi"
        " -i sine=frequency=440:sample_rate=16000 -t 2 -vf \"select='not(between(n,20,24))'\""
        " -fps_mode passthrough -c:v libx264 -preset ultrafast -g 10 -c:a aac -y " +
        path);
    EXPECT_EQ(0, made.status) << made.err;
    return path;
}

Recording probed(const std::string &path, FileProbe::Depth depth) {
    Recording recording;
    recording.path = path;
    std::string error;
    EXPECT_TRUE(FileProbe::fill(recording, depth, &error)) << path << ": " << error;
    return recording;
}

void expectTheFiguresOfTheFullReader(const std::string &path, const std::string &container,
                                     int64_t missingSlots) {
    const RecordingInfo full = RecordingReader::read(path);
    ASSERT_TRUE(full.opened) << full.error;
    const Recording scanned = probed(path, FileProbe::Depth::kPackets);
    EXPECT_EQ(container, scanned.container);
    EXPECT_EQ(full.container, scanned.container);
    EXPECT_EQ(45, scanned.frames);
    EXPECT_EQ(static_cast<int64_t>(full.videoFrames()), scanned.frames);
    EXPECT_EQ(5, scanned.keyFrames);
    EXPECT_EQ(static_cast<int64_t>(full.keyFrameCount()), scanned.keyFrames);
    EXPECT_EQ(missingSlots, scanned.missingSlots);
    EXPECT_EQ(full.missingSlots(), scanned.missingSlots);
    EXPECT_DOUBLE_EQ(240.0, scanned.largestGapMs);
    EXPECT_DOUBLE_EQ(full.largestGapMs(), scanned.largestGapMs);
    EXPECT_TRUE(scanned.hasAudio);
    EXPECT_EQ(full.sizeBytes, scanned.bytes);
    EXPECT_NEAR(full.durationSeconds, scanned.durationSeconds, 0.1);
    // Reading the packets does not say whether the pictures decode.
    EXPECT_FALSE(scanned.decodedToEnd.has_value());
}

TEST(KeeperFileProbe, FiguresFromThePacketsOfATransportStreamMatchTheFullReader) {
    dvrtest::TempDir dir;
    expectTheFiguresOfTheFullReader(makeRecording(dir, "a.ts"), "mpegts", 5);
}

TEST(KeeperFileProbe, FiguresFromThePacketsOfAnAviFileMatchTheFullReader) {
    dvrtest::TempDir dir;
    // FFmpeg's AVI muxer leaves two more slots empty behind the gap.
    expectTheFiguresOfTheFullReader(makeRecording(dir, "a.avi"), "avi", 7);
}

TEST(KeeperFileProbe, WholeFileDecodesToItsEndAtEveryDepthThatDecodes) {
    dvrtest::TempDir dir;
    const std::string path = makeRecording(dir, "a.ts");
    EXPECT_EQ(std::optional<bool>(true), FileProbe::decodesToEnd(path));
    EXPECT_EQ(std::optional<bool>(true), probed(path, FileProbe::Depth::kLastGroup).decodedToEnd);
    EXPECT_EQ(std::optional<bool>(true),
              probed(path, FileProbe::Depth::kEveryPicture).decodedToEnd);
}

TEST(KeeperFileProbe, FileWhoseLastPicturesAreDamagedDoesNotDecodeToItsEnd) {
    dvrtest::TempDir dir;
    const std::string path = makeRecording(dir, "a.ts");
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    // The pictures' data in the last tenth of the file overwritten, the
    // transport stream's packet headers (every 188 bytes) left alone.
    std::FILE *file = std::fopen(path.c_str(), "r+b");
    ASSERT_NE(nullptr, file);
    const long from = (status.st_size * 9 / 10) / 188 * 188;
    for (long packet = from; packet + 188 <= status.st_size; packet += 188) {
        std::fseek(file, packet + 20, SEEK_SET);
        const std::string noise(168, '\x5a');
        std::fwrite(noise.data(), 1, noise.size(), file);
    }
    std::fclose(file);
    EXPECT_EQ(std::optional<bool>(false), FileProbe::decodesToEnd(path));
    // The figures are read all the same.
    EXPECT_GT(probed(path, FileProbe::Depth::kLastGroup).frames, 0);
}

TEST(KeeperFileProbe, FileThatIsNoRecordingGivesTheReasonAndItsSize) {
    dvrtest::TempDir dir;
    const std::string path = dir.write("text.ts", "not a recording\n");
    Recording recording;
    recording.path = path;
    std::string error;
    EXPECT_FALSE(FileProbe::fill(recording, FileProbe::Depth::kLastGroup, &error));
    EXPECT_EQ(16, recording.bytes);
    EXPECT_EQ(0u, error.rfind("cannot open: ", 0)) << error;
    EXPECT_EQ(std::nullopt, FileProbe::decodesToEnd(path));
    EXPECT_EQ(std::nullopt, FileProbe::decodesToEnd(dir.file("gone.ts")));
}

}  // namespace
