#include "KeeperCommands.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>

#include "TextLine.h"

namespace dvrkeeper {

namespace {

// The local time of ms since the epoch.
std::tm localTime(int64_t ms) {
    // Time zones change their offset on a quarter hour at most: the offset
    // found for a quarter's start serves all of it, and the rest is plain
    // arithmetic (a list converts thousands of times in a row).
    static std::time_t cachedQuarter = -1;
    static long cachedOffset = 0;
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    const std::time_t quarter = seconds - seconds % 900;
    if (quarter != cachedQuarter) {
        std::tm local{};
        localtime_r(&quarter, &local);
        cachedOffset = local.tm_gmtoff;
        cachedQuarter = quarter;
    }
    const std::time_t shifted = seconds + cachedOffset;
    std::tm local{};
    gmtime_r(&shifted, &local);
    return local;
}

std::string localTimeText(int64_t ms) {
    TextLine text;
    text.dateTime(localTime(ms));
    return text.str();
}

template <typename T>
std::string jsonOptional(const std::optional<T> &value) {
    if (!value) {
        return "null";
    }
    if constexpr (std::is_same_v<T, bool>) {
        return *value ? "true" : "false";
    } else {
        return std::to_string(*value);
    }
}

std::string absolute(const std::string &file) {
    char resolved[PATH_MAX];
    return realpath(file.c_str(), resolved) != nullptr ? std::string(resolved) : file;
}

// Clears every write bit (lock) or gives the owner write permission back.
void setWritable(const std::string &path, bool writable) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return;
    }
    const mode_t mode = writable ? (status.st_mode | S_IWUSR)
                                 : (status.st_mode & ~mode_t(S_IWUSR | S_IWGRP | S_IWOTH));
    chmod(path.c_str(), mode & 07777);
}

// One line of list, plain or JSON, built in line (reused from row to row).
void printRecording(const Recording &r, bool json, TextLine &line, std::FILE *out) {
    line.clear();
    if (json) {
        line.text("{\"path\": ").json(r.path);
        line.text(", \"encId\": ").text(jsonOptional(r.encoderId));
        line.text(", \"state\": \"").text(Recording::stateName(r.state));
        line.text("\", \"startedMs\": ").integer(r.startedMs);
        line.text(", \"finishedMs\": ").text(jsonOptional(r.finishedMs));
        line.text(", \"locked\": ").text(r.locked ? "true" : "false");
        line.text(", \"closedCleanly\": ").text(jsonOptional(r.closedCleanly));
        line.text(", \"durationSeconds\": ").fixed(r.durationSeconds, 3);
        line.text(", \"frames\": ").integer(r.frames);
        line.text(", \"keyFrames\": ").integer(r.keyFrames);
        line.text(", \"bytes\": ").integer(r.bytes);
        line.text(", \"audio\": ").text(r.hasAudio ? "true" : "false");
        line.text(", \"container\": ").json(r.container);
        line.text(", \"missingSlots\": ").integer(r.missingSlots);
        line.text(", \"largestGapMs\": ").fixed(r.largestGapMs, 1);
        line.text(", \"decodedToEnd\": ").text(jsonOptional(r.decodedToEnd)).text("}\n");
    } else {
        line.dateTime(localTime(r.startedMs)).text("  ");
        line.padded(r.encoderId ? std::to_string(*r.encoderId) : "-", 4, false).text("  ");
        line.padded(Recording::stateName(r.state), 9, true).text(" ");
        line.padded(r.locked ? "locked" : "-", 6, true).text(" ");
        line.fixed(r.durationSeconds, 1, 8).text("s ");
        line.integer(r.frames, 6).text(" frames ");
        line.integer(r.bytes, 11).text(" bytes  ").text(r.path).text("\n");
    }
    line.write(out);
}

}  // namespace

std::optional<int64_t> parseTimeMs(const std::string &text) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        return std::strtoll(text.c_str(), nullptr, 10) * 1000;
    }
    for (const char *format :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm local{};
        const char *end = strptime(text.c_str(), format, &local);
        if (end != nullptr && *end == '\0') {
            local.tm_isdst = -1;
            return int64_t{std::mktime(&local)} * 1000;
        }
    }
    return std::nullopt;
}

