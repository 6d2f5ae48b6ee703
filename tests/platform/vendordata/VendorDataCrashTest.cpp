// Kills a writing process at random instants and checks after each kill that
// the store is intact and that every position holds exactly the value of its
// last completed write, or, for the write under way, that or the new value.
#include "qv_vendor_data.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <string>

#include "LogCapture.h"
#include "TempDir.h"

namespace {

// The writer stamps round n into these positions, always in this order, one
// store write each: a 4-byte counter, a boolean (n odd), an 8-byte text and a
// 2-byte integer.
constexpr int kCounterPosition = 0;
constexpr int kParityPosition = 10;
constexpr int kTextPosition = 20;
constexpr int kShortPosition = 100;
constexpr int kPositions = 4;

bool writeOne(int round, int position) {
    switch (position) {
        case 0:
            return qv_vendor_data_write_int(kCounterPosition, 4, round) == 0;
        case 1:
            return qv_vendor_data_write_bool(kParityPosition, round % 2 == 1) == 0;
        case 2:
            return qv_vendor_data_write_string(kTextPosition, 8, std::to_string(round).c_str()) ==
                   0;
        default:
            return qv_vendor_data_write_int(kShortPosition, 2, round) == 0;
    }
}

// Writes round after round from firstRound on, reporting each completed write
// with one byte on doneFd, until killed.
[[noreturn]] void writeUntilKilled(int firstRound, int doneFd) {
    for (int round = firstRound;; ++round) {
        for (int position = 0; position < kPositions; ++position) {
            const char done = 1;
            if (!writeOne(round, position) || write(doneFd, &done, 1) != 1) {
                _exit(1);
            }
        }
    }
}

// The round each position holds. The parity alone tells only which of two
// neighbouring rounds, so it is resolved against the older one, parityHint.
void roundsInStore(int parityHint, int rounds[kPositions]) {
    ASSERT_EQ(0, qv_vendor_data_read_int(kCounterPosition, 4, &rounds[0]));
    bool odd = false;
    ASSERT_EQ(0, qv_vendor_data_read_bool(kParityPosition, &odd));
    rounds[1] = (parityHint % 2 == 1) == odd ? parityHint : parityHint + 1;
    char text[8] = {};
    ASSERT_EQ(0, qv_vendor_data_read_string(kTextPosition, 8, text));
    rounds[2] = atoi(text);
    ASSERT_EQ(0, qv_vendor_data_read_int(kShortPosition, 2, &rounds[3]));
}

}  // namespace

TEST(VendorDataCrashTest, KillingAWriterAtAnyInstantLeavesOldOrNewValues) {
    constexpr int kKills = 200;
    dvrtest::TempDir dir;
    setenv("DVR_VENDOR_DATA", dir.file("vendor_data").c_str(), 1);
    dvrtest::LogCapture capture;
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // A write takes two fsyncs (milliseconds on a disk); the window spans a
    // few writes so that kills land before, inside and between them.
    std::uniform_int_distribution<int> delayUs(0, 30000);

    int held[kPositions];  // the round each position holds
    for (int position = 0; position < kPositions; ++position) {
        ASSERT_TRUE(writeOne(1, position));
        held[position] = 1;
    }
    for (int kill = 0; kill < kKills; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        // A restarted writer first finishes the round the counter shows, so no
        // position is ever more than one round behind another and the parity
        // tells the two candidate rounds apart.
        const int firstRound = held[0];
        int done[2];
        ASSERT_EQ(0, pipe(done));
        pid_t writer = fork();
        ASSERT_NE(-1, writer);
        if (writer == 0) {
            close(done[0]);
            writeUntilKilled(firstRound, done[1]);
        }
        close(done[1]);
        usleep(static_cast<useconds_t>(delayUs(random)));
        ASSERT_EQ(0, ::kill(writer, SIGKILL));
        int status = 0;
        ASSERT_EQ(writer, waitpid(writer, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status)) << "writer stopped by itself, status " << status;
        int completed = 0;
        char byte;
        while (read(done[0], &byte, 1) == 1) {
            ++completed;
        }
        close(done[0]);

        // Write i of the child went to position i % 4 with round
        // firstRound + i / 4; write number `completed` may have been under way.
        int expected[kPositions];
        for (int position = 0; position < kPositions; ++position) {
            const int writesTo = completed > position ? (completed - position + 3) / 4 : 0;
            expected[position] = writesTo > 0 ? firstRound + writesTo - 1 : held[position];
        }
        const int pending = completed % kPositions;
        const int pendingRound = firstRound + completed / kPositions;
        int rounds[kPositions];
        ASSERT_NO_FATAL_FAILURE(roundsInStore(expected[1], rounds));
        for (int position = 0; position < kPositions; ++position) {
            if (position == pending && rounds[position] == pendingRound) {
                continue;
            }
            ASSERT_EQ(expected[position], rounds[position])
                << "position " << position << " after " << completed << " completed writes";
        }
        std::copy(rounds, rounds + kPositions, held);
    }
    EXPECT_TRUE(capture.messagesContaining("damaged").empty());
}
