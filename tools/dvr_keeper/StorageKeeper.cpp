#include "StorageKeeper.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <set>

#include "FileProbe.h"
#include "KeeperLog.h"

namespace dvrkeeper {

namespace {

constexpr int64_t kBytesPerMb = 1000 * 1000;
constexpr int64_t kBytesPerGb = 1000 * kBytesPerMb;
constexpr int64_t kMsPerDay = 24LL * 3600 * 1000;
// An unmet policy is logged again at most this often while it stays unmet.
constexpr int64_t kRepeatErrorMs = 60 * 1000;
constexpr int64_t kStatusEveryMs = 1000;

std::string resolvedDirectory(const std::string &directory) {
    char resolved[PATH_MAX];
    return realpath(directory.c_str(), resolved) != nullptr ? std::string(resolved) : directory;
}

std::string directoryOf(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool isRecordingName(const std::string &name) {
    for (const char *extension : {".ts", ".avi"}) {
        const size_t length = std::strlen(extension);
        if (name.size() > length && name.compare(name.size() - length, length, extension) == 0) {
            return true;
        }
    }
    return false;
}

int64_t modifiedMs(const struct stat &status) {
    return int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1000000;
}

std::string megabytes(int64_t bytes) {
    return std::to_string(bytes / kBytesPerMb) + " MB";
}

}  // namespace

StorageKeeper::StorageKeeper(Catalog &catalog, const KeeperConfig &config)
    : mCatalog(catalog), mConfig(config) {
    for (const DirectoryPolicy &policy : config.directories) {
        Managed directory;
        directory.policy = policy;
        directory.policy.path = resolvedDirectory(policy.path);
        mDirectories[directory.policy.path] = directory;
    }
}

int64_t StorageKeeper::nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string StorageKeeper::resolve(const std::string &servicePath) const {
    const std::string absolute =
        !servicePath.empty() && servicePath[0] == '/'
            ? servicePath
            : (mConfig.serverDir == "/" ? "" : mConfig.serverDir) + "/" + servicePath;
    const size_t slash = absolute.rfind('/');
    const std::string directory = resolvedDirectory(directoryOf(absolute));
    return (directory == "/" ? "" : directory) + absolute.substr(slash);
}

StorageKeeper::Managed *StorageKeeper::managed(const std::string &directory) {
    const auto found = mDirectories.find(directory);
    return found == mDirectories.end() ? nullptr : &found->second;
}

void StorageKeeper::setChannel(int encoderId, const ChannelSettings &settings) {
    mChannels[encoderId] = settings;
}

void StorageKeeper::recordStarted(int encoderId, const std::string &servicePath, int64_t atMs) {
    Recording recording;
    recording.path = resolve(servicePath);
    recording.directory = directoryOf(recording.path);
    recording.encoderId = encoderId;
    recording.state = Recording::State::kRecording;
    recording.startedMs = atMs;
    if (const std::optional<Recording> known = mCatalog.find(recording.path)) {
        recording.locked = known->locked;
    }
    mCatalog.put(recording);
    mWriting[encoderId] = recording.path;
    mChannelDirectory[encoderId] = recording.directory;
    if (Managed *directory = managed(recording.directory)) {
        enforce(*directory);
    }
}

void StorageKeeper::recordFinished(int encoderId, const std::string &servicePath, int64_t atMs) {
    const std::string path = resolve(servicePath);
    Recording recording;
    const std::optional<Recording> known = mCatalog.find(path);
    const auto writing = mWriting.find(encoderId);
    if (writing != mWriting.end() && writing->second == path) {
        mWriting.erase(writing);
    }
    if (access(path.c_str(), F_OK) != 0) {
        if (known && access(directoryOf(path).c_str(), F_OK) != 0) {
            KEEPER_LOGW("Recording %s is gone from disk; marked missing\n", path.c_str());
            mCatalog.setState(path, Recording::State::kMissing);
        } else {
            // A file stopped before it got any data is never made.
            KEEPER_LOGW("Finished recording %s is not on disk; not catalogued\n", path.c_str());
            mCatalog.forget(path);
        }
        return;
    }
    if (known) {
        recording = *known;
    } else {
        recording.path = path;
        recording.directory = directoryOf(path);
    }
    recording.encoderId = encoderId;
    recording.finishedMs = atMs;
    recording.closedCleanly = true;
    recording.state = Recording::State::kFinished;
    if (!known) {
        // The start was missed: the file began its duration before now.
        probe(recording, foundDepth());
        recording.startedMs =
            *recording.finishedMs - static_cast<int64_t>(recording.durationSeconds * 1000);
        mCatalog.put(recording);
        return;
    }
    // Deletable from now on; its figures follow when the keeper has time
    // (probeOne), so a busy keeper still makes room in time.
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        recording.bytes = status.st_size;
    }
    mCatalog.put(recording);
    mUnprobed.push_back(path);
}

bool StorageKeeper::probeOne() {
    while (!mUnprobed.empty()) {
        const std::string path = mUnprobed.front();
        mUnprobed.pop_front();
        std::optional<Recording> recording = mCatalog.find(path);
        if (recording && recording->state == Recording::State::kFinished) {
            probe(*recording,
                  mConfig.verify ? FileProbe::Depth::kEveryPicture : FileProbe::Depth::kPackets);
            mCatalog.put(*recording);
            if (!recording->decodedToEnd && !recording->container.empty()) {
                mUnchecked.push_back(path);
            }
            return true;
        }
    }
    // The end of a file is checked apart from its figures: decoding a group
    // of pictures costs more than reading all of its packets.
    while (!mUnchecked.empty()) {
        const std::string path = mUnchecked.front();
        mUnchecked.pop_front();
        if (const std::optional<bool> decoded = FileProbe::decodesToEnd(path)) {
            mCatalog.setDecodedToEnd(path, *decoded);
            return true;
        }
    }
    return false;
}

void StorageKeeper::probe(Recording &recording, FileProbe::Depth depth) const {
    std::string error;
    if (!FileProbe::fill(recording, depth, &error)) {
        KEEPER_LOGW("Cannot read recording %s: %s\n", recording.path.c_str(), error.c_str());
    }
}

void StorageKeeper::serviceLost() {
    mWriting.clear();
}

void StorageKeeper::reconcile() {
    for (auto &entry : mDirectories) {
        reconcile(entry.second);
    }
}

void StorageKeeper::enforce() {
    for (auto &entry : mDirectories) {
        enforce(entry.second);
    }
}

void StorageKeeper::reconcile(Managed &directory) {
    const std::string &path = directory.policy.path;
    std::vector<Recording> rows = mCatalog.inDirectory(path);
    DIR *listing = opendir(path.c_str());
    if (listing == nullptr) {
        const std::string reason = std::strerror(errno);
        for (const Recording &row : rows) {
            if (row.state != Recording::State::kMissing) {
                mCatalog.setState(row.path, Recording::State::kMissing);
            }
        }
        report(directory, 2, "storage directory " + path + " cannot be read: " + reason, 0);
        return;
    }
    std::set<std::string> onDisk;
    while (const dirent *entry = readdir(listing)) {
        if (isRecordingName(entry->d_name)) {
            onDisk.insert(path + "/" + entry->d_name);
        }
    }
    closedir(listing);

    std::set<std::string> writing;
    for (const auto &channel : mWriting) {
        writing.insert(channel.second);
    }
    const int64_t settledBefore = nowMs() - int64_t{mConfig.settleSeconds} * 1000;
    std::map<std::string, Recording> known;
    for (Recording &row : rows) {
        known[row.path] = std::move(row);
    }
    for (auto &entry : known) {
        Recording &row = entry.second;
        if (onDisk.count(row.path) == 0) {
            if (row.state != Recording::State::kMissing) {
                KEEPER_LOGW("Recording %s is gone from disk; marked missing\n", row.path.c_str());
                mCatalog.setState(row.path, Recording::State::kMissing);
            }
            continue;
        }
        struct stat status {};
        if (stat(row.path.c_str(), &status) != 0) {
            continue;
        }
        if (row.state == Recording::State::kFinished && row.container.empty() &&
            std::find(mUnprobed.begin(), mUnprobed.end(), row.path) == mUnprobed.end()) {
            // Finished while a keeper that died had no time for its figures.
            mUnprobed.push_back(row.path);
        } else if (!row.container.empty() && !row.decodedToEnd &&
                   std::find(mUnchecked.begin(), mUnchecked.end(), row.path) == mUnchecked.end()) {
            // Or for its end.
            mUnchecked.push_back(row.path);
        }
        const bool unsettled =
            row.state == Recording::State::kRecording || row.state == Recording::State::kMissing;
        if (unsettled && writing.count(row.path) == 0 && modifiedMs(status) < settledBefore) {
            // Written by a service the keeper lost track of, or back on disk.
            std::string error;
            FileProbe::fill(row, foundDepth(), &error);
            row.state = Recording::State::kFound;
            row.finishedMs = modifiedMs(status);
            mCatalog.put(row);
        }
    }
    for (const std::string &file : onDisk) {
        if (known.count(file) != 0) {
            continue;
        }
        struct stat status {};
        if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            continue;
        }
        Recording found;
        found.path = file;
        found.directory = path;
        found.state = Recording::State::kFound;
        found.locked = (status.st_mode & S_IWUSR) == 0;
        found.finishedMs = modifiedMs(status);
        std::string error;
        if (!FileProbe::fill(found, foundDepth(), &error)) {
            KEEPER_LOGW("Found %s, which does not read as a recording: %s\n", file.c_str(),
                        error.c_str());
        }
        found.startedMs = *found.finishedMs - static_cast<int64_t>(found.durationSeconds * 1000);
        mCatalog.put(found);
        KEEPER_LOGI("Catalogued %s, found on disk\n", file.c_str());
    }
}

