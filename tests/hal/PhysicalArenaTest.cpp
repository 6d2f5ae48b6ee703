#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "DVRPhysicalArena.h"
#include "TempDir.h"

using dvrspace::DVRPhysicalArena;

namespace {

std::unique_ptr<DVRPhysicalArena> makeArena(const dvrtest::TempDir &dir, size_t bytes) {
    std::string error;
    auto arena =
        DVRPhysicalArena::create(dir.file("arena"), bytes, DVRPhysicalArena::kDefaultBase, &error);
    EXPECT_NE(nullptr, arena) << error;
    return arena;
}

// The pid of a child that has exited and been reaped.
pid_t deadProcessId() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    return child > 0 && waitpid(child, nullptr, 0) == child ? child : -1;
}

}  // namespace

TEST(PhysicalArena, HandsOutPageAlignedZeroedBuffersWithStablePhysicalAddresses) {
    dvrtest::TempDir dir;
    auto arena = makeArena(dir, 1 << 20);
    ASSERT_NE(nullptr, arena);
    DVRPhysicalArena::Buffer first{};
    DVRPhysicalArena::Buffer second{};
    ASSERT_TRUE(arena->allocate(5000, &first));
    ASSERT_TRUE(arena->allocate(100, &second));
    EXPECT_EQ(DVRPhysicalArena::kDefaultBase + DVRPhysicalArena::kPageSize, first.pa);
    EXPECT_EQ(8192u, first.size);
    EXPECT_EQ(first.pa + first.size, second.pa);
    EXPECT_EQ(0, static_cast<const uint8_t *>(first.va)[4999]);
    EXPECT_EQ(first.va, arena->translate(first.pa, first.size));
    EXPECT_EQ(static_cast<uint8_t *>(first.va) + 10, arena->translate(first.pa + 10, 100));
}

TEST(PhysicalArena, UnknownOrStraddlingAddressesTranslateToNull) {
    dvrtest::TempDir dir;
    auto arena = makeArena(dir, 1 << 20);
    ASSERT_NE(nullptr, arena);
    DVRPhysicalArena::Buffer buffer{};
    ASSERT_TRUE(arena->allocate(4096, &buffer));
    EXPECT_EQ(nullptr, arena->translate(0, 1));
    EXPECT_EQ(nullptr, arena->translate(0xfffff000u, 16));
    EXPECT_EQ(nullptr, arena->translate(DVRPhysicalArena::kDefaultBase, 16));  // header page
    EXPECT_EQ(nullptr, arena->translate(buffer.pa + 4096, 16));                // not allocated
    EXPECT_EQ(nullptr, arena->translate(buffer.pa + 4000, 200));               // runs past it
    arena->release(buffer.pa);
    EXPECT_EQ(nullptr, arena->translate(buffer.pa, 16));
}

TEST(PhysicalArena, ReleasedSpaceIsReusedAndAFullArenaRefuses) {
    dvrtest::TempDir dir;
    auto arena = makeArena(dir, 4 * DVRPhysicalArena::kPageSize);
    ASSERT_NE(nullptr, arena);
    DVRPhysicalArena::Buffer a{}, b{}, c{}, d{};
    ASSERT_TRUE(arena->allocate(4096, &a));
    ASSERT_TRUE(arena->allocate(4096, &b));
    ASSERT_TRUE(arena->allocate(4096, &c));
    EXPECT_FALSE(arena->allocate(1, &d));
    arena->release(b.pa);
    ASSERT_TRUE(arena->allocate(10, &d));
    EXPECT_EQ(b.pa, d.pa);
}

TEST(PhysicalArena, RejectsSizesBeyondThirtyTwoBitAddresses) {
    dvrtest::TempDir dir;
    std::string error;
    EXPECT_EQ(nullptr,
              DVRPhysicalArena::create(dir.file("big"), size_t(1) << 31, 0xC0000000u, &error));
    EXPECT_NE(std::string::npos, error.find("32-bit"));
}

TEST(PhysicalArena, AnotherProcessAttachesAndReadsTheSameBytes) {
    dvrtest::TempDir dir;
    auto arena = makeArena(dir, 1 << 20);
    ASSERT_NE(nullptr, arena);
    DVRPhysicalArena::Buffer buffer{};
    ASSERT_TRUE(arena->allocate(64, &buffer));
    std::strcpy(static_cast<char *>(buffer.va), "frame bytes");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string error;
        auto view = DVRPhysicalArena::attach(dir.file("arena"), &error);
        const char *bytes =
            view == nullptr ? nullptr : static_cast<const char *>(view->translate(buffer.pa, 12));
        _exit(bytes != nullptr && std::strcmp(bytes, "frame bytes") == 0 && !view->isOwner() ? 0
                                                                                             : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(PhysicalArena, AttachingSomethingElseFailsWithAReason) {
    dvrtest::TempDir dir;
    std::string error;
    EXPECT_EQ(nullptr, DVRPhysicalArena::attach(dir.write("junk", "not an arena"), &error));
    EXPECT_NE(std::string::npos, error.find("is not a physical memory arena")) << error;
    EXPECT_EQ(nullptr, DVRPhysicalArena::attach(dir.file("missing"), &error));
    EXPECT_NE(std::string::npos, error.find("cannot open")) << error;
}

TEST(PhysicalArena, TheCreatorRemovesItsFile) {
    dvrtest::TempDir dir;
    {
        auto arena = makeArena(dir, 1 << 16);
        ASSERT_EQ(0, access(dir.file("arena").c_str(), F_OK));
    }
    EXPECT_NE(0, access(dir.file("arena").c_str(), F_OK));
}

TEST(PhysicalArena, StaleDefaultArenasOfDeadProcessesAreRemoved) {
    dvrtest::TempDir dir;
    const pid_t child = deadProcessId();
    ASSERT_GT(child, 0);
    const std::string dead = dir.write("dvr-hal-arena-" + std::to_string(child), "x");
    const std::string alive = dir.write("dvr-hal-arena-" + std::to_string(getpid()), "x");
    const std::string other = dir.write("dvr-hal-arena-notes", "x");
    DVRPhysicalArena::removeStale(dir.path());
    EXPECT_NE(0, access(dead.c_str(), F_OK));
    EXPECT_EQ(0, access(alive.c_str(), F_OK));
    EXPECT_EQ(0, access(other.c_str(), F_OK));
}

TEST(PhysicalArena, FindsTheDefaultArenasOfRunningProcessesOnly) {
    dvrtest::TempDir dir;
    const pid_t child = deadProcessId();
    ASSERT_GT(child, 0);
    dir.write("dvr-hal-arena-" + std::to_string(child), "x");
    const std::string alive = dir.write("dvr-hal-arena-" + std::to_string(getpid()), "x");
    const std::string parent = dir.write("dvr-hal-arena-" + std::to_string(getppid()), "x");
    dir.write("dvr-hal-arena-notes", "x");
    dir.write("arena-" + std::to_string(getpid()), "x");
    std::vector<std::string> expected = {alive, parent};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, DVRPhysicalArena::findLive(dir.path()));
    EXPECT_TRUE(DVRPhysicalArena::findLive(dir.file("missing")).empty());
}
