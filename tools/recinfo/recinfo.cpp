// recinfo: accounts for every frame of recorded files, from the files alone:
// duration, video frames, key frames, missing frame slots, the largest gap,
// first and last presentation time, audio, whether the file decodes to its
// end, size; as text or as JSON. A directory stands for its recordings in
// recording order.
#include <dirent.h>
#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "RecordingReader.h"
#include "RecordingRepair.h"
#include "ToolVersion.h"

namespace {

constexpr int kUsageError = 2;

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: recinfo [--json] FILE|DIR...\n"
            "       recinfo repair FILE...\n"
            "\n"
            "Prints, for each recorded AVI or MPEG-TS file, what a player finds in it:\n"
            "duration in seconds, video frames, key frames, missing frame slots (frame\n"
            "periods between the first and the last frame that hold no frame), the\n"
            "largest gap between frames in ms, the first and last presentation time,\n"
            "audio (codec, sampling rate, channels and packets, or \"none\"), whether every\n"
            "frame decodes, and the size in bytes. A file that lost frames ends with\n"
            "\"LOST FRAMES\". A directory stands for its .avi and .ts files in recording\n"
            "order (oldest modification first, then by name).\n"
            "\n"
            "repair rebuilds an AVI that a killed recorder left without its index (no\n"
            "duration): every frame that reached the disk is kept and the file is\n"
            "replaced. A complete file is left as it is; a file another process has open\n"
            "is refused, since it may still be written.\n"
            "\n"
            "  -j, --json     print one JSON array instead of text lines\n"
            "  -h, --help     print this help and exit\n"
            "      --version  print the version and exit\n"
            "\n"
            "Exit status: 0 when every file was read, 1 when one could not be, 2 on bad\n"
            "usage.\n");
}

bool isRecordingName(const std::string &name) {
    for (const char *extension : {".avi", ".ts"}) {
        const size_t length = strlen(extension);
        if (name.size() > length &&
            strcasecmp(name.c_str() + name.size() - length, extension) == 0) {
            return true;
        }
    }
    return false;
}

// A directory's recordings in recording order: a file's last write is when
// the recording left it, so modification time orders the files of one
// recording whatever their names.
std::vector<std::string> expand(const std::string &argument) {
    struct stat argumentStat {};
    if (stat(argument.c_str(), &argumentStat) != 0 || !S_ISDIR(argumentStat.st_mode)) {
        return {argument};
    }
    using Entry = std::tuple<int64_t, int64_t, std::string>;  // seconds, ns, path
    std::vector<Entry> entries;
    const std::string prefix = argument.back() == '/' ? argument : argument + "/";
    if (DIR *dir = opendir(argument.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            struct stat entryStat {};
            const std::string path = prefix + entry->d_name;
            if (isRecordingName(entry->d_name) && stat(path.c_str(), &entryStat) == 0 &&
                S_ISREG(entryStat.st_mode)) {
                entries.emplace_back(entryStat.st_mtim.tv_sec, entryStat.st_mtim.tv_nsec, path);
            }
        }
        closedir(dir);
    }
    std::sort(entries.begin(), entries.end());
    std::vector<std::string> paths;
    for (const Entry &entry : entries) {
        paths.push_back(std::get<2>(entry));
    }
    return paths;
}

std::string audioText(const dvrspace::RecordingInfo &info) {
    if (!info.hasAudio) {
        return "none";
    }
    return info.audioCodec + " " + std::to_string(info.sampleRate) + " Hz " +
           std::to_string(info.channels) + " ch, " + std::to_string(info.audioPackets) + " packets";
}

void printText(const std::string &path, const dvrspace::RecordingInfo &info) {
    printf(
        "%s: %.3f s, %zu video frames, %zu keyframes, %lld missing slots, largest gap %.1f ms, "
        "pts %.3f to %.3f s, audio %s, %s, %lld bytes%s\n",
        path.c_str(), info.durationSeconds, info.videoFrames(), info.keyFrameCount(),
        static_cast<long long>(info.missingSlots()), info.largestGapMs(), info.firstPtsSeconds(),
        info.lastPtsSeconds(), audioText(info).c_str(),
        info.decodedToEnd ? "decodes to end" : "DECODE ERRORS",
        static_cast<long long>(info.sizeBytes), info.missingSlots() > 0 ? ", LOST FRAMES" : "");
}

