// recinfo on files recorded by the simulated encoder: one line (or JSON
// object) per file with what a player finds in it, error lines for files it
// cannot read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "CommandResult.h"
#include "EncoderHarness.h"
#include "RecordingReader.h"
#include "RecordingRepair.h"
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

    // The text line recinfo prints for a file that lost no frames, with the
    // duration, presentation times and audio packets the reader found.
    static std::string line(const std::string &path, size_t frames, size_t keyFrames,
                            const std::string &audio) {
        const RecordingInfo info = RecordingReader::read(path);
        const std::string audioText =
            audio == "none" ? audio : audio + ", " + std::to_string(info.audioPackets) + " packets";
        char text[512];
        snprintf(text, sizeof(text),
                 "%s: %.3f s, %zu video frames, %zu keyframes, 0 missing slots, largest gap "
                 "%.1f ms, pts %.3f to %.3f s, audio %s, decodes to end, %lld bytes\n",
                 path.c_str(), info.durationSeconds, frames, keyFrames, 1000.0 / kFps,
                 info.firstPtsSeconds(), info.lastPtsSeconds(), audioText.c_str(), sizeOf(path));
        return text;
    }

    // a.ts with its sixth frame dropped by ffmpeg's packet filter, which
    // keeps every time stamp, as gap.ts.
    std::string dropSixthFrame() {
        recordTwoFiles(DVR_FILE_FORMAT_TS, false, dir.file("a.ts"), dir.file("b.ts"));
        const dvrtest::CommandResult dropped = dvrtest::runCommand(
            "ffmpeg -hide_banner -loglevel error -i " + dir.file("a.ts") +
            " -c copy -bsf:v \"noise=drop=eq(n\\,5)\" -y " + dir.file("gap.ts"));
        EXPECT_EQ(0, dropped.status) << dropped.err;
        return dir.file("gap.ts");
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
    const RecordingInfo info = RecordingReader::read(dropSixthFrame());
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

TEST_F(Recinfo, DirectoryStandsForItsRecordingsInRecordingOrder) {
    // z.ts is recorded first, m.ts second: not the order of their names.
    recordTwoFiles(DVR_FILE_FORMAT_TS, true, dir.file("z.ts"), dir.file("m.ts"));
    dir.write("notes.txt", "not a recording");
    dvrtest::CommandResult result;
    EXPECT_EQ(line(dir.file("z.ts"), kFps, 1, "aac 16000 Hz 1 ch") +
                  line(dir.file("m.ts"), 3, 1, "aac 16000 Hz 1 ch"),
              run(dir.path(), &result));
    EXPECT_EQ(0, result.status);
}

TEST_F(Recinfo, FileThatLostFramesIsMarked) {
    const std::string gap = dropSixthFrame();
    const RecordingInfo info = RecordingReader::read(gap);
    char expected[512];
    snprintf(expected, sizeof(expected),
             "%s: %.3f s, %d video frames, 1 keyframes, 1 missing slots, largest gap 200.0 ms, "
             "pts %.3f to %.3f s, audio none, decodes to end, %lld bytes, LOST FRAMES\n",
             gap.c_str(), info.durationSeconds, kFps - 1, info.firstPtsSeconds(),
             info.lastPtsSeconds(), sizeOf(gap));
    dvrtest::CommandResult result;
    EXPECT_EQ(expected, run(gap, &result));
    EXPECT_EQ(0, result.status);
    const nlohmann::json summary = nlohmann::json::parse(run("--json " + gap, &result));
    ASSERT_EQ(1u, summary.size());
    EXPECT_EQ(1, summary[0]["missingSlots"]);
    EXPECT_DOUBLE_EQ(200.0, summary[0]["largestGapMs"].get<double>());
    EXPECT_EQ(kFps - 1, summary[0]["videoFrames"]);
    EXPECT_EQ(true, summary[0]["decodedToEnd"]);
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
    const RecordingInfo info = RecordingReader::read(dir.file("a.ts"));
    EXPECT_EQ(0, first["missingSlots"]);
    EXPECT_DOUBLE_EQ(1000.0 / kFps, first["largestGapMs"].get<double>());
    EXPECT_DOUBLE_EQ(info.firstPtsSeconds(), first["firstPtsSeconds"].get<double>());
    EXPECT_DOUBLE_EQ(info.lastPtsSeconds(), first["lastPtsSeconds"].get<double>());
    EXPECT_EQ(info.audioPackets, first["audio"]["packets"]);
    EXPECT_EQ(true, first["decodedToEnd"]);
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
    EXPECT_NE(std::string::npos, run("-h", &result).find("Usage: recinfo [--json] FILE|DIR..."));
    EXPECT_EQ(0, result.status);
}

TEST_F(Recinfo, VersionIsOneLineWithTheProjectVersion) {
    dvrtest::CommandResult result;
    const std::string out = run("--version", &result);
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(0u, out.rfind("recinfo (dvr) ", 0)) << out;
    EXPECT_EQ(1, std::count(out.begin(), out.end(), '\n')) << out;
}

}  // namespace

