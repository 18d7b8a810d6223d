#include "common/grp_owner_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/fake_platform/fake_log.h"

namespace ProcMgr {
namespace {

using Lines = std::vector<std::string>;

struct LevelRow {
    int32_t level;
    int32_t kmon;
    int syslogPriority;
};

constexpr LevelRow kLevelRows[] = {
    {0, 0, 7}, {1, 1, 6}, {2, 2, 4}, {3, 3, 3}, {4, 16, 5}, {5, 1, 6}, {9, 1, 6}, {-1, 1, 6}, {16, 1, 6},
};

TEST(LogLevels, MapToTheLevelsOfBothSinksWithAFallbackForAnyOtherValue) {
    for (const LevelRow& row : kLevelRows) {
        EXPECT_EQ(GetKmonLevel(static_cast<GrpOwnerLogLevel>(row.level)), row.kmon) << row.level;
        EXPECT_EQ(GetSyslogLevel(static_cast<GrpOwnerLogLevel>(row.level)), row.syslogPriority) << row.level;
    }
}

TEST(LogLevels, KmonLevelOf4Yields16AndOf5Yields1AndSyslogLevelOf4Yields5AndOf9Yields6) {
    EXPECT_EQ(GetKmonLevel(static_cast<GrpOwnerLogLevel>(4)), 16);
    EXPECT_EQ(GetKmonLevel(static_cast<GrpOwnerLogLevel>(5)), 1);
    EXPECT_EQ(GetSyslogLevel(static_cast<GrpOwnerLogLevel>(4)), 5);
    EXPECT_EQ(GetSyslogLevel(static_cast<GrpOwnerLogLevel>(9)), 6);
}

TEST(GrpOwnerLog, WritesEachLevelToThePlatformLogWithFileAndLineInFront) {
    for (int32_t level = 0; level <= 4; ++level) {
        GRP_OWNER_LOG(static_cast<GrpOwnerLogLevel>(level), "level %d of %s", level, "five");
    }
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"DEBUG level 0 of five", "INFO level 1 of five", "WARN level 2 of five",
                                             "ERROR level 3 of five", "EVENT level 4 of five"}));
    for (const FakeLog::Record& record : FakeLog::Get().Records()) {
        EXPECT_EQ(record.sink, FakeLog::Sink::KMON);
        EXPECT_EQ(record.moduleId, 27U);
        EXPECT_EQ(record.file, "grp_owner_log_test.cpp");
    }
}

TEST(GrpOwnerLog, NamesTheLineThatLogs) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "here");
    const int here = __LINE__ - 1;
    ASSERT_EQ(FakeLog::Get().Records().size(), 1U);
    EXPECT_EQ(FakeLog::Get().Records()[0].line, here);
    EXPECT_EQ(FakeLog::Get().Records()[0].text, "here");
}

TEST(GrpOwnerLog, TakesAMessageWithoutArgumentsWithAPercentSignWrittenTwice) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "100%%");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO 100%"}));
}

TEST(GrpOwnerLog, TakesEightArguments) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO 12345678"}));
}

TEST(GrpOwnerLog, AsksThePlatformLogForTheMappedLevelOfModule27) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT, "e");
    GRP_OWNER_LOG(static_cast<GrpOwnerLogLevel>(77), "unknown level");
    const std::vector<FakeLog::Check> checks = FakeLog::Get().Checks();
    ASSERT_EQ(checks.size(), 2U);
    EXPECT_EQ(checks[0].moduleId, 27U);
    EXPECT_EQ(checks[0].level, 16);
    EXPECT_EQ(checks[1].level, 1);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"EVENT e", "INFO unknown level"}));
}

TEST(GrpOwnerLog, WritesNothingBelowTheLevelOfThePlatformLog) {
    FakeLog::Get().SetThreshold(2);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "quiet");
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "loud");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"WARN loud"}));
    EXPECT_EQ(FakeLog::Get().Checks().size(), 2U);
}

TEST(GrpOwnerLog, EvaluatesItsArgumentsOnceForAMessageThatIsWrittenAndNotAtAllForAnother) {
    int evaluated = 0;
    FakeLog::Get().SetThreshold(2);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "quiet %d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "loud %d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EnableSyslogState();
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "syslog %d", ++evaluated);
    EXPECT_EQ(evaluated, 2);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"WARN loud 1", "SYSLOG6 syslog 2"}));
}

TEST(GrpOwnerLog, TakesOnlyExactlyOneForEnabled) {
    for (const int answer : {0, 2, -1, 16}) {
        FakeLog::Get().SetCheckResult(answer);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "answer %d", answer);
    }
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
    FakeLog::Get().SetCheckResult(1);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "one");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"ERROR one"}));
}

TEST(GrpOwnerLog, WithSyslogEnabledWritesToSyslogEvenWhatThePlatformLogWouldSuppressAndNeverToThePlatformLog) {
    FakeLog::Get().SetCheckResult(0);
    EnableSyslogState();
    for (int32_t level = 0; level <= 5; ++level) {
        GRP_OWNER_LOG(static_cast<GrpOwnerLogLevel>(level), "level %d", level);
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "plain");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"SYSLOG7 level 0", "SYSLOG6 level 1", "SYSLOG4 level 2", "SYSLOG3 level 3",
                                             "SYSLOG5 level 4", "SYSLOG6 level 5", "SYSLOG6 plain"}));
    EXPECT_TRUE(FakeLog::Get().Checks().empty()) << "nothing else is asked or called then";
    for (const FakeLog::Record& record : FakeLog::Get().Records()) {
        EXPECT_EQ(record.file, "") << "syslog gets the plain message";
    }
}

TEST(GrpOwnerLog, SwitchesFromThePlatformLogToSyslogAtOnce) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "before");
    EnableSyslogState();
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "after");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"ERROR before", "SYSLOG3 after"}));
}

TEST(GrpOwnerLog, NeverTakesAnArgumentForAFormat) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "name=%s", "%n%s");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO name=%n%s"}));
}

TEST(GrpOwnerLog, StandsAsOneStatement) {
    if (IsSyslogEnable())
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "then");
    else
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "else");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO else"}));
}

TEST(BaseName, IsWhatStandsBehindTheLastSlash) {
    EXPECT_STREQ(BaseName("a/b/c.cpp"), "c.cpp");
    EXPECT_STREQ(BaseName("c.cpp"), "c.cpp");
    EXPECT_STREQ(BaseName("/"), "");
    EXPECT_STREQ(BaseName(""), "");
}

}  // namespace
}  // namespace ProcMgr
