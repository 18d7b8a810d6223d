#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/include/platform_log.h"
#include "tests/contract/written_lines.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr uint32_t kModule = 27;

class PlatformLogContract : public testing::Test {
protected:
    PlatformLogContract() { WatchLog(); }
};

TEST_F(PlatformLogContract, SyslogIsOffAtFirstAndOnForEverOnceEnabled) {
    EXPECT_FALSE(IsSyslogEnable());
    EnableSyslogState();
    EXPECT_TRUE(IsSyslogEnable());
    EnableSyslogState();
    EXPECT_TRUE(IsSyslogEnable());
}

TEST_F(PlatformLogContract, AnEnabledLevelAnswersOne) {
    for (const int32_t level : {0, 1, 2, 3, 16}) {
        EXPECT_EQ(CheckLogLevel(kModule, level), 1) << level;
    }
}

TEST_F(PlatformLogContract, WritesEachRecordAsOneLineInOrder) {
    KmonRecord(kModule, 1, "[%s:%d]App:%s is not in this group.", "a.cpp", 12, "cam");
    KmonRecord(kModule, 3, "second");
    KmonRecord(kModule, 16, "%s", "third");
    EXPECT_THAT(WrittenLines(),
                ElementsAre(EndsWith("App:cam is not in this group."), EndsWith("second"), EndsWith("third")));
}

TEST_F(PlatformLogContract, WritesALongRecordWhole) {
    const std::string text(20000, 'x');
    KmonRecord(kModule, 1, "begin %s end", text.c_str());
    EXPECT_THAT(WrittenLines(), ElementsAre(EndsWith("begin " + text + " end")));
}

TEST_F(PlatformLogContract, NeverTakesAnArgumentForAFormat) {
    KmonRecord(kModule, 1, "%s", "100%n%s{}");
    EXPECT_THAT(WrittenLines(), ElementsAre(EndsWith("100%n%s{}")));
}

}  // namespace
