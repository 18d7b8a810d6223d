#include "daemons/procmgrd/owner_protocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "pm_agent/procmgr_agent_serialization.h"

namespace Procmgrd {
namespace {

namespace Message = ProcMgr::Message;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

template <typename Value, typename Reader>
bool Reads(Reader reader, const std::string& text) {
    Value value;
    return reader(text, value);
}

bool ReadsStart(const std::string& text) {
    return Reads<std::vector<Message::StartAppInfo>>(ReadStartPiece, text);
}

std::string Text(const Message::RequestMsg& record) {
    return {record.data, Message::PayloadSize(record)};
}

TEST(ReadRecord, TakesNothingButAWholeRecord) {
    Message::RequestMsg record{};
    record.type = 2;
    record.size = 5;
    std::memcpy(record.data, "1#a#x", 5);
    const std::string bytes(reinterpret_cast<const char*>(&record), sizeof(record));
    uint32_t type = 0;
    std::string text;
    EXPECT_TRUE(ReadRecord(bytes, type, text));
    EXPECT_EQ(type, 2U);
    EXPECT_EQ(text, "1#a#x");
    EXPECT_FALSE(ReadRecord(bytes.substr(1), type, text));
    EXPECT_FALSE(ReadRecord(bytes + "x", type, text));
    EXPECT_FALSE(ReadRecord("", type, text));
}

TEST(ReadRecord, BelievesNoSizeBeyondTheData) {
    Message::RequestMsg record{};
    record.size = uint64_t{1} << 40U;
    uint32_t type = 0;
    std::string text;
    EXPECT_TRUE(ReadRecord({reinterpret_cast<const char*>(&record), sizeof(record)}, type, text));
    EXPECT_EQ(text.size(), 3964U);
}

TEST(ReadStartPiece, ReadsArgumentsAndDynamicParameters) {
    std::vector<Message::StartAppInfo> apps;
    ASSERT_TRUE(ReadStartPiece("2#cam#2#-v##2#-3#1#low#7#2#a#b#lidar#0#0#", apps));
    ASSERT_EQ(apps.size(), 2U);
    EXPECT_EQ(apps[0].appName, "cam");
    EXPECT_THAT(apps[0].argv, ElementsAre("-v", ""));
    EXPECT_THAT(apps[0].dynamicPara, ElementsAre(Pair(-3, ElementsAre("low")), Pair(7, ElementsAre("a", "b"))));
    EXPECT_EQ(apps[1].appName, "lidar");
    EXPECT_THAT(apps[1].argv, IsEmpty());
}

TEST(ReadStartPiece, ReadsWhatTheOtherSidePacks) {
    ProcMgr::Serialization::PackedRequests packed;
    ASSERT_TRUE(
        ProcMgr::Serialization::ProcMgrPackStartRequest({{"cam", {"one"}, {{5, {"x"}}}}, {"b", {}, {}}}, packed));
    std::vector<Message::RequestMsg> records;
    ASSERT_TRUE(ProcMgr::Serialization::ProcMgrCombinePiecesMsg(Message::RequestType::START_APP, packed, records));
    std::vector<Message::StartAppInfo> apps;
    ASSERT_TRUE(ReadStartPiece(Text(records.at(0)), apps));
    EXPECT_EQ(apps.at(0).appName, "b");
    EXPECT_EQ(apps.at(1).appName, "cam");
    EXPECT_THAT(apps[1].dynamicPara, ElementsAre(Pair(5, ElementsAre("x"))));
}

TEST(ReadStartPiece, RefusesEveryPrefixOfAGoodPiece) {
    const std::string good = "2#cam#1#-v#1#7#2#a#b#lidar#0#0#";
    ASSERT_TRUE(ReadsStart(good));
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_FALSE(ReadsStart(good.substr(0, length))) << length;
    }
}

TEST(ReadStartPiece, RefusesWhatIsNotExactlyRight) {
    EXPECT_FALSE(ReadsStart("1#cam#0#0#x"));
    EXPECT_FALSE(ReadsStart("1##0#0#"));
    EXPECT_FALSE(ReadsStart("x#cam#0#0#"));
    EXPECT_FALSE(ReadsStart("-1#cam#0#0#"));
    EXPECT_FALSE(ReadsStart("1#cam#-1#0#"));
    EXPECT_FALSE(ReadsStart("1#cam#+0#0#"));
    EXPECT_FALSE(ReadsStart("1#cam#0#1#4294967296#0#"));
    EXPECT_FALSE(ReadsStart("4294967295#cam#0#0#"));
    EXPECT_FALSE(ReadsStart("1#cam#4294967295#0#"));
    EXPECT_FALSE(ReadsStart("1#cam#0#1#1#4294967295#"));
    EXPECT_FALSE(ReadsStart(std::string("1#c\0m#0#0#", 10)));
    EXPECT_FALSE(ReadsStart("1#" + std::string(3901, 'n') + "#0#0#"));
    EXPECT_TRUE(ReadsStart("1#" + std::string(3900, 'n') + "#0#0#"));
    EXPECT_TRUE(ReadsStart("0#"));
}

TEST(ReadStartPiece, WritesNothingWhenItRefuses) {
    std::vector<Message::StartAppInfo> apps = {{"kept", {}, {}}};
    EXPECT_FALSE(ReadStartPiece("2#cam#0#0#", apps));
    EXPECT_EQ(apps.at(0).appName, "kept");
}

TEST(ReadTermPiece, ReadsNames) {
    std::vector<Message::TermAppInfo> apps;
    ASSERT_TRUE(ReadTermPiece("2#a#bb#", apps));
    EXPECT_EQ(apps.at(0).appName, "a");
    EXPECT_EQ(apps.at(1).appName, "bb");
    EXPECT_FALSE(ReadTermPiece("2#a#", apps));
    EXPECT_FALSE(ReadTermPiece("1#a#b#", apps));
    EXPECT_FALSE(ReadTermPiece("", apps));
}

TEST(ReadConfigPiece, ReadsThePathAndTheMatchData) {
    Message::StartupCfgInfo config;
    ASSERT_TRUE(ReadConfigPiece("1#/etc/apps#2#A#1#B##", config));
    EXPECT_EQ(config.procName, "/etc/apps");
    EXPECT_THAT(config.matchDataToPath, ElementsAre(Pair("A", "1"), Pair("B", "")));
    EXPECT_TRUE(ReadConfigPiece("1#/etc/apps#0#", config));
    EXPECT_FALSE(ReadConfigPiece("2#/etc/apps#0#", config));
    EXPECT_FALSE(ReadConfigPiece("1##0#", config));
    EXPECT_FALSE(ReadConfigPiece("1#/etc/apps#1#A#", config));
}

TEST(ReadExecPiece, ReadsNameStateAndValues) {
    Message::AppExecInfo info;
    ASSERT_TRUE(ReadExecPiece("1#cam#1#7#8#", info));
    EXPECT_EQ(info.appName, "cam");
    EXPECT_EQ(info.execState, 1U);
    EXPECT_EQ(info.value1, 7U);
    EXPECT_EQ(info.value2, 8U);
    EXPECT_FALSE(ReadExecPiece("1#cam#1#7#", info));
    EXPECT_FALSE(ReadExecPiece("2#cam#1#7#8#", info));
}

TEST(ReadBaseServicePiece, ReadsTheState) {
    Message::BaseServiceStateInfo info;
    ASSERT_TRUE(ReadBaseServicePiece("1#2#", info));
    EXPECT_EQ(info.state, 2U);
    EXPECT_FALSE(ReadBaseServicePiece("1#", info));
    EXPECT_FALSE(ReadBaseServicePiece("1#2", info));
    EXPECT_FALSE(ReadBaseServicePiece("1#two#", info));
}

TEST(ReadQuery, ReadsNamesAndRefusesLengthsBeyondTheData) {
    const std::string data("\2\0\0\0\3\0\0\0cam\0\0\0\0", 15);
    std::vector<std::string> names;
    ASSERT_TRUE(ReadQuery(data, names));
    EXPECT_THAT(names, ElementsAre("cam", ""));
    for (size_t length = 0; length < data.size(); ++length) {
        EXPECT_FALSE(ReadQuery(data.substr(0, length), names)) << length;
    }
    EXPECT_FALSE(ReadQuery(std::string("\1\0\0\0\xff\xff\xff\xff", 8), names));
    EXPECT_FALSE(ReadQuery(std::string("\xff\xff\xff\xff", 4), names));
}

TEST(WriteStateReports, WritesTheTextThatOwnersRead) {
    const auto records = WriteStateReports({{"cam", 70, 5, 4, 1}, {"b", 0, 0, 3, 0}});
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].type, 4U);
    EXPECT_EQ(Text(records[0]), "2#cam#70#5#4#1#b#0#0#3#0#");
    std::vector<Message::AppStateInfo> read;
    EXPECT_TRUE(ProcMgr::Serialization::ProcMgrUnpackedAppStateRequest(records[0], read));
    EXPECT_EQ(read.at(1).appState, 3U);
}