nlohmann::json toJson(const std::string &path, const dvrspace::RecordingInfo &info) {
    nlohmann::json entry = {{"name", path}};
    if (!info.opened) {
        entry["error"] = info.error;
        return entry;
    }
    entry["durationSeconds"] = info.durationSeconds;
    entry["videoFrames"] = info.videoFrames();
    entry["keyFrames"] = info.keyFrameCount();
    entry["missingSlots"] = info.missingSlots();
    entry["largestGapMs"] = info.largestGapMs();
    entry["firstPtsSeconds"] = info.firstPtsSeconds();
    entry["lastPtsSeconds"] = info.lastPtsSeconds();
    if (info.hasAudio) {
        entry["audio"] = {{"codec", info.audioCodec},
                          {"sampleRate", info.sampleRate},
                          {"channels", info.channels},
                          {"packets", info.audioPackets}};
    } else {
        entry["audio"] = "none";
    }
    entry["decodedToEnd"] = info.decodedToEnd;
    entry["sizeBytes"] = info.sizeBytes;
    return entry;
}

// recinfo repair FILE...: 0 when every file is complete afterwards.
int repairFiles(const std::vector<std::string> &paths) {
    bool allComplete = true;
    for (const std::string &path : paths) {
        if (dvrspace::RecordingRepair::openElsewhere(path)) {
            fprintf(stderr, "recinfo: %s: open in another process; not repaired\n", path.c_str());
            allComplete = false;
            continue;
        }
        const dvrspace::RepairResult result = dvrspace::RecordingRepair::repair(path);
        if (!result.error.empty()) {
            fprintf(stderr, "recinfo: %s: %s\n", path.c_str(), result.error.c_str());
            allComplete = false;
        } else if (result.repaired) {
            printf("%s: repaired: %lld video frames, %.3f s\n", path.c_str(),
                   static_cast<long long>(result.videoFrames), result.durationSeconds);
        } else {
            printf("%s: complete, left as it is\n", path.c_str());
        }
    }
    return allComplete ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    enum { kVersionOption = 1000 };
    static const option kOptions[] = {{"json", no_argument, nullptr, 'j'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, kVersionOption},
                                      {nullptr, 0, nullptr, 0}};
    bool json = false;
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, "+jh", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'j':
                json = true;
                break;
            case 'h':
                printUsage(stdout);
                return 0;
            case kVersionOption:
                dvrtools::printToolVersion("recinfo");
                return 0;
            default:
                fprintf(stderr, "recinfo: unknown option '%s'\nTry 'recinfo --help'.\n",
                        argv[optind - 1]);
                return kUsageError;
        }
    }
    std::vector<std::string> arguments;
    for (int i = optind; i < argc; ++i) {
        if (argv[i][0] == '\0') {
            fprintf(stderr, "recinfo: empty file name\nTry 'recinfo --help'.\n");
            return kUsageError;
        }
        arguments.push_back(argv[i]);
    }
    if (!arguments.empty() && arguments.front() == "repair") {
        arguments.erase(arguments.begin());
        if (arguments.empty() || json) {
            fprintf(stderr, "recinfo: repair takes files and no --json\nTry 'recinfo --help'.\n");
            return kUsageError;
        }
        return repairFiles(arguments);
    }
    if (arguments.empty()) {
        fprintf(stderr, "recinfo: no file or directory given\nTry 'recinfo --help'.\n");
        return kUsageError;
    }

    bool allRead = true;
    nlohmann::json summary = nlohmann::json::array();
    for (const std::string &argument : arguments) {
        for (const std::string &path : expand(argument)) {
            const dvrspace::RecordingInfo info = dvrspace::RecordingReader::verify(path);
            if (!info.opened) {
                fprintf(stderr, "recinfo: %s: %s\n", path.c_str(), info.error.c_str());
                allRead = false;
            } else if (!json) {
                printText(path, info);
            }
            if (json) {
                summary.push_back(toJson(path, info));
            }
        }
    }
    if (json) {
        std::cout << summary.dump(2) << "\n";
    }
    return allRead ? 0 : 1;
}
