// What the recorder pays per stamp per frame: build a brush, draw a 19-character
// time stamp into a 1920x1080 NV12 frame, destroy the brush. The glyph cache is
// warmed first, as it is after the first frame of a process.
#include <benchmark/benchmark.h>

#include <vector>

#include "TextBrush.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
const char kStamp[] = "2026/11/22 12:34:56";

void stampFrames(benchmark::State &state) {
    const int fontSize = static_cast<int>(state.range(0));
    const int background = static_cast<int>(state.range(1));
    std::vector<uint8_t> frame(kWidth * kHeight * 3 / 2, 64);
    TextBrush(kWidth, kHeight, kWidth, TextBrush::kFormatNV12, fontSize, background, 7)
        .drawText(0, 0, frame.data(), kStamp);
    for (auto _ : state) {
        TextBrush brush(kWidth, kHeight, kWidth, TextBrush::kFormatNV12, fontSize, background, 7);
        benchmark::DoNotOptimize(brush.drawText(16, 16, frame.data(), kStamp));
        benchmark::ClobberMemory();
    }
}

}  // namespace

// Arguments: font size code, background colour code.
BENCHMARK(stampFrames)
    ->ArgNames({"size", "background"})
    ->Args({3, 0})
    ->Args({3, 1})
    ->Args({1, 0})
    ->Args({5, 0});

BENCHMARK_MAIN();
