#include "common/boot_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <locale>
#include <string>

namespace ProcMgr {
namespace {

class GroupingFacet : public std::numpunct<char> {
protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(BootStrace, At1234Point5678901SecondsYieldsTheBracketsWithoutBlanksBetweenThem) {
    EXPECT_EQ(BootStraceAt(12345678901, 10000000, "x"), "[1234.567890s][BOOT_TRACE][x]");
}

TEST(BootStrace, IsEmptyWhenTheCounterHasNoFrequency) {
    EXPECT_EQ(BootStraceAt(1, 0, "x"), "");
}

TEST(BootStrace, StartsAtZero) {
    EXPECT_EQ(BootStraceAt(0, 1000000000, ""), "[0.000000s][BOOT_TRACE][]");
}

TEST(BootStrace, TakesTheLargestCounter) {
    EXPECT_EQ(BootStraceAt(std::numeric_limits<uint64_t>::max(), 1, "x"),
              "[18446744073709551616.000000s][BOOT_TRACE][x]");
}

TEST(BootStrace, IsNotBentByTheLocaleOfTheProcess) {
    std::locale::global(std::locale(std::locale::classic(), new GroupingFacet));
    EXPECT_EQ(BootStraceAt(12345678901, 10000000, "x"), "[1234.567890s][BOOT_TRACE][x]");
}

TEST(BootStrace, ReadsTheCounterOfTheMachine) {
    EXPECT_THAT(BootStrace("GroupOwner start"),
                testing::MatchesRegex(R"(\[[0-9]+\.[0-9]+s\]\[BOOT_TRACE\]\[GroupOwner start\])"));
}

TEST(BootStrace, GoesForwardInTime) {
    const double first = std::stod(BootStrace("a").substr(1));
    const double second = std::stod(BootStrace("b").substr(1));
    EXPECT_LE(first, second);
    EXPECT_GT(first, 0.0);
}

}  // namespace
}  // namespace ProcMgr
