// The keeper's budgets: storing one finished recording with its probe
// (<= 20 ms) and listing 100 000 rows (<= 200 ms), each next to the obvious
// alternative run on the same data: ffprobe counting the file's packets, and
// the sqlite3 shell printing the same rows.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Catalog.h"
#include "FileProbe.h"
#include "KeeperCommands.h"

using dvrkeeper::Catalog;
using dvrkeeper::Recording;

namespace {

constexpr int kListRows = 100000;

// A scratch directory with 10-second and one-minute 720p30 H.264 MPEG-TS
// files (x264 ultrafast, 4 Mbps, AAC), the shape of a channel's files, and a
// catalog of kListRows rows; made once per run.
struct Scratch {
    std::string dir;
    std::string listCatalog;

    std::string recording(int seconds) const {
        return dir + "/" + std::to_string(seconds) + "s.ts";
    }

    Scratch() {
        char pattern[] = "/tmp/dvr-keeper-bench-XXXXXX";
        dir = mkdtemp(pattern);
        for (const int seconds : {10, 60}) {
            const std::string make =
                "ffmpeg -loglevel error -f lavfi -i testsrc=size=1280x720:rate=30 -f lavfi"
                " -i sine=frequency=440:sample_rate=16000 -t " +
                std::to_string(seconds) +
                " -c:v libx264 -preset ultrafast -b:v 4M -g 30 -c:a aac -f mpegts -y " +
                recording(seconds);
            if (std::system(make.c_str()) != 0) {
                std::fprintf(stderr, "cannot make %s with ffmpeg\n", recording(seconds).c_str());
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
// Argument: the file's length in seconds. CPU time is the figure (the wall
// time depends on the machine's load).
void BM_CatalogInsertWithProbe(benchmark::State &state) {
    const std::string database = scratch().dir + "/insert.db";
    const auto catalog = Catalog::open(database, Catalog::Damaged::kFail);
    int n = 0;
    for (auto _ : state) {
        Recording recording;
        recording.path = scratch().recording(static_cast<int>(state.range(0)));
        recording.directory = scratch().dir;
        recording.encoderId = 100;
        recording.state = Recording::State::kFinished;
        recording.startedMs = ++n;
        std::string error;
        if (!dvrkeeper::FileProbe::fill(recording, false, &error)) {
            state.SkipWithError(error.c_str());
            break;
        }
        catalog->put(recording);
    }
}
BENCHMARK(BM_CatalogInsertWithProbe)->Arg(10)->Arg(60)->Unit(benchmark::kMillisecond);

// The alternative: ffprobe counting the same file's packets (a process: wall
// time, as the keeper's CPU time runs in this one).
void BM_FfprobeCountPackets(benchmark::State &state) {
    const std::string command =
        "ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv " +
        scratch().recording(static_cast<int>(state.range(0))) + " > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffprobe failed");
            break;
        }
    }
}
BENCHMARK(BM_FfprobeCountPackets)->Arg(10)->Arg(60)->Unit(benchmark::kMillisecond)->UseRealTime();

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