int setLockCommand(Catalog &catalog, const CommandOptions &options, bool lock, std::FILE *out) {
    std::vector<std::string> paths;
    if (options.last) {
        for (const Recording &recording : catalog.newest(*options.channel, *options.last)) {
            paths.push_back(recording.path);
        }
        if (paths.empty()) {
            std::fprintf(stderr, "dvr-keeper: no recordings of channel %lld in the catalog\n",
                         static_cast<long long>(*options.channel));
            return 1;
        }
    } else {
        for (const std::string &file : options.files) {
            paths.push_back(absolute(file));
        }
    }
    int status = 0;
    for (const std::string &path : paths) {
        if (!catalog.setLocked(path, lock)) {
            std::fprintf(stderr, "dvr-keeper: %s is not in the catalog\n", path.c_str());
            status = 1;
            continue;
        }
        setWritable(path, !lock);
        std::fprintf(out, "%s %s\n", lock ? "locked" : "unlocked", path.c_str());
    }
    return status;
}

int listCommand(Catalog &catalog, const CommandOptions &options, std::FILE *out) {
    Catalog::Filter filter;
    filter.encoderId = options.channel;
    filter.sinceMs = options.sinceMs;
    // One lock of the stream for the whole list, not one per line.
    flockfile(out);
    TextLine line;
    catalog.forEach(filter, [&](const Recording &recording) {
        printRecording(recording, options.json, line, out);
    });
    funlockfile(out);
    return 0;
}

int statsCommand(Catalog &catalog, const CommandOptions &options, std::FILE *out) {
    const std::vector<Catalog::ChannelUsage> channels = catalog.channelUsage();
    std::vector<DirectoryStatus> directories = catalog.directories();
    int health = 0;
    for (DirectoryStatus &directory : directories) {
        struct statvfs space {};
        if (statvfs(directory.path.c_str(), &space) == 0) {
            directory.freeBytes = int64_t(space.f_bavail) * int64_t(space.f_frsize);
        }
        health = std::max(health, directory.health);
    }
    const auto hoursLeft = [](const DirectoryStatus &d) -> std::optional<double> {
        if (d.bytesPerSecond <= 0) {
            return std::nullopt;
        }
        return std::max<double>(0, d.freeBytes - d.freeGoalBytes) / d.bytesPerSecond / 3600;
    };
    const int64_t locked = catalog.lockedCount();
    if (options.json) {
        std::fprintf(out, "{\"health\": %d, \"lockedFiles\": %lld, \"channels\": [", health,
                     static_cast<long long>(locked));
        for (size_t i = 0; i < channels.size(); ++i) {
            const Catalog::ChannelUsage &c = channels[i];
            std::fprintf(out,
                         "%s{\"encId\": %s, \"files\": %lld, \"bytes\": %lld,"
                         " \"oldestMs\": %lld, \"newestMs\": %lld}",
                         i == 0 ? "" : ", ", jsonOptional(c.encoderId).c_str(),
                         static_cast<long long>(c.files), static_cast<long long>(c.bytes),
                         static_cast<long long>(c.oldestMs), static_cast<long long>(c.newestMs));
        }
        std::fprintf(out, "], \"directories\": [");
        for (size_t i = 0; i < directories.size(); ++i) {
            const DirectoryStatus &d = directories[i];
            const std::optional<double> hours = hoursLeft(d);
            TextLine path;
            TextLine message;
            path.json(d.path);
            message.json(d.message);
            std::fprintf(
                out,
                "%s{\"path\": %s, \"freeBytes\": %lld, \"freeGoalBytes\": %lld,"
                " \"hoursLeft\": %s, \"health\": %d, \"message\": %s}",
                i == 0 ? "" : ", ", path.str().c_str(), static_cast<long long>(d.freeBytes),
                static_cast<long long>(d.freeGoalBytes),
                hours ? std::to_string(*hours).c_str() : "null", d.health, message.str().c_str());
        }
        std::fprintf(out, "]}\n");
        return 0;
    }
    for (const Catalog::ChannelUsage &c : channels) {
        std::fprintf(out, "channel %s: %lld files, %lld bytes, oldest %s, newest %s\n",
                     c.encoderId ? std::to_string(*c.encoderId).c_str() : "unknown",
                     static_cast<long long>(c.files), static_cast<long long>(c.bytes),
                     localTimeText(c.oldestMs).c_str(), localTimeText(c.newestMs).c_str());
    }
    std::fprintf(out, "locked files: %lld\n", static_cast<long long>(locked));
    for (const DirectoryStatus &d : directories) {
        const std::optional<double> hours = hoursLeft(d);
        std::fprintf(out, "directory %s: free %lld bytes, goal %lld bytes, hours left %s%s%s\n",
                     d.path.c_str(), static_cast<long long>(d.freeBytes),
                     static_cast<long long>(d.freeGoalBytes),
                     hours ? std::to_string(*hours).c_str() : "-", d.health != 0 ? ", " : "",
                     d.message.c_str());
    }
    std::fprintf(out, "health: %d\n", health);
    return 0;
}

}  // namespace dvrkeeper
