// The list's line builder writes what printf would, for the formats the
// list uses.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "TextLine.h"

namespace {

using dvrkeeper::TextLine;

std::string printed(const char *format, long long value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string printed(const char *format, double value) {
    char text[400];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

TEST(KeeperTextLine, IntegersAreWrittenAsPrintfWritesThem) {
    for (const long long value : {0LL, 7LL, -7LL, 42LL, 123456LL, -123456LL, 30000000LL,
                                  9223372036854775807LL, -9223372036854775807LL - 1}) {
        TextLine line;
        line.integer(value);
        EXPECT_EQ(printed("%lld", value), line.str());
        line.clear();
        line.integer(value, 6);
        EXPECT_EQ(printed("%6lld", value), line.str());
        line.clear();
        line.integer(value, 4, '0');
        EXPECT_EQ(printed("%04lld", value), line.str());
    }
}

TEST(KeeperTextLine, FixedDecimalsAreRoundedAsPrintfRoundsThem) {
    for (const double value :
         {0.0, 0.05, 0.15, 0.25, 1.0 / 3, 2.675, 59.9999, 60.0, -1.25, 123456.789, 1e20, -0.04}) {
        TextLine line;
        line.fixed(value, 1, 8);
        EXPECT_EQ(printed("%8.1f", value), line.str()) << value;
        line.clear();
        line.fixed(value, 3);
        EXPECT_EQ(printed("%.3f", value), line.str()) << value;
    }
}

TEST(KeeperTextLine, PaddingDateAndJsonText) {
    TextLine line;
    line.padded("-", 4, false).text("|").padded("finished", 9, true).text("|");
    line.padded("recording", 6, true);
    EXPECT_EQ("   -|finished |recording", line.str());

    std::tm time{};
    time.tm_year = 126;
    time.tm_mon = 10;
    time.tm_mday = 3;
    time.tm_hour = 4;
    time.tm_min = 5;
    time.tm_sec = 6;
    line.clear();
    line.dateTime(time);
    EXPECT_EQ("2026-11-03 04:05:06", line.str());

    line.clear();
    line.json(std::string("a\"b\\c\nd\te\x01", 10));
    EXPECT_EQ("\"a\\\"b\\\\c\\nd\\u0009e\\u0001\"", line.str());
}

}  // namespace
