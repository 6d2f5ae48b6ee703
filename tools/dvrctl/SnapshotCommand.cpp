// snapshot: takeSnapshot, then reads the frame out of the simulator's
// physical-memory arena and writes it as an RGB PNG file.
#include <cstdlib>

#include "Command.h"
#include "DVRPhysicalArena.h"
#include "Nv12Image.h"

using android::sp;
using dvrspace::DVRPhysicalArena;
using dvrspace::IDVR;

namespace dvrctl {

namespace {

// Far beyond any camera; keeps a corrupt reply from asking for gigabytes.
constexpr int kMaxSide = 16384;

// --arena, else $DVR_ARENA, else the one live default-named arena.
std::string findArena(const std::optional<std::string> &option, std::string *error) {
    if (option) {
        return *option;
    }
    const char *variable = std::getenv("DVR_ARENA");
    if (variable != nullptr && *variable != '\0') {
        return variable;
    }
    const std::string directory = DVRPhysicalArena::defaultDirectory();
    const std::vector<std::string> live = DVRPhysicalArena::findLive(directory);
    if (live.empty()) {
        *error = "no arena of a running process in " + directory +
                 "; is the service running? Name one with --arena or $DVR_ARENA";
    } else if (live.size() > 1) {
        *error = "several arenas of running processes in " + directory + ":";
        for (const std::string &path : live) {
            *error += " " + path;
        }
        *error += "; choose one with --arena or $DVR_ARENA";
    } else {
        return live[0];
    }
    return "";
}

int fail(const Report &report, const std::string &message) {
    Report::printError(stdout, report.json(), report.command(), "failed", message, 1);
    return 1;
}

int snapshot(const sp<IDVR> &service, Report &report, int encId, const std::string &file,
             const std::optional<std::string> &arenaOption) {
    std::string error;
    const std::string arenaPath = findArena(arenaOption, &error);
    if (arenaPath.empty()) {
        return fail(report, error);
    }
    const std::unique_ptr<DVRPhysicalArena> arena = DVRPhysicalArena::attach(arenaPath, &error);
    if (arena == nullptr) {
        return fail(report, error);
    }
    dvrspace::SnapshotPA_t frame{};
    const int result = service->takeSnapshot(encId, frame);
    if (result < 0) {
        report.setResult(result);
        return report.exitStatus();
    }
    if (frame.width <= 0 || frame.height <= 0 || frame.width > kMaxSide ||
        frame.height > kMaxSide || frame.stride < frame.width) {
        return fail(report, "the service gave a frame of " + std::to_string(frame.width) + "x" +
                                std::to_string(frame.height) + " with stride " +
                                std::to_string(frame.stride));
    }
    const auto *luma = static_cast<const uint8_t *>(
        arena->translate(frame.planePA[0], Nv12Image::lumaBytes(frame.height, frame.stride)));
    const auto *chroma = static_cast<const uint8_t *>(
        arena->translate(frame.planePA[1], Nv12Image::chromaBytes(frame.height, frame.stride)));
    if (luma == nullptr || chroma == nullptr) {
        return fail(report, "the frame's planes do not lie in the arena " + arenaPath);
    }
    if (!Nv12Image(luma, chroma, frame.width, frame.height, frame.stride).writePng(file, &error)) {
        return fail(report, error);
    }
    report.setResult(result);
    report.add("file", file);
    report.add("arena", arenaPath);
    report.add("widthPx", static_cast<int>(frame.width));
    report.add("heightPx", static_cast<int>(frame.height));
    report.add("timestampUs", std::to_string(frame.timestamp));
    return report.exitStatus();
}

}  // namespace

Command snapshotCommand() {
    return {"snapshot", "ENC_ID FILE.png [--arena PATH]",
            "Takes a snapshot and writes the frame as an RGB PNG file.",
            "The frame is read from the simulator's physical-memory arena: PATH, else\n"
            "$DVR_ARENA, else the one arena of a running process in the default directory.\n",
            [](CommandLine &args) -> Call {
                const std::optional<std::string> arena = args.option("arena");
                const int encId = args.integer("ENC_ID");
                const std::string file = args.text("FILE.png");
                args.finish();
                return onService([=](const sp<IDVR> &service, Report &report) {
                    return snapshot(service, report, encId, file, arena);
                });
            }};
}

}  // namespace dvrctl
