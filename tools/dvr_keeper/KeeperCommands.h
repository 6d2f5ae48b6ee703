// The command line's face of the catalog: lock, unlock, list and stats.
// Each works on an open catalog, prints to out (errors to stderr) and
// returns the exit status: 0 done, 1 failed (nothing to lock, a file not in
// the catalog). Main thread.
#ifndef DVR_KEEPER_KEEPER_COMMANDS_H
#define DVR_KEEPER_KEEPER_COMMANDS_H

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "Catalog.h"

namespace dvrkeeper {

struct CommandOptions {
    bool json = false;
    std::optional<int64_t> channel;
    std::optional<int> last;
    std::optional<int64_t> sinceMs;
    std::vector<std::string> files;
};

// lock and unlock: the files named, or the newest `last` recordings of
// `channel` (the one being written included). A lock also clears the file's
// write bits, an unlock gives the owner write permission back.
int setLockCommand(Catalog &catalog, const CommandOptions &options, bool lock, std::FILE *out);
int listCommand(Catalog &catalog, const CommandOptions &options, std::FILE *out);
int statsCommand(Catalog &catalog, const CommandOptions &options, std::FILE *out);

// "1700000000" (seconds since the epoch), "2026-11-23", "2026-11-23 20:15"
// or "2026-11-23T20:15:30" (local time); nothing when it is none of these.
std::optional<int64_t> parseTimeMs(const std::string &text);

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_KEEPER_COMMANDS_H
