// The console's budgets, each beside the obvious alternative in the same run:
// remuxing a 10-s 1080p recording to fragmented MP4 (against the ffmpeg
// command line with the same flags), the time to the first byte of that MP4
// over HTTP when it is not cached, and a 1080p snapshot frame to JPEG or PNG
// (against ffmpeg converting the same raw NV12 frame). The ffmpeg command
// line needs the aac_adtstoasc filter named for MPEG-TS audio; the console
// applies it itself.
//
// The sample is made once with the ffmpeg command line: 10 s of 1920x1080
// 30 fps H.264 at 8 Mbit/s (a key frame a second) with AAC audio in MPEG-TS,
// as the recorder writes them.
#include <benchmark/benchmark.h>
#include <httplib.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Catalog.h"
#include "ConsoleServer.h"
#include "ImageEncoder.h"
#include "Mp4Remuxer.h"
#include "Nv12Image.h"
#include "RecordingIndex.h"

namespace {

constexpr double kSampleSeconds = 10.0;
constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

// A directory for the run's files, made once and removed at exit (the
// string is never destroyed, so the exit handler can still read it).
const std::string &workDirectory() {
    static const std::string *directory = [] {
        char pattern[] = "/tmp/dvr-web-bench-XXXXXX";
        const auto *made = new std::string(mkdtemp(pattern));
        std::atexit([] { std::filesystem::remove_all(workDirectory()); });
        return made;
    }();
    return *directory;
}

const std::string &sample() {
    static const std::string path = [] {
        const std::string file = workDirectory() + "/sample.ts";
        const std::string command =
            "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=30 -f lavfi -i "
            "sine=frequency=440:sample_rate=48000 -t 10 -c:v libx264 -preset ultrafast -g 30 "
            "-b:v 8M -pix_fmt yuv420p -c:a aac -b:a 64k -f mpegts " +
            file;
        if (std::system(command.c_str()) != 0) {
            std::abort();
        }
        return file;
    }();
    return path;
}

void BM_RemuxToFragmentedMp4(benchmark::State &state) {
    const std::string &input = sample();
    size_t bytes = 0;
    for (auto _ : state) {
        std::string error;
        const std::string mp4 = dvrweb::Mp4Remuxer::remux(input, {}, &error);
        if (mp4.empty()) {
            state.SkipWithError(error.c_str());
            return;
        }
        bytes = mp4.size();
        benchmark::DoNotOptimize(mp4.data());
    }
    state.counters["mp4_bytes"] = static_cast<double>(bytes);
    state.counters["x_real_time"] = benchmark::Counter(
        kSampleSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_RemuxToFragmentedMp4)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FfmpegCommandLineRemux(benchmark::State &state) {
    const std::string command =
        "ffmpeg -v error -y -i " + sample() +
        " -c copy -bsf:a aac_adtstoasc -movflags frag_keyframe+empty_moov -f mp4 " +
        workDirectory() + "/ffmpeg.mp4";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
    }
    state.counters["x_real_time"] = benchmark::Counter(
        kSampleSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FfmpegCommandLineRemux)->Unit(benchmark::kMillisecond)->UseRealTime();

// The console in this process, its catalog holding the sample; each
// iteration changes the sample's time stamp, so the console remuxes afresh
// (as for a recording nobody asked for yet), and measures until the first
// byte of the answer arrives.
void BM_TimeToFirstByteUncached(benchmark::State &state) {
    const std::string &input = sample();
    const std::string database = workDirectory() + "/catalog.db";
    {
        auto catalog = dvrkeeper::Catalog::open(database, dvrkeeper::Catalog::Damaged::kFail);
        dvrkeeper::Recording recording;
        recording.path = input;
        recording.directory = workDirectory();
        recording.encoderId = 100;
        recording.state = dvrkeeper::Recording::State::kFinished;
        recording.startedMs = 1;
        catalog->put(recording);
    }
    dvrweb::WebOptions options;
    options.port = 0;
    options.catalog = database;
    options.service = "dvr-web-bench-no-service";
    options.webRoot = DVR_WEB_ROOT;
    dvrweb::ConsoleServer server(options);
    std::string error;
    if (!server.bind(&error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    std::thread serving([&] { server.listen(); });
    const std::string path =
        "/api/recordings/" + dvrweb::RecordingIndex::idOf(input) + "/video.mp4";
    httplib::Client client("127.0.0.1", server.port());
    client.set_read_timeout(60);
    long touch = 1000000000;
    for (auto _ : state) {
        const timespec times[2] = {{touch, 0}, {touch, 0}};
        ++touch;
        utimensat(AT_FDCWD, input.c_str(), times, 0);
        const auto start = std::chrono::steady_clock::now();
        std::chrono::duration<double> firstByte{0};
        bool first = true;
        client.Get(path.c_str(), [&](const char *, size_t) {
            if (first) {
                firstByte = std::chrono::steady_clock::now() - start;
                first = false;
            }
            return true;
        });
        state.SetIterationTime(firstByte.count());
    }
    server.stop();
    serving.join();
}
BENCHMARK(BM_TimeToFirstByteUncached)->Unit(benchmark::kMillisecond)->UseManualTime();

// A 1080p NV12 frame with something in it (a gradient).
const std::vector<uint8_t> &frame() {
    static const std::vector<uint8_t> nv12 = [] {
        std::vector<uint8_t> bytes(static_cast<size_t>(kWidth) * kHeight * 3 / 2);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                bytes[static_cast<size_t>(y) * kWidth + x] =
                    static_cast<uint8_t>(16 + (x + y) % 220);
            }
        }
        for (size_t i = static_cast<size_t>(kWidth) * kHeight; i < bytes.size(); ++i) {
            bytes[i] = static_cast<uint8_t>(64 + i % 128);
        }
        return bytes;
    }();
    return nv12;
}

void snapshotToImage(benchmark::State &state, dvrweb::ImageType type) {
    const std::vector<uint8_t> &nv12 = frame();
    size_t bytes = 0;
    for (auto _ : state) {
        const dvrctl::Nv12Image image(nv12.data(), nv12.data() + kWidth * kHeight, kWidth, kHeight,
                                      kWidth);
        std::string error;
        const std::string encoded =
            dvrweb::ImageEncoder::encode(image.toRgb(), kWidth, kHeight, type, &error);
        bytes = encoded.size();
        benchmark::DoNotOptimize(encoded.data());
    }
    state.counters["image_bytes"] = static_cast<double>(bytes);
}

void BM_Snapshot1080pToJpeg(benchmark::State &state) {
    snapshotToImage(state, dvrweb::ImageType::kJpeg);
}
BENCHMARK(BM_Snapshot1080pToJpeg)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Snapshot1080pToPng(benchmark::State &state) {
    snapshotToImage(state, dvrweb::ImageType::kPng);
}
BENCHMARK(BM_Snapshot1080pToPng)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FfmpegCommandLineNv12ToJpeg(benchmark::State &state) {
    const std::string raw = workDirectory() + "/frame.nv12";
    {
        std::ofstream out(raw, std::ios::binary);
        out.write(reinterpret_cast<const char *>(frame().data()),
                  static_cast<std::streamsize>(frame().size()));
    }
    const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt nv12 -s 1920x1080 -i " +
                                raw + " -frames:v 1 " + workDirectory() + "/frame.jpg";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
    }
}
BENCHMARK(BM_FfmpegCommandLineNv12ToJpeg)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