void StorageKeeper::enforce(Managed &directory) {
    const std::string &path = directory.policy.path;
    for (;;) {
        struct statvfs space {};
        if (statvfs(path.c_str(), &space) != 0) {
            // Gone or unreadable: reconciling marks its rows and says so.
            reconcile(directory);
            return;
        }
        const int64_t freeBytes = int64_t(space.f_bavail) * int64_t(space.f_frsize);
        const int64_t goal = freeGoal(path) + inFlightReserve(path);
        const int64_t now = nowMs();
        std::string reason;
        if (freeBytes < goal) {
            reason = "free space " + megabytes(freeBytes) + " below " + megabytes(goal);
        } else if (directory.policy.totalGb &&
                   mCatalog.totalBytes(path) >
                       static_cast<int64_t>(*directory.policy.totalGb * kBytesPerGb)) {
            reason = "total above " + std::to_string(*directory.policy.totalGb) + " GB";
        }
        mCatalog.begin();
        try {
            const std::optional<Recording> oldest =
                mCatalog.oldestDeletable(path, now - int64_t{mConfig.settleSeconds} * 1000);
            if (reason.empty() && directory.policy.ageDays && oldest &&
                oldest->startedMs <
                    now - static_cast<int64_t>(*directory.policy.ageDays * kMsPerDay)) {
                reason = "older than " + std::to_string(*directory.policy.ageDays) + " days";
            }
            if (reason.empty()) {
                mCatalog.commit();
                report(directory, 0, "", freeBytes);
                return;
            }
            if (!oldest) {
                mCatalog.commit();
                report(directory, 1,
                       "cannot make room in " + path + " (" + reason +
                           "): only locked files or files being written remain",
                       freeBytes);
                return;
            }
            const Removal removal = remove(*oldest, reason, freeBytes);
            mCatalog.commit();
            if (removal == Removal::kFailed) {
                report(directory, 2, "cannot delete " + oldest->path + ": " + mLastError,
                       freeBytes);
                return;
            }
        } catch (...) {
            mCatalog.rollback();
            throw;
        }
    }
}

