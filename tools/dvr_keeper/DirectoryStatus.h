// What the keeper last found in one storage directory it manages, kept in
// the catalog for `dvr-keeper stats`.
#ifndef DVR_KEEPER_DIRECTORY_STATUS_H
#define DVR_KEEPER_DIRECTORY_STATUS_H

#include <cstdint>
#include <optional>
#include <string>

namespace dvrkeeper {

struct DirectoryStatus {
    std::string path;
    int64_t freeGoalBytes = 0;  // the free space the policy keeps
    std::optional<int64_t> totalLimitBytes;
    std::optional<double> ageLimitDays;
    int64_t freeBytes = 0;
    double bytesPerSecond = 0;  // what the channels writing here record
    // 0: the policy holds; 1: it cannot be met without deleting a locked
    // file or one being written; 2: the directory cannot be read.
    int health = 0;
    std::string message;  // why health is not 0
    int64_t checkedMs = 0;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_DIRECTORY_STATUS_H
