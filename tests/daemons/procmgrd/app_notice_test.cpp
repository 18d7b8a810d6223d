#include "daemons/procmgrd/app_notice.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace Procmgrd {
namespace {

AppNotice Read(std::string_view text) {
    return ReadAppNotice(text, true);
}

bool SaysNothing(const AppNotice& notice) {
    return !notice.appState && !notice.status && !notice.isBeat && !notice.isBarrier;
}

TEST(AppNotice, KnowsTheTextsOfOurLibrary) {
    EXPECT_EQ(Read("procmgr 1 on").appState, 0U);
    EXPECT_EQ(Read("procmgr 1 off").appState, 1U);
    EXPECT_TRUE(Read("procmgr 1 beat").isBeat);
    EXPECT_FALSE(Read("procmgr 1 beat").appState.has_value());
    EXPECT_TRUE(Read("procmgr 1 on").isUnderstood);
}

TEST(AppNotice, KnowsTheAssignmentsOfUnmodifiedPrograms) {
    EXPECT_EQ(Read("READY=1").appState, 0U);
    EXPECT_EQ(Read("STOPPING=1").appState, 1U);
    EXPECT_TRUE(Read("WATCHDOG=1").isBeat);
    EXPECT_TRUE(Read("BARRIER=1").isBarrier);
    EXPECT_EQ(Read("STATUS=42 maps loaded").status, "42 maps loaded");
    EXPECT_EQ(Read("STATUS=").status, "");
}

TEST(AppNotice, TakesSeveralLinesOfOneDatagram) {
    const AppNotice notice = Read("READY=1\nSTATUS=ready to drive\nWATCHDOG=1\n");
    EXPECT_EQ(notice.appState, 0U);
    EXPECT_EQ(notice.status, "ready to drive");
    EXPECT_TRUE(notice.isBeat);
    EXPECT_FALSE(notice.isBarrier);
}

TEST(AppNotice, OfTwoStatesTakesTheLast) {
    EXPECT_EQ(Read("READY=1\nSTOPPING=1").appState, 1U);
    EXPECT_EQ(Read("STOPPING=1\nprocmgr 1 on").appState, 0U);
    EXPECT_EQ(Read("STATUS=a\nSTATUS=b").status, "b");
}

TEST(AppNotice, PassesOverAssignmentsThatNobodyHandles) {
    const AppNotice notice = Read("MAINPID=4711\nX_COLOUR=blue\nREADY=1\nFDSTORE=1");
    EXPECT_EQ(notice.appState, 0U);
    EXPECT_TRUE(notice.isUnderstood);
    EXPECT_TRUE(SaysNothing(Read("MAINPID=4711")));
    EXPECT_TRUE(Read("MAINPID=4711").isUnderstood) << "it is no reason for a complaint";
}

TEST(AppNotice, TakesNothingThatOnlyLooksAlike) {
    for (const char* text : {"", "\n\n", "procmgr 1", "procmgr 2 on", "procmgr 1 offs", "on", "ready", "READY=0",
                             "READY=10", " READY=1", "READY=1 ", "ready=1", "WATCHDOG=trigger", "=1", "XSTATUS"}) {
        EXPECT_TRUE(SaysNothing(Read(text))) << text;
    }
    EXPECT_FALSE(Read("on").isUnderstood);
    EXPECT_FALSE(Read("=1").isUnderstood);
    EXPECT_FALSE(Read("").isUnderstood);
}

TEST(AppNotice, WritesControlCharactersOfAStatusOut) {
    EXPECT_EQ(Read(std::string_view("STATUS=a\x1b[2J\tb\x7f\0c", 17)).status, "a\\x1b[2J\\x09b\\x7f\\x00c");
    EXPECT_EQ(Read("STATUS=\xc3\xa4").status, "\xc3\xa4") << "other bytes stay";
}

TEST(AppNotice, ForgivesTheEndOfACText) {
    EXPECT_EQ(Read(std::string_view("READY=1", 8)).appState, 0U);
    EXPECT_FALSE(Read(std::string_view("READY=1\0\0", 9)).appState.has_value());
}

TEST(AppNotice, OfACutDatagramTakesTheWholeLinesOnly) {
    const AppNotice notice = ReadAppNotice("READY=1\nSTATUS=something lo", false);
    EXPECT_EQ(notice.appState, 0U);
    EXPECT_FALSE(notice.status.has_value());
    EXPECT_TRUE(SaysNothing(ReadAppNotice("WATCHDOG=1", false))) << "it may have been WATCHDOG=10";
    EXPECT_TRUE(ReadAppNotice("WATCHDOG=1\n", false).isBeat);
}

TEST(AppNotice, ReadsWhateverBytesComeWithoutHarm) {
    std::mt19937 random(1);
    const std::string known = "READY=1\nSTATUS=x\nWATCHDOG=1\nprocmgr 1 on";
    for (int round = 0; round < 20000; ++round) {
        std::string bytes = known.substr(random() % known.size());
        for (int change = 0; change < 4; ++change) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        const AppNotice notice = ReadAppNotice(bytes, random() % 2 == 0);
        if (notice.status) {
            EXPECT_EQ(notice.status->find_first_of(std::string_view("\0\n\x1b\x7f", 4)), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace Procmgrd