StorageKeeper::Removal StorageKeeper::remove(const Recording &recording, const std::string &reason,
                                             int64_t freeBefore) {
    struct stat status {};
    if (lstat(recording.path.c_str(), &status) != 0) {
        KEEPER_LOGW("Recording %s is gone from disk; marked missing\n", recording.path.c_str());
        mCatalog.setState(recording.path, Recording::State::kMissing);
        return Removal::kSkipped;
    }
    if ((status.st_mode & S_IWUSR) == 0) {
        KEEPER_LOGW("Recording %s is write-protected on disk; treated as locked\n",
                    recording.path.c_str());
        mCatalog.setLocked(recording.path, true);
        return Removal::kSkipped;
    }
    const int64_t settledBefore = nowMs() - int64_t{mConfig.settleSeconds} * 1000;
    if (recording.state == Recording::State::kFound && modifiedMs(status) >= settledBefore) {
        // Still growing: the service is writing it.
        Recording growing = recording;
        growing.finishedMs = modifiedMs(status);
        growing.bytes = status.st_size;
        mCatalog.put(growing);
        return Removal::kSkipped;
    }
    for (const auto &channel : mWriting) {
        if (channel.second == recording.path) {
            mCatalog.setState(recording.path, Recording::State::kRecording);
            return Removal::kSkipped;
        }
    }
    if (unlink(recording.path.c_str()) != 0) {
        mLastError = std::strerror(errno);
        KEEPER_LOGE("Cannot delete %s: %s\n", recording.path.c_str(), mLastError.c_str());
        return Removal::kFailed;
    }
    mCatalog.recordDeletion(recording, reason, freeBefore, nowMs());
    KEEPER_LOGI("Deleted %s (%s): %lld bytes, encoder %lld, started %lld ms\n",
                recording.path.c_str(), reason.c_str(), static_cast<long long>(recording.bytes),
                static_cast<long long>(recording.encoderId.value_or(-1)),
                static_cast<long long>(recording.startedMs));
    return Removal::kDeleted;
}

