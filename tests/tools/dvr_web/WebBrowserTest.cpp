// The console's page in headless Chromium against a live dvr_server and
// keeper: browser_check.py drives it (start from the page, the event, a
// roll-over, the file with its thumbnail, playing, seeking, locking); this
// test checks what the page cannot see: the range requests the player made
// and the lock in the catalog. Screenshots stay under the build tree.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "Catalog.h"
#include "CommandResult.h"
#include "ConsoleRig.h"
#include "RecordingIndex.h"

namespace {

// Long enough that a file plays past 2 s.
constexpr int kFileSeconds = 4;
constexpr int kSkipStatus = 77;

TEST(WebBrowser, PageStartsRecordingPlaysSeeksAndLocks) {
    dvrtest::ConsoleRig rig;
    ASSERT_NO_FATAL_FAILURE(rig.start(kFileSeconds));
    const dvrtest::CommandResult result =
        dvrtest::runCommand(std::string("/usr/bin/python3 '") + DVR_WEB_BROWSER_CHECK + "' '" +
                            rig.web->url() + "/' '" + DVR_WEB_SCREENSHOTS + "'");
    if (result.status == kSkipStatus) {
        GTEST_SKIP() << result.out;
    }
    ASSERT_EQ(0, result.status) << result.out << result.err << rig.web->log();
    const size_t locked = result.out.find("LOCKED ");
    ASSERT_NE(std::string::npos, locked) << result.out;
    const std::string id = result.out.substr(locked + 7, 16);
    // The player asked for the MP4 in ranges, and got them.
    EXPECT_GE(rig.web->countInLog("/video.mp4 206 range bytes="), 1u) << rig.web->log();
    EXPECT_EQ(0u, rig.web->countInLog("/video.mp4 4")) << rig.web->log();
    const auto catalog = dvrkeeper::Catalog::open(rig.database, dvrkeeper::Catalog::Damaged::kFail);
    bool found = false;
    catalog->forEach({}, [&](const dvrkeeper::Recording &recording) {
        if (dvrweb::RecordingIndex::idOf(recording.path) == id) {
            found = true;
            EXPECT_TRUE(recording.locked) << recording.path;
            EXPECT_EQ(100, recording.encoderId.value_or(-1));
        }
    });
    EXPECT_TRUE(found) << id;
}

}  // namespace