TEST(WriteStateReports, SplitsWhatDoesNotFitOneRecord) {
    const std::vector<Message::AppStateInfo> reports(3, {std::string(1900, 'n'), 70, 0, 0, 0});
    const auto records = WriteStateReports(reports);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(Text(records[0]).substr(0, 2), "2#");
    EXPECT_EQ(Text(records[1]).substr(0, 2), "1#");
}

TEST(WriteStateReports, FitsTheLongestNameAndTheLargestNumbers) {
    const uint32_t most = 4294967295U;
    EXPECT_EQ(WriteStateReports({{std::string(kMaxAppName, 'n'), most, most, most, most}}).size(), 1U);
}

TEST(WriteQueryAnswer, WritesNamesAndStates) {
    const auto records = WriteQueryAnswer({{"cam", 2}, {"", 1}});
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].type, 10U);
    EXPECT_EQ(Text(records[0]), std::string("\2\0\0\0\3\0\0\0cam\2\0\0\0\0\0\0\0\1\0\0\0", 23));
}

TEST(WriteQueryAnswer, SplitsWhatDoesNotFitAndLeavesOutWhatNeverDoes) {
    const auto records = WriteQueryAnswer(
        {{std::string(3000, 'a'), 1}, {std::string(3957, 'x'), 1}, {std::string(3000, 'b'), 1}, {"c", 0}});
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].size, 4U + 3008U);
    EXPECT_EQ(records[1].size, 4U + 3008U + 9U);
}

TEST(WriteResult, IsOneNumberField) {
    EXPECT_EQ(WriteResult(0), "0#");
    EXPECT_EQ(WriteResult(22), "22#");
}

}  // namespace
}  // namespace Procmgrd