void StorageKeeper::report(Managed &directory, int health, const std::string &message,
                           int64_t freeBytes) {
    const int64_t now = nowMs();
    if (health != 0 &&
        (health != directory.health || now - directory.lastErrorLogMs >= kRepeatErrorMs)) {
        KEEPER_LOGE("%s\n", message.c_str());
        directory.lastErrorLogMs = now;
    } else if (health == 0 && directory.health != 0) {
        KEEPER_LOGI("The policy of %s holds again\n", directory.policy.path.c_str());
    }
    const bool changed = health != directory.health || message != directory.message;
    directory.health = health;
    directory.message = message;
    // At most once a second while nothing changes: this runs at every file.
    if (!changed && now - directory.lastWrittenMs < kStatusEveryMs) {
        return;
    }
    directory.lastWrittenMs = now;
    DirectoryStatus status;
    status.path = directory.policy.path;
    status.freeGoalBytes = freeGoal(directory.policy.path);
    if (directory.policy.totalGb) {
        status.totalLimitBytes = static_cast<int64_t>(*directory.policy.totalGb * kBytesPerGb);
    }
    status.ageLimitDays = directory.policy.ageDays;
    status.freeBytes = freeBytes;
    status.bytesPerSecond = bytesPerSecond(directory.policy.path);
    status.health = health;
    status.message = message;
    status.checkedMs = now;
    mCatalog.putDirectory(status);
}

std::vector<StorageKeeper::ChannelSettings> StorageKeeper::channelsInto(
    const std::string &directory, bool writingOnly) const {
    std::vector<ChannelSettings> channels;
    for (const auto &channel : mChannelDirectory) {
        const auto settings = mChannels.find(channel.first);
        if (channel.second == directory && settings != mChannels.end() &&
            (!writingOnly || mWriting.count(channel.first) != 0)) {
            channels.push_back(settings->second);
        }
    }
    return channels;
}

int64_t StorageKeeper::freeGoal(const std::string &directory) const {
    const auto found = mDirectories.find(directory);
    if (found != mDirectories.end() && found->second.policy.freeMb) {
        return static_cast<int64_t>(*found->second.policy.freeMb * kBytesPerMb);
    }
    int64_t goal = 0;
    for (const ChannelSettings &channel : channelsInto(directory, false)) {
        goal += 3 * channel.fileBytes();
    }
    return goal;
}

int64_t StorageKeeper::inFlightReserve(const std::string &directory) const {
    int64_t reserve = 0;
    for (const ChannelSettings &channel : channelsInto(directory, true)) {
        // The file being written and the next one: the keeper may be a
        // notification behind when the next file starts.
        reserve += 2 * channel.fileBytes();
    }
    return reserve;
}

double StorageKeeper::bytesPerSecond(const std::string &directory) const {
    double rate = 0;
    for (const ChannelSettings &channel : channelsInto(directory, true)) {
        rate += channel.bitRateMbps * 125000.0;
    }
    return rate;
}

}  // namespace dvrkeeper