namespace {

// An AVI whose writer (ffmpeg, in real time, writing every packet out at
// once) was killed after two seconds: no index, no frame count in its header.
std::string killedAvi(const dvrtest::TempDir &dir) {
    const std::string path = dir.file("killed.avi");
    const dvrtest::CommandResult killed = dvrtest::runCommand(
        "ffmpeg -hide_banner -loglevel error -re -f lavfi -i testsrc2=size=320x240:rate=10 "
        "-c:v libx264 -preset ultrafast -g 10 -flush_packets 1 -y " +
        path + " & pid=$!; sleep 2; kill -9 $pid; wait $pid; true");
    EXPECT_EQ(0, killed.status) << killed.err;
    return path;
}

}  // namespace

TEST_F(Recinfo, RepairRebuildsAnAviAKilledWriterLeftWithoutIndex) {
    const std::string path = killedAvi(dir);
    const RecordingInfo before = RecordingReader::read(path);
    ASSERT_TRUE(before.opened) << before.error;
    ASSERT_GT(before.videoFrames(), 0u);
    EXPECT_EQ(0, before.declaredVideoFrames);
    EXPECT_TRUE(RecordingRepair::needsRepair(path));

    dvrtest::CommandResult result;
    const std::string out = run("repair " + path, &result);
    EXPECT_EQ(0, result.status) << result.err;
    const RecordingInfo after = RecordingReader::verify(path);
    ASSERT_TRUE(after.opened) << after.error;
    char expected[512];
    snprintf(expected, sizeof(expected), "%s: repaired: %zu video frames, %.3f s\n", path.c_str(),
             after.videoFrames(), after.durationSeconds);
    EXPECT_EQ(expected, out);
    // Every frame that was on disk is kept, and now counted and timed.
    EXPECT_EQ(before.videoFrames(), after.videoFrames());
    EXPECT_EQ(static_cast<int64_t>(after.videoFrames()), after.declaredVideoFrames);
    EXPECT_NEAR(static_cast<double>(after.videoFrames()) / kFps, after.durationSeconds, 0.1);
    EXPECT_TRUE(after.decodedToEnd);
    EXPECT_FALSE(RecordingRepair::needsRepair(path));
    EXPECT_EQ(path + ": complete, left as it is\n", run("repair " + path, &result));
    EXPECT_EQ(0, result.status);
}

TEST_F(Recinfo, RepairRefusesAFileAnotherProcessHasOpen) {
    const std::string path = killedAvi(dir);
    // This process holds it, as a writer would.
    const int holder = open(path.c_str(), O_RDONLY);
    ASSERT_GE(holder, 0);
    dvrtest::CommandResult result;
    EXPECT_EQ("", run("repair " + path, &result));
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("recinfo: " + path + ": open in another process; not repaired\n", result.err);
    EXPECT_TRUE(RecordingRepair::needsRepair(path));
    close(holder);
}

TEST_F(Recinfo, RepairWithoutFilesIsAUsageError) {
    dvrtest::CommandResult result;
    run("repair", &result);
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("recinfo: repair takes files and no --json\nTry 'recinfo --help'.\n", result.err);
}

namespace {

// ffprobe's count of the packets of a stream ("v:0", "a:0") in path.
long long ffprobePackets(const std::string &path, const std::string &stream) {
    const dvrtest::CommandResult probe =
        dvrtest::runCommand("ffprobe -v error -count_packets -select_streams " + stream +
                            " -show_entries stream=nb_read_packets -of csv=p=0 " + path);
    EXPECT_EQ(0, probe.status) << probe.err;
    return std::atoll(probe.out.c_str());
}

}  // namespace

TEST_F(Recinfo, FiguresOfANormalThreeFileRecordingMatchFfprobe) {
    for (const auto &[format, extension] :
         {std::pair<int, std::string>{DVR_FILE_FORMAT_TS, ".ts"}, {DVR_FILE_FORMAT_AVI, ".avi"}}) {
        const std::vector<std::string> names{dir.file("one" + extension),
                                             dir.file("two" + extension),
                                             dir.file("three" + extension)};
        {
            EncoderHarness harness;
            harness.setNextNames({names[1], names[2]});
            const size_t frames = 2 * kFps + 5;
            harness.setFrameLimit(frames);
            ASSERT_EQ(0, harness.record(EncoderHarness::settings(format, kFps, 1, true), names[0]));
            ASSERT_TRUE(harness.waitFor("pushedVideo", frames));
            ASSERT_EQ(0, harness.stop());
        }
        dvrtest::CommandResult result;
        const nlohmann::json summary = nlohmann::json::parse(
            run("--json " + names[0] + " " + names[1] + " " + names[2], &result));
        ASSERT_EQ(0, result.status) << result.err;
        ASSERT_EQ(3u, summary.size());
        for (size_t index = 0; index < names.size(); ++index) {
            const nlohmann::json &file = summary[index];
            EXPECT_EQ(ffprobePackets(names[index], "v:0"), file["videoFrames"].get<long long>())
                << names[index];
            EXPECT_EQ(ffprobePackets(names[index], "a:0"),
                      file["audio"]["packets"].get<long long>())
                << names[index];
            EXPECT_EQ(0, file["missingSlots"]) << names[index];
            EXPECT_EQ(true, file["decodedToEnd"]) << names[index];
        }
        EXPECT_EQ(kFps, summary[0]["videoFrames"]);
        EXPECT_EQ(kFps, summary[1]["videoFrames"]);
        EXPECT_EQ(5, summary[2]["videoFrames"]);
    }
}
