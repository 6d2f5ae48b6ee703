// status: one row per recorder, gathered from the getters. IDVR cannot tell
// the current output file, so the FILE column shows the newest file in the
// directory given with --dir (the recorder's storage path), or "-".
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "Command.h"

using android::sp;
using dvrspace::IDVR;

namespace dvrctl {

namespace {

struct Channel {
    int encId = -1;
    int state = -1;
    std::optional<int> camId;
    std::optional<int> audId;
    bool audioOn = false;
    int format = -1;
    int bitRate = -1;
    int frameRate = -1;
    int resolution = -1;
    int fileLength = -1;
    bool timestampOn = false;
    bool userStampOn = false;
    std::optional<std::string> file;
};

// The most recently modified regular file in directory, by name.
std::optional<std::string> newestFile(const std::string &directory) {
    DIR *listing = opendir(directory.c_str());
    if (listing == nullptr) {
        return std::nullopt;
    }
    std::optional<std::string> newest;
    timespec newestTime{};
    while (const dirent *entry = readdir(listing)) {
        struct stat info {};
        if (stat((directory + "/" + entry->d_name).c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            continue;
        }
        const timespec &time = info.st_mtim;
        if (!newest || time.tv_sec > newestTime.tv_sec ||
            (time.tv_sec == newestTime.tv_sec && time.tv_nsec > newestTime.tv_nsec)) {
            newest = entry->d_name;
            newestTime = time;
        }
    }
    closedir(listing);
    return newest;
}

// Only ids from getEncoder reach getAttachedCamera/getAttachedAudio: the
// service aborts on an unknown one.
Channel readChannel(IDVR &service, int encId, const std::optional<std::string> &directory) {
    Channel channel;
    channel.encId = encId;
    channel.state = service.getCurrentState(encId);
    int cameraIndex = 0;
    if (service.getAttachedCamera(encId, &cameraIndex) >= 0) {
        int camId = 0;
        auto type = dvrspace::QV_DVR_DEVICE_TYPE_UNKNOWN;
        if (service.getCamera(cameraIndex, &camId, &type) >= 0) {
            channel.camId = camId;
        }
    }
    int audioIndex = 0;
    if (service.getAttachedAudio(encId, &audioIndex) >= 0) {
        int audId = 0;
        if (service.getAudio(audioIndex, &audId) >= 0) {
            channel.audId = audId;
        }
    }
    channel.audioOn = service.getAudioRecording(encId);
    channel.format = service.getOutputFormat(encId);
    channel.bitRate = service.getBitRate(encId);
    channel.frameRate = service.getFrameRate(encId);
    channel.resolution = service.getResolution(encId);
    channel.fileLength = service.getFileLength(encId);
    dvrspace::QVStampSettings_t stamp{};
    channel.timestampOn = service.getTimestampSetting(encId, &stamp) >= 0 && stamp.enabled;
    stamp = {};
    channel.userStampOn = service.getSelfDefinedStampSetting(encId, &stamp) >= 0 && stamp.enabled;
    if (directory) {
        channel.file = newestFile(*directory);
    }
    return channel;
}

std::string orDash(const std::optional<int> &value) {
    return value ? std::to_string(*value) : "-";
}

nlohmann::json orNull(const std::optional<int> &value) {
    return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

nlohmann::json toJson(const Channel &channel) {
    return {{"encId", channel.encId},
            {"state", Report::enumValue(channel.state, EnumNames::states())},
            {"camId", orNull(channel.camId)},
            {"audId", orNull(channel.audId)},
            {"audioRecording", channel.audioOn},
            {"format", Report::enumValue(channel.format, EnumNames::fileFormats())},
            {"bitRateMbps", channel.bitRate},
            {"frameRateFps", channel.frameRate},
            {"resolution", Report::enumValue(channel.resolution, EnumNames::resolutions())},
            {"fileLengthS", channel.fileLength},
            {"timestampEnabled", channel.timestampOn},
            {"userStampEnabled", channel.userStampOn},
            {"file", channel.file ? nlohmann::json(*channel.file) : nlohmann::json(nullptr)}};
}

std::vector<std::string> toRow(const Channel &channel) {
    const auto onOff = [](bool on) { return std::string(on ? "on" : "off"); };
    return {std::to_string(channel.encId),
            EnumNames::states().name(channel.state),
            orDash(channel.camId),
            orDash(channel.audId),
            onOff(channel.audioOn),
            EnumNames::fileFormats().name(channel.format),
            std::to_string(channel.bitRate),
            std::to_string(channel.frameRate),
            EnumNames::resolutions().name(channel.resolution),
            std::to_string(channel.fileLength),
            onOff(channel.timestampOn),
            onOff(channel.userStampOn),
            channel.file.value_or("-")};
}

void printTable(const std::vector<std::vector<std::string>> &rows) {
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const auto &row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line += std::string(widths[i] - row[i].size() + 2, ' ');
            }
        }
        printf("%s\n", line.c_str());
    }
    fflush(stdout);
}

int status(const sp<IDVR> &service, Report &report, const std::vector<std::string> &directories) {
    const int count = service->getRecorderCount();
    if (count < 0) {
        Report::printError(stdout, report.json(), "status", "failed",
                           "getRecorderCount failed with " + std::to_string(count), 1);
        return 1;
    }
    std::vector<Channel> channels;
    for (int index = 0; index < count; ++index) {
        int encId = -1;
        const int result = service->getEncoder(index, &encId);
        if (result < 0) {
            // The other rows are still worth printing; stderr keeps stdout parseable.
            fprintf(stderr, "dvrctl: getEncoder %d failed with %d\n", index, result);
            continue;
        }
        std::optional<std::string> directory;
        if (!directories.empty()) {
            directory = directories[std::min(channels.size(), directories.size() - 1)];
        }
        channels.push_back(readChannel(*service, encId, directory));
    }
    if (report.json()) {
        nlohmann::json array = nlohmann::json::array();
        for (const Channel &channel : channels) {
            array.push_back(toJson(channel));
        }
        report.setResult(std::move(array), "");
        return 0;
    }
    std::vector<std::vector<std::string>> rows = {{"ENC", "STATE", "CAMERA", "AUDIO", "AUDIO_REC",
                                                   "FORMAT", "MBPS", "FPS", "RESOLUTION", "LENGTH",
                                                   "TIMESTAMP", "USERSTAMP", "FILE"}};
    for (const Channel &channel : channels) {
        rows.push_back(toRow(channel));
    }
    printTable(rows);
    return 0;
}

}  // namespace

Command statusCommand() {
    return {"status", "[--dir DIR]...", "Prints one row per recorder: its settings and devices.",
            "CAMERA and AUDIO are device ids (\"-\" when none is attached). IDVR does not\n"
            "tell the current file: FILE is the newest file in the recorder's --dir (the\n"
            "first --dir for the first row and so on, the last one for the rows beyond),\n"
            "or \"-\". --json prints {\"command\": \"status\", \"result\": [...]}, an object per\n"
            "recorder in result.\n",
            [](CommandLine &args) -> Call {
                const std::vector<std::string> directories = args.options("dir");
                args.finish();
                return onService([directories](const sp<IDVR> &service, Report &report) {
                    return status(service, report, directories);
                });
            }};
}

}  // namespace dvrctl
