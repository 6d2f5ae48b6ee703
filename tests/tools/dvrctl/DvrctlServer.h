// A throwaway dvr_server on two small real-time simulated cameras (ids 10
// and 11, 320x240 at 10 fps), one audio input (20) and encoders 100 and 101,
// with dvrctl run in its working directory, so that relative storage paths
// such as "recordings" mean the same to both. One server per test case.
#ifndef DVR_TEST_DVRCTL_SERVER_H
#define DVR_TEST_DVRCTL_SERVER_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CommandResult.h"
#include "ServerProcess.h"

namespace dvrtest {

class DvrctlServer : public ::testing::Test {
protected:
    void SetUp() override;

    // dvrctl WORDS (a shell command line) against the server.
    CommandResult dvrctl(const std::string &words);
    // The names in the server's directory relative, sorted.
    std::vector<std::string> filesIn(const std::string &relative) const;

    ServerProcess mServer;
    std::string mArena;  // the simulator's frame memory, for snapshots
};

}  // namespace dvrtest

#endif  // DVR_TEST_DVRCTL_SERVER_H
