// recinfo on files recorded by the simulated encoder: one line (or JSON
// object) per file with what a player finds in it, error lines for files it
// cannot read.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "CommandResult.h"
#include "EncoderHarness.h"
#include "RecordingReader.h"
#include "SimulatorFixture.h"
#include "TempDir.h"

using namespace dvrspace;

namespace {

constexpr int kFps = 10;

class Recinfo : public SimulatorFixture {
protected:
    // Records one complete one-second file (kFps frames) and stops three
    // frames into the second, which is named second.
    void recordTwoFiles(int format, bool audio, const std::string &first,
                        const std::string &second) {
        EncoderHarness harness;
        harness.setNextNames({second});
        const size_t frames = kFps + 3;
        harness.setFrameLimit(frames);
        ASSERT_EQ(0, harness.record(EncoderHarness::settings(format, kFps, 1, audio), first));
        ASSERT_TRUE(harness.waitFor("pushedVideo", frames));
        ASSERT_EQ(0, harness.stop());
    }

    static std::string run(const std::string &arguments, dvrtest::CommandResult *result) {
        *result = dvrtest::runCommand(std::string(RECINFO_TOOL) + " " + arguments);
        return result->out;
    }

    static long long sizeOf(const std::string &path) {
        struct stat fileStat {};
        EXPECT_EQ(0, stat(path.c_str(), &fileStat)) << path;
        return static_cast<long long>(fileStat.st_size);
    }

    // The text line recinfo prints, with the duration the reader found.
    static std::string line(const std::string &path, size_t frames, size_t keyFrames,
                            const std::string &audio) {
        char text[512];
        snprintf(text, sizeof(text),
                 "%s: %.3f s, %zu video frames, %zu keyframes, audio %s, %lld bytes\n",
                 path.c_str(), RecordingReader::read(path).durationSeconds, frames, keyFrames,
                 audio.c_str(), sizeOf(path));
        return text;
    }

    dvrtest::TempDir dir;
};

TEST_F(Recinfo, ReaderCountsFramesKeyFramesAndAudioOfATransportStream) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, true, dir.file("a.ts"), dir.file("b.ts"));
    const RecordingInfo info = RecordingReader::read(dir.file("a.ts"));
    ASSERT_TRUE(info.opened) << info.error;
    EXPECT_EQ("mpegts", info.container);
    EXPECT_EQ(static_cast<size_t>(kFps), info.videoFrames());
    EXPECT_EQ(1u, info.keyFrameCount());
    EXPECT_TRUE(info.keyFrames.front());
    EXPECT_TRUE(info.hasAudio);
    EXPECT_EQ("aac", info.audioCodec);
    EXPECT_EQ(16000, info.sampleRate);
    EXPECT_EQ(1, info.channels);
    EXPECT_GT(info.audioPackets, 0);
    EXPECT_NEAR(1.0, info.durationSeconds, 0.1);
    EXPECT_EQ(sizeOf(dir.file("a.ts")), info.sizeBytes);
    EXPECT_EQ(3u, RecordingReader::read(dir.file("b.ts")).videoFrames());
}

TEST_F(Recinfo, CompleteRecordingHasNoMissingSlotsAndDecodesToItsEnd) {
    for (const auto &[format, name] : {std::pair<int, const char *>{DVR_FILE_FORMAT_TS, "a.ts"},
                                       {DVR_FILE_FORMAT_AVI, "a.avi"}}) {
        recordTwoFiles(format, true, dir.file(name), dir.file(std::string("b") + name));
        const RecordingInfo info = RecordingReader::verify(dir.file(name));
        ASSERT_TRUE(info.opened) << info.error;
        EXPECT_EQ(static_cast<size_t>(kFps), info.videoFrames()) << name;
        EXPECT_EQ(0, info.missingSlots()) << name;
        EXPECT_DOUBLE_EQ(1000.0 / kFps, info.largestGapMs()) << name;
        EXPECT_NEAR((kFps - 1) / static_cast<double>(kFps),
                    info.lastPtsSeconds() - info.firstPtsSeconds(), 1e-9)
            << name;
        EXPECT_TRUE(info.decodedToEnd) << name;
        EXPECT_FALSE(RecordingReader::read(dir.file(name)).decodedToEnd) << name;
    }
}

