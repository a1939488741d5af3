#include "apps/Format.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <sstream>

#include "apps/Table.h"

namespace App {
namespace {

using namespace std::chrono_literals;

TEST(FormatDuration, ShowsTheDigitsThatMatter) {
    EXPECT_EQ(formatDuration(0ns), "0.0000 ms");
    EXPECT_EQ(formatDuration(400ns), "0.0004 ms");
    EXPECT_EQ(formatDuration(20us), "0.02 ms");
    EXPECT_EQ(formatDuration(994us), "0.99 ms");
    EXPECT_EQ(formatDuration(996us), "1.0 ms");
    EXPECT_EQ(formatDuration(3140us), "3.1 ms");
    EXPECT_EQ(formatDuration(9960us), "10 ms");
    EXPECT_EQ(formatDuration(250ms), "250 ms");
    EXPECT_EQ(formatDuration(30s), "30000 ms");
}

// Local time is UTC, whatever the machine says.
class FormatTime : public testing::Test {
  protected:
    FormatTime() { choose("UTC0"); }
    ~FormatTime() override {
        unsetenv("TZ");
        tzset();
    }
    static void choose(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

TEST_F(FormatTime, IsLocal) {
    EXPECT_EQ(formatTime(1709251198000), "2024-02-29 23:59:58");
    EXPECT_EQ(formatTime(1709251198999), "2024-02-29 23:59:58");
    choose("EAST-2");
    EXPECT_EQ(formatTime(1709251198000), "2024-03-01 01:59:58");
}

TEST_F(FormatTime, OfNothingIsADash) {
    EXPECT_EQ(formatTime(0), "-");
    EXPECT_EQ(formatTime(1), "1970-01-01 00:00:00");
}

TEST_F(FormatTime, BeyondAnyCalendarIsStillAnswered) {
    const unsigned long most = std::numeric_limits<unsigned long>::max();
    EXPECT_FALSE(formatTime(most).empty());
    EXPECT_EQ(formatTime(253402300800000), "10000-01-01 00:00:00");
}

TEST(TableTest, AlignsColumnsButTheLast) {
    Table table({{Table::Align::Left, 3}, {Table::Align::Right, 0}, {}});
    table.add({"a", "1", "x"});
    table.add({"bcde", "100", "yy"});
    std::ostringstream out;
    table.print(out);
    EXPECT_EQ(out.str(), "a       1  x\nbcde  100  yy\n");
}

TEST(TableTest, OfNothingIsNothing) {
    std::ostringstream out;
    Table({{}, {}}).print(out);
    EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace App
