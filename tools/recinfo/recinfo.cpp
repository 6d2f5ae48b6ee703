// recinfo: summarises recorded files (name, duration, video frames, key
// frames, audio, size) as read back by a player, as text or as JSON.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "RecordingReader.h"

namespace {

constexpr int kUsageError = 2;

void printUsage(FILE *out) {
    fprintf(out,
            "Usage: recinfo [--json] FILE|DIR...\n"
            "\n"
            "Prints, for each recorded AVI or MPEG-TS file, its name, duration in seconds,\n"
            "video frames, key frames, audio (codec, sampling rate, channels, or \"none\")\n"
            "and size in bytes. A directory stands for its .avi and .ts files, sorted by\n"
            "name. --json prints one JSON array instead of text lines.\n"
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

// A directory's recordings sorted by name; anything else as it was given.
std::vector<std::string> expand(const std::string &argument) {
    struct stat argumentStat {};
    if (stat(argument.c_str(), &argumentStat) != 0 || !S_ISDIR(argumentStat.st_mode)) {
        return {argument};
    }
    std::vector<std::string> names;
    if (DIR *dir = opendir(argument.c_str())) {
        while (const dirent *entry = readdir(dir)) {
            struct stat entryStat {};
            const std::string path = argument + "/" + entry->d_name;
            if (isRecordingName(entry->d_name) && stat(path.c_str(), &entryStat) == 0 &&
                S_ISREG(entryStat.st_mode)) {
                names.push_back(entry->d_name);
            }
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    std::vector<std::string> paths;
    const std::string prefix = argument.back() == '/' ? argument : argument + "/";
    for (const std::string &name : names) {
        paths.push_back(prefix + name);
    }
    return paths;
}

std::string audioText(const dvrspace::RecordingInfo &info) {
    if (!info.hasAudio) {
        return "none";
    }
    return info.audioCodec + " " + std::to_string(info.sampleRate) + " Hz " +
           std::to_string(info.channels) + " ch";
}

void printText(const std::string &path, const dvrspace::RecordingInfo &info) {
    printf("%s: %.3f s, %zu video frames, %zu keyframes, audio %s, %lld bytes\n", path.c_str(),
           info.durationSeconds, info.videoFrames(), info.keyFrameCount(), audioText(info).c_str(),
           static_cast<long long>(info.sizeBytes));
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
    if (info.hasAudio) {
        entry["audio"] = {{"codec", info.audioCodec},
                          {"sampleRate", info.sampleRate},
                          {"channels", info.channels}};
    } else {
        entry["audio"] = "none";
    }
    entry["sizeBytes"] = info.sizeBytes;
    return entry;
}

}  // namespace

int main(int argc, char **argv) {
    bool json = false;
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            printUsage(stdout);
            return 0;
        }
        if (strcmp(argv[i], "--json") == 0) {
            json = true;
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            fprintf(stderr, "recinfo: unknown option '%s'\nTry 'recinfo --help'.\n", argv[i]);
            return kUsageError;
        } else if (argv[i][0] == '\0') {
            fprintf(stderr, "recinfo: empty file name\nTry 'recinfo --help'.\n");
            return kUsageError;
        } else {
            arguments.push_back(argv[i]);
        }
    }
    if (arguments.empty()) {
        fprintf(stderr, "recinfo: no file or directory given\nTry 'recinfo --help'.\n");
        return kUsageError;
    }

    bool allRead = true;
    nlohmann::json summary = nlohmann::json::array();
    for (const std::string &argument : arguments) {
        for (const std::string &path : expand(argument)) {
            const dvrspace::RecordingInfo info = dvrspace::RecordingReader::read(path);
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