TEST_F(Recinfo, FrameDroppedFromAFileIsOneMissingSlot) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, false, dir.file("a.ts"), dir.file("b.ts"));
    // ffmpeg's own packet filter drops the sixth frame, keeping every time stamp.
    const dvrtest::CommandResult dropped =
        dvrtest::runCommand("ffmpeg -hide_banner -loglevel error -i " + dir.file("a.ts") +
                            " -c copy -bsf:v \"noise=drop=eq(n\\,5)\" -y " + dir.file("gap.ts"));
    ASSERT_EQ(0, dropped.status) << dropped.err;
    const RecordingInfo info = RecordingReader::read(dir.file("gap.ts"));
    ASSERT_TRUE(info.opened) << info.error;
    EXPECT_EQ(static_cast<size_t>(kFps - 1), info.videoFrames());
    EXPECT_EQ(1, info.missingSlots());
    EXPECT_DOUBLE_EQ(2000.0 / kFps, info.largestGapMs());
}

TEST_F(Recinfo, TextLineGivesDurationFramesKeyFramesAudioAndSize) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, true, dir.file("a.ts"), dir.file("b.ts"));
    dvrtest::CommandResult result;
    EXPECT_EQ(line(dir.file("a.ts"), kFps, 1, "aac 16000 Hz 1 ch"), run(dir.file("a.ts"), &result));
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
}

TEST_F(Recinfo, AviWithoutAudioSaysAudioNone) {
    recordTwoFiles(DVR_FILE_FORMAT_AVI, false, dir.file("a.avi"), dir.file("b.avi"));
    dvrtest::CommandResult result;
    const std::string out = run(dir.file("a.avi"), &result);
    EXPECT_EQ(line(dir.file("a.avi"), kFps, 1, "none"), out);
    EXPECT_NE(std::string::npos, out.find(": 1.000 s,")) << out;
    EXPECT_EQ(0, result.status);
}

TEST_F(Recinfo, DirectoryStandsForItsRecordingsSortedByName) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, true, dir.file("z.ts"), dir.file("m.ts"));
    dir.write("notes.txt", "not a recording");
    dvrtest::CommandResult result;
    EXPECT_EQ(line(dir.file("m.ts"), 3, 1, "aac 16000 Hz 1 ch") +
                  line(dir.file("z.ts"), kFps, 1, "aac 16000 Hz 1 ch"),
              run(dir.path(), &result));
    EXPECT_EQ(0, result.status);
}

TEST_F(Recinfo, UnreadableFileGivesAnErrorLineAndStatusOneAfterTheOthers) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, false, dir.file("a.ts"), dir.file("b.ts"));
    const std::string broken = dir.write("broken.ts", "this is no transport stream");
    const std::string missing = dir.file("missing.ts");
    dvrtest::CommandResult result;
    const std::string out = run(broken + " " + missing + " " + dir.file("a.ts"), &result);
    EXPECT_EQ(line(dir.file("a.ts"), kFps, 1, "none"), out);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("recinfo: " + broken + ": cannot open: Invalid data found when processing input\n" +
                  "recinfo: " + missing + ": cannot stat: No such file or directory\n",
              result.err);
}

TEST_F(Recinfo, JsonListsEveryFileWithItsFiguresOrItsError) {
    recordTwoFiles(DVR_FILE_FORMAT_TS, true, dir.file("a.ts"), dir.file("b.ts"));
    const std::string broken = dir.write("c.ts", "garbage");
    dvrtest::CommandResult result;
    const nlohmann::json summary = nlohmann::json::parse(run("--json " + dir.path(), &result));
    EXPECT_EQ(1, result.status);
    ASSERT_EQ(3u, summary.size());
    const nlohmann::json &first = summary[0];
    EXPECT_EQ(dir.file("a.ts"), first["name"]);
    EXPECT_EQ(kFps, first["videoFrames"]);
    EXPECT_EQ(1, first["keyFrames"]);
    EXPECT_EQ("aac", first["audio"]["codec"]);
    EXPECT_EQ(16000, first["audio"]["sampleRate"]);
    EXPECT_EQ(1, first["audio"]["channels"]);
    EXPECT_EQ(sizeOf(dir.file("a.ts")), first["sizeBytes"]);
    EXPECT_NEAR(1.0, first["durationSeconds"].get<double>(), 0.1);
    EXPECT_EQ(3, summary[1]["videoFrames"]);
    EXPECT_EQ(broken, summary[2]["name"]);
    EXPECT_EQ("cannot open: Invalid data found when processing input", summary[2]["error"]);
    EXPECT_FALSE(summary[2].contains("videoFrames"));
}

TEST_F(Recinfo, NoFileOrAnUnknownOptionIsAUsageError) {
    dvrtest::CommandResult result;
    EXPECT_EQ("", run("", &result));
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("recinfo: no file or directory given\nTry 'recinfo --help'.\n", result.err);
    run("--frames " + dir.path(), &result);
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("recinfo: unknown option '--frames'\nTry 'recinfo --help'.\n", result.err);
    EXPECT_NE(std::string::npos,
              run("--help", &result).find("Usage: recinfo [--json] FILE|DIR..."));
    EXPECT_EQ(0, result.status);
}

}  // namespace
