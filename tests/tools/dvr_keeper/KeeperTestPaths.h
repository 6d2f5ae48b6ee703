// Small helpers the keeper's tests share: the wall clock as the keeper
// stamps its rows, and paths resolved as the keeper resolves them.
#ifndef DVR_TEST_KEEPER_TEST_PATHS_H
#define DVR_TEST_KEEPER_TEST_PATHS_H

#include <cstdint>
#include <string>

namespace dvrtest {

// Milliseconds since the epoch.
int64_t wallClockMs();
// path with symbolic links and dots resolved; path itself when it does not
// exist.
std::string resolvedPath(const std::string &path);

}  // namespace dvrtest

#endif  // DVR_TEST_KEEPER_TEST_PATHS_H
