// The keeper's work on the catalog and the storage directories, without the
// service connection: records what the service reports, reconciles the
// catalog with the directories and makes room by deleting the oldest
// unlocked, finished recordings. Called from the daemon's one worker thread.
//
// It deletes only a recording that it catalogued in a directory it manages,
// that is finished (or found on disk and settled), not locked in the catalog
// and still writable on disk (a lock also clears the file's write bits).
#ifndef DVR_KEEPER_STORAGE_KEEPER_H
#define DVR_KEEPER_STORAGE_KEEPER_H

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Catalog.h"
#include "FileProbe.h"
#include "KeeperConfig.h"

namespace dvrkeeper {

class StorageKeeper {
public:
    // What the service records on one channel.
    struct ChannelSettings {
        int bitRateMbps = 0;
        int fileLengthSeconds = 0;
        int64_t fileBytes() const { return int64_t{bitRateMbps} * 125000 * fileLengthSeconds; }
    };

    // config's directories are resolved (symbolic links, trailing slashes)
    // as far as they exist.
    StorageKeeper(Catalog &catalog, const KeeperConfig &config);

    // A path from the service, absolute and with its directory resolved.
    std::string resolve(const std::string &servicePath) const;
    void setChannel(int encoderId, const ChannelSettings &settings);

    // Record-start that arrived at atMs: catalogs the file as being written,
    // then makes room in its directory.
    void recordStarted(int encoderId, const std::string &servicePath, int64_t atMs);
    // Record-finish that arrived at atMs: catalogs the file as finished (so
    // deletable) and queues it for its figures.
    void recordFinished(int encoderId, const std::string &servicePath, int64_t atMs);
    // Reads the figures of one finished file that has none yet, or else
    // checks whether one decodes to its end; false when neither waits.
    // Called when nothing more urgent is to be done.
    bool probeOne();
    bool hasUnprobed() const { return !mUnprobed.empty() || !mUnchecked.empty(); }
    // The service went away: no file is being written any more as far as
    // the keeper can tell (the rows stay "recording" until reconciled).
    void serviceLost();

    // Adds files on disk missing from the catalog, marks rows whose file is
    // gone, settles rows of files no longer written to. Every managed
    // directory.
    void reconcile();
    // Makes every managed directory meet its policy.
    void enforce();

    // The wall clock in ms since the epoch, as the catalog keeps times.
    static int64_t nowMs();

    // The free space a directory's policy keeps, and the room kept on top
    // while channels write there: two files' worth of each (the current file
    // and the next, for a keeper that is a notification behind).
    int64_t freeGoal(const std::string &directory) const;
    int64_t inFlightReserve(const std::string &directory) const;

private:
    struct Managed {
        DirectoryPolicy policy;
        int health = 0;
        std::string message;
        int64_t lastErrorLogMs = 0;
        int64_t lastWrittenMs = 0;  // of the status in the catalog
    };

    enum class Removal { kDeleted, kSkipped, kFailed };

    Managed *managed(const std::string &directory);
    // Fills recording's figures from its file, logging a file that does not
    // read as a recording.
    void probe(Recording &recording, FileProbe::Depth depth) const;
    // A file found on disk, or finished without a start seen, is read in one
    // go, its end included.
    FileProbe::Depth foundDepth() const {
        return mConfig.verify ? FileProbe::Depth::kEveryPicture : FileProbe::Depth::kLastGroup;
    }
    void reconcile(Managed &directory);
    void enforce(Managed &directory);
    // Deletes one recording inside the caller's transaction, or finds that
    // it must not be deleted after all (and corrects its row), or fails
    // (mLastError says why).
    Removal remove(const Recording &recording, const std::string &reason, int64_t freeBefore);
    void report(Managed &directory, int health, const std::string &message, int64_t freeBytes);
    double bytesPerSecond(const std::string &directory) const;
    // The settings of the channels whose files go into directory (writingOnly:
    // of those writing a file there now).
    std::vector<ChannelSettings> channelsInto(const std::string &directory, bool writingOnly) const;

    Catalog &mCatalog;
    const KeeperConfig &mConfig;
    std::map<std::string, Managed> mDirectories;  // by resolved path
    std::map<int, ChannelSettings> mChannels;
    // The file each channel is writing, and where.
    std::map<int, std::string> mWriting;
    std::map<int, std::string> mChannelDirectory;
    std::string mLastError;
    std::deque<std::string> mUnprobed;   // finished files without figures
    std::deque<std::string> mUnchecked;  // with figures, their end not checked
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_STORAGE_KEEPER_H
