#include "tools/ssctl/progress.h"

#include <gtest/gtest.h>

using namespace Ssctl;

TEST(ProgressText, SaysWhatHowLongAndHowLongAtMost) {
    EXPECT_EQ(ProgressText("stopping 1, starting 2", 1290, 6000), "| stopping 1, starting 2: 1.2 s of at most 6.0 s");
}

TEST(ProgressText, TurnsItsSpokeEveryTenthOfASecond) {
    std::string spokes;
    for (uint64_t elapsed = 0; elapsed < 500; elapsed += 100) {
        spokes += ProgressText("", elapsed, 1)[0];
    }
    EXPECT_EQ(spokes, "|/-\\|");
}
