#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pm_agent/procmgr_agent_serialization.h"
#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

struct Report {
    bool isRead;
    std::vector<Message::AppStateInfo> states;
};

Report Read(const Message::RequestMsg& message) {
    Report report{};
    // What is in the list before must not matter.
    report.states.resize(3);
    report.isRead = Serialization::ProcMgrUnpackedAppStateRequest(message, report.states);
    return report;
}

Report Read(const std::string& text) {
    return Read(Record(4, text));
}

std::string Text(const Message::AppStateInfo& info) {
    return info.appName + "|" + std::to_string(info.pid) + "|" + std::to_string(info.value1) + "|" +
           std::to_string(info.appState) + "|" + std::to_string(info.reason);
}

std::vector<std::string> Texts(const std::string& text) {
    std::vector<std::string> texts;
    for (const Message::AppStateInfo& info : Read(text).states) {
        texts.push_back(Text(info));
    }
    return texts;
}

TEST(StateReport, IsReadFieldByField) {
    EXPECT_THAT(Texts("2#cam#17#5#4#1#lidar@left#4294967295#0#0#0#"),
                ElementsAre("cam|17|5|4|1", "lidar@left|4294967295|0|0|0"));
}

TEST(StateReport, OfCount1999IsRead) {
    const Report report = Read("1999#cam#17#0#0#0#");
    EXPECT_TRUE(report.isRead);
    ASSERT_THAT(report.states, SizeIs(1999));
    EXPECT_EQ(Text(report.states.front()), "cam|17|0|0|0");
    EXPECT_EQ(Text(report.states[1]), "|0|0|0|0");
    EXPECT_EQ(Text(report.states.back()), "|0|0|0|0");
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(StateReport, OfCount2000IsRefused) {
    const Report report = Read("2000#cam#17#0#0#0#");
    EXPECT_FALSE(report.isRead);
    EXPECT_THAT(report.states, IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgr : ProcMgrMaster UnpackedAppStateRequest err: big AppListSize=2000"));
}

TEST(StateReport, WhoseCountIsTooLargeForItsTypeIsRefused) {
    EXPECT_FALSE(Read("99999999999999999999#").isRead);
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgr : ProcMgrMaster UnpackedAppStateRequest err: big AppListSize=4294967295"));
}

TEST(StateReport, WithoutEntriesIsReadAsAnEmptyList) {
    for (const char* text : {"", "0#", "0", "#", "cam#", "-1#", " 1#"}) {
        const Report report = Read(text);
        EXPECT_TRUE(report.isRead) << text;
        EXPECT_THAT(report.states, IsEmpty()) << text;
    }
}

TEST(StateReport, ThatEndsEarlyLeavesTheRemainingFieldsZero) {
    EXPECT_THAT(Texts("1#cam#17#5#4#"), ElementsAre("cam|17|5|4|0"));
    EXPECT_THAT(Texts("1#cam#17#5"), ElementsAre("cam|17|5|0|0"));
    EXPECT_THAT(Texts("1#cam#"), ElementsAre("cam|0|0|0|0"));
    EXPECT_THAT(Texts("1#cam"), ElementsAre("cam|0|0|0|0"));
    EXPECT_THAT(Texts("1"), ElementsAre("|0|0|0|0"));
}

TEST(StateReport, ReadsNothingMoreAfterTheFirstBrokenNumber) {
    EXPECT_THAT(Texts("2#cam#x#5#4#1#lidar#18#0#0#0#"), ElementsAre("cam|0|0|0|0", "|0|0|0|0"));
    EXPECT_THAT(Texts("2#cam#-5#5#4#1#lidar#18#0#0#0#"), ElementsAre("cam|0|0|0|0", "|0|0|0|0"));
}

TEST(StateReport, SaturatesANumberThatIsTooLargeAndReadsNothingMore) {
    EXPECT_THAT(Texts("2#cam#4294967296#5#4#1#lidar#18#0#0#0#"), ElementsAre("cam|4294967295|0|0|0", "|0|0|0|0"));
}

TEST(StateReport, SkipsOneByteBehindANumberWhateverItIs) {
    EXPECT_THAT(Texts("1,cam#17 5;4\n1"), ElementsAre("cam|17|5|4|1"));
}

TEST(StateReport, IgnoresWhatFollowsTheLastEntry) {
    EXPECT_THAT(Texts("1#cam#1#2#3#4#lidar#"), SizeIs(1));
}

TEST(StateReport, IsReadOnlyUpToItsSize) {
    Message::RequestMsg message = Record(4, "1#cam#17#5#4#1#");
    message.size = 7;
    EXPECT_EQ(Text(Read(message).states.front()), "cam|1|0|0|0");
}

TEST(StateReport, OfASizeBeyondTheRecordIsReadUpToTheRecordsEnd) {
    Message::RequestMsg message{};
    const std::string head = "1#";
    std::fill(std::begin(message.data), std::end(message.data), 'n');
    std::copy(head.begin(), head.end(), message.data);
    message.size = UINT64_MAX;
    EXPECT_EQ(Text(Read(message).states.front()), std::string(3962, 'n') + "|0|0|0|0");
}

}  // namespace
}  // namespace ProcMgr
