// The keeper's budgets: storing one finished recording with its probe
// (<= 20 ms) and listing 100 000 rows (<= 200 ms), each next to the obvious
// alternative run on the same data: ffprobe counting the file's packets, and
// the sqlite3 shell printing the same rows.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "Catalog.h"
#include "FileProbe.h"
#include "KeeperCommands.h"
#include "RecordingReader.h"

using dvrkeeper::Catalog;
using dvrkeeper::Recording;

namespace {

constexpr int kListRows = 100000;
constexpr int64_t k1080p = 1080;

// A scratch directory with 10-second and one-minute 720p30 H.264 MPEG-TS
// files (x264 ultrafast, 4 Mbps, AAC) and a one-minute 1080p30 one at a
// constant 4 Mbps (the service's default channel), the shape of a channel's
// files, and a catalog of kListRows rows; made once per run.
struct Scratch {
    std::string dir;
    std::string listCatalog;

    // Argument of the probe benchmarks: the file's seconds, 1080 for the
    // 1080p one.
    std::string recording(int64_t which) const {
        return dir + "/" + std::to_string(which) + (which == k1080p ? "p.ts" : "s.ts");
    }

    Scratch() {
        char pattern[] = "/tmp/dvr-keeper-bench-XXXXXX";
        dir = mkdtemp(pattern);
        for (const int64_t which : {int64_t{10}, int64_t{60}, k1080p}) {
            const std::string make =
                std::string("ffmpeg -loglevel error -f lavfi -i testsrc=size=") +
                (which == k1080p ? "1920x1080" : "1280x720") +
                ":rate=30 -f lavfi -i sine=frequency=440:sample_rate=16000 -t " +
                (which == k1080p ? "60" : std::to_string(which)) +
                " -c:v libx264 -preset ultrafast -b:v 4M -g 30 " +
                (which == k1080p ? "-minrate 4M -maxrate 4M -bufsize 4M -x264-params nal-hrd=cbr "
                                 : "") +
                "-c:a aac -f mpegts -y " + recording(which);
            if (std::system(make.c_str()) != 0) {
                std::fprintf(stderr, "cannot make %s with ffmpeg\n", recording(which).c_str());
                std::exit(1);
            }
        }
        listCatalog = dir + "/list.db";
        const auto catalog = Catalog::open(listCatalog, Catalog::Damaged::kFail);
        catalog->begin();
        Recording row;
        row.directory = dir;
        row.state = Recording::State::kFinished;
        row.container = "mpegts";
        row.durationSeconds = 60;
        row.frames = 1800;
        row.keyFrames = 60;
        row.bytes = 30000000;
        row.closedCleanly = true;
        for (int i = 0; i < kListRows; ++i) {
            row.path = dir + "/client_10_" + std::to_string(i) + ".ts";
            row.encoderId = 100 + i % 2;
            row.startedMs = 1795000000000LL + i * 60000LL;
            row.finishedMs = row.startedMs + 60000;
            catalog->put(row);
        }
        catalog->commit();
    }
    ~Scratch() { std::system(("rm -rf " + dir).c_str()); }
};

Scratch &scratch() {
    static Scratch instance;
    return instance;
}

// What the daemon does at a record-finish: probe the file, store the row.
// Arguments: the file (see Scratch::recording) and the probe's depth:
// 0 the packets (the daemon's insert), 1 the packets and the last group of
// pictures decoded (a file found on disk), 2 dvr::recinfo's full reader
// without decoding (the probe before this benchmark's budget was met). CPU
// time is the figure (the wall time depends on the machine's load).
void BM_CatalogInsertWithProbe(benchmark::State &state) {
    const std::string database = scratch().dir + "/insert.db";
    const auto catalog = Catalog::open(database, Catalog::Damaged::kFail);
    int n = 0;
    for (auto _ : state) {
        Recording recording;
        recording.path = scratch().recording(state.range(0));
        recording.directory = scratch().dir;
        recording.encoderId = 100;
        recording.state = Recording::State::kFinished;
        recording.startedMs = ++n;
        std::string error;
        bool read = false;
        if (state.range(1) == 2) {
            const dvrspace::RecordingInfo info = dvrspace::RecordingReader::read(recording.path);
            recording.frames = static_cast<int64_t>(info.videoFrames());
            recording.missingSlots = info.missingSlots();
            read = info.opened;
        } else {
            read = dvrkeeper::FileProbe::fill(recording,
                                              state.range(1) == 0
                                                  ? dvrkeeper::FileProbe::Depth::kPackets
                                                  : dvrkeeper::FileProbe::Depth::kLastGroup,
                                              &error);
        }
        if (!read) {
            state.SkipWithError(error.c_str());
            break;
        }
        catalog->put(recording);
    }
}
BENCHMARK(BM_CatalogInsertWithProbe)
    ->ArgsProduct({{10, 60, k1080p}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);

// The daemon's second step for a finished file, when it has time: whether
// the last group of pictures decodes.
void BM_DecodesToEnd(benchmark::State &state) {
    const std::string path = scratch().recording(state.range(0));
    for (auto _ : state) {
        if (dvrkeeper::FileProbe::decodesToEnd(path) != std::optional<bool>(true)) {
            state.SkipWithError("the file does not decode to its end");
            break;
        }
    }
}
BENCHMARK(BM_DecodesToEnd)->Arg(10)->Arg(60)->Arg(k1080p)->Unit(benchmark::kMillisecond);

// The alternative: ffprobe counting the same file's packets (a process: wall
// time, as the keeper's CPU time runs in this one).
void BM_FfprobeCountPackets(benchmark::State &state) {
    const std::string command =
        "ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv " +
        scratch().recording(state.range(0)) + " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffprobe failed");
            break;
        }
    }
}
BENCHMARK(BM_FfprobeCountPackets)
    ->Arg(10)
    ->Arg(60)
    ->Arg(k1080p)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// `dvr-keeper list` (plain or --json) of kListRows rows, as a process, to
// /dev/null.
void BM_KeeperList(benchmark::State &state) {
    const std::string command = std::string(DVR_KEEPER_TOOL) + " --db " + scratch().listCatalog +
                                " list" + (state.range(0) != 0 ? " --json" : "") + " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("dvr-keeper list failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kListRows);
}
BENCHMARK(BM_KeeperList)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The alternative: the sqlite3 shell printing the same rows in the same order.
void BM_Sqlite3ShellList(benchmark::State &state) {
    const std::string command = "sqlite3 " + scratch().listCatalog +
                                " 'SELECT * FROM recordings ORDER BY started_ms, path'"
                                " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("sqlite3 failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kListRows);
}
BENCHMARK(BM_Sqlite3ShellList)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
