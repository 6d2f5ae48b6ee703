// What the keeper daemon is told: where its catalog is, which service it
// follows and the policy of every storage directory it manages. Read from a
// configuration file (one "KEY VALUE" a line, the long option names without
// their dashes, '#' comments) and from the command line, which wins.
#ifndef DVR_KEEPER_KEEPER_CONFIG_H
#define DVR_KEEPER_KEEPER_CONFIG_H

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace dvrkeeper {

struct DirectoryPolicy {
    std::string path;
    // Free space to keep; without it three files' worth of every channel
    // writing into the directory, from the service's bit rate and file length.
    std::optional<double> freeMb;
    std::optional<double> totalGb;  // keep the recordings' total at most this
    std::optional<double> ageDays;  // delete finished recordings older than this
};

struct KeeperConfig {
    static constexpr const char *kDefaultDatabase = "/var/lib/dvr-keeper/catalog.db";

    std::string database = kDefaultDatabase;
    std::string service = "dvr";
    // Relative paths in the service's notifications are relative to this.
    std::string serverDir = "/";
    int intervalSeconds = 10;  // the policy timer
    // A file found on disk that was written to less than this long ago may be
    // the one the service is writing; it is not deleted before then.
    int settleSeconds = 30;
    bool verify = false;  // decode every picture of each finished file
    std::vector<DirectoryPolicy> directories;

    // "PATH[,free-mb=F][,total-gb=S][,age-days=D]"; throws
    // std::invalid_argument with the reason.
    static DirectoryPolicy parseDirectory(const std::string &text);
    // Applies one option by its long name ("dir", "db", ...); throws
    // std::invalid_argument for an unknown name or a bad value.
    void set(const std::string &name, const std::string &value);
    // Applies every line of a configuration file; throws
    // std::invalid_argument naming the file and line.
    void load(const std::string &file);
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_CONFIG_H
