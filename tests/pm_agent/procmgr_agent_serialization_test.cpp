#include "pm_agent/procmgr_agent_serialization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <locale>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr::Serialization {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Message::RequestType;

PackedRequest Entry(size_t length, char fill = 'x') {
    return {static_cast<uint32_t>(length), std::string(length, fill)};
}

std::vector<std::string> Texts(const PackedRequests& packed) {
    std::vector<std::string> texts;
    for (const auto& [length, text] : packed) {
        EXPECT_EQ(length, text.size());
        texts.push_back(text);
    }
    return texts;
}

std::vector<std::string> PackStart(const std::vector<Message::StartAppInfo>& apps) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackStartRequest(apps, packed));
    return Texts(packed);
}

std::vector<std::string> Combine(RequestType type, PackedRequests packed) {
    std::vector<Message::RequestMsg> messages;
    EXPECT_TRUE(ProcMgrCombinePiecesMsg(type, packed, messages));
    std::vector<std::string> payloads;
    for (const Message::RequestMsg& message : messages) {
        EXPECT_EQ(message.type, static_cast<uint32_t>(type));
        payloads.push_back(Payload(message));
    }
    return payloads;
}

// A locale that groups digits, as a process may have set one for its own output.
struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
};

TEST(PackStart, WritesNameArgumentsAndDynamicParameters) {
    EXPECT_THAT(PackStart({{"cam", {}, {}},
                           {"lidar", {"-v", "", "a b"}, {}},
                           {"cam@front", {"x"}, {{-7, {}}, {0, {"a"}}, {12, {"b", "c"}}}}}),
                ElementsAre("cam#0#0#", "lidar#3#-v##a b#0#", "cam@front#1#x#3#-7#0#0#1#a#12#2#b#c#"));
}

TEST(PackStart, GivesNoEntryForNoApplication) {
    EXPECT_THAT(PackStart({}), IsEmpty());
}

TEST(PackStart, AppendsToTheListItIsGiven) {
    PackedRequests packed{Entry(3)};
    EXPECT_TRUE(ProcMgrPackStartRequest({{"cam", {}, {}}}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("xxx", "cam#0#0#"));
}

TEST(PackStart, WritesPlainNumbersWhateverTheLocaleOfTheProcess) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    const std::vector<std::string> texts = PackStart({{"cam", std::vector<std::string>(12), {{1234, {}}}}});
    std::locale::global(before);
    EXPECT_THAT(texts, ElementsAre("cam#12#" + std::string(12, '#') + "1#1234#0#"));
}

TEST(PackStart, TakesAnEntryOf3959BytesAndRefusesOneOf3960) {
    PackedRequests packed;
    // Name, '#', "0#0#".
    EXPECT_TRUE(ProcMgrPackStartRequest({{std::string(3954, 'n'), {}, {}}}, packed));
    ASSERT_THAT(packed, SizeIs(1));
    EXPECT_EQ(packed.front().first, 3959U);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());

    EXPECT_FALSE(ProcMgrPackStartRequest({{std::string(3955, 'n'), {}, {}}}, packed));
    EXPECT_THAT(packed, SizeIs(1));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrAgent: PackStartRequest failed app=" + std::string(3955, 'n') +
                            ", size=3960 bytes beyone the PM_PIPE_BUF_MAX!!"));
}

TEST(PackStart, StopsAtAnEntryThatIsTooLongAndKeepsThoseBeforeIt) {
    PackedRequests packed;
    EXPECT_FALSE(
        ProcMgrPackStartRequest({{"a", {}, {}}, {"big", {std::string(5000, 'x')}, {}}, {"b", {}, {}}}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("a#0#0#"));
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR ProcMgrAgent: PackStartRequest failed app=big, size=5009 "
                                                    "bytes beyone the PM_PIPE_BUF_MAX!!"));
}

TEST(PackRestart, WritesWhatAStartWrites) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackRestartRequest({{"cam", {"-v"}, {{3, {"p"}}}}, {"lidar", {}, {}}}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("cam#1#-v#1#3#1#p#", "lidar#0#0#"));
}

TEST(PackRestart, HasItsOwnFailureText) {
    PackedRequests packed;
    EXPECT_FALSE(ProcMgrPackRestartRequest({{"big", {std::string(4000, 'x')}, {}}}, packed));
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR ProcMgrAgent PackRestartRequest failed app=big, size=4009 "
                                                    "bytes beyone PM_PIPE_BUF_MAX!!"));
}

TEST(PackTerm, WritesTheName) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackTermRequest({{"a"}, {"bb"}, {""}}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("a#", "bb#", "#"));
}

TEST(PackTerm, RefusesAnEntryOf3960Bytes) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackTermRequest({{std::string(3958, 'n')}}, packed));
    EXPECT_FALSE(ProcMgrPackTermRequest({{std::string(3959, 'n')}}, packed));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrAgent : PackTermRequest failed app=" + std::string(3959, 'n') +
                            ", size=3960 bytes beyone the PM_PIPE_BUF_MAX!!"));
}

TEST(PackAppExecInfo, WritesNameStateAndTheTwoValues) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackAppExecInfoRequest({"cam", 1, 0, 4294967295U}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("cam#1#0#4294967295#"));
}

TEST(PackAppExecInfo, RefusesAnEntryOf3960Bytes) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackAppExecInfoRequest({std::string(3952, 'n'), 0, 0, 0}, packed));
    EXPECT_FALSE(ProcMgrPackAppExecInfoRequest({std::string(3953, 'n'), 0, 0, 0}, packed));
    EXPECT_THAT(packed, SizeIs(1));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrAgent : PackExecStateRequest failed: beyone the PM_PIPE_BUF_MAX!!"));
}

TEST(PackBaseServiceState, WritesTheState) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackBaseServiceStateRequest({2}, packed));
    EXPECT_TRUE(ProcMgrPackBaseServiceStateRequest({4294967295U}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("2#", "4294967295#"));
}

TEST(PackMatchDataAndPath, WritesThePathAndTheDataByKey) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackMatchDataAndPathRequest({{{"B", "2"}, {"A", "1"}, {"C", ""}}, "/etc/apps"}, packed));
    EXPECT_TRUE(ProcMgrPackMatchDataAndPathRequest({{}, "/etc/apps.yaml"}, packed));
    EXPECT_THAT(Texts(packed), ElementsAre("/etc/apps#3#A#1#B#2#C##", "/etc/apps.yaml#0#"));
}

TEST(PackMatchDataAndPath, RefusesAnEntryOf3960Bytes) {
    PackedRequests packed;
    EXPECT_TRUE(ProcMgrPackMatchDataAndPathRequest({{}, std::string(3956, 'p')}, packed));
    EXPECT_FALSE(ProcMgrPackMatchDataAndPathRequest({{}, std::string(3957, 'p')}, packed));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrAgent : PackMatchDataAndPathRequest failed: beyone the PM_PIPE_BUF_MAX!!"));
}

TEST(PackDynamicPara, WritesCountsAndValuesAndZeroForNone) {
    std::ostringstream out;
    PackDynamicPara(out, {});
    PackDynamicPara(out, {{-1, {"v", ""}}, {1, {}}});
    EXPECT_EQ(out.str(), "0#2#-1#2#v##1#0#");
}

TEST(PackDynamicPara, WritesPlainNumbersWhateverTheLocaleOfTheStream) {
    std::ostringstream out;
    out.imbue(std::locale(std::locale::classic(), new Grouping));
    PackDynamicPara(out, {{12345, std::vector<std::string>(10)}});
    EXPECT_EQ(out.str(), "1#12345#10###########");
}

TEST(CalculateWindows, GivesNothingForNoEntry) {
    EXPECT_THAT(CalculateWindows({}), IsEmpty());
}

TEST(CalculateWindows, StartsANewPieceAtASumOf3956) {
    EXPECT_THAT(CalculateWindows({Entry(1), Entry(1955), Entry(2000)}), ElementsAre(2, 1));
    EXPECT_THAT(CalculateWindows({Entry(1), Entry(1954), Entry(2000)}), ElementsAre(3));
}

TEST(CalculateWindows, WalksInTheOrderOfTheList) {
    EXPECT_THAT(CalculateWindows({Entry(2000), Entry(1956), Entry(1955), Entry(1)}), ElementsAre(1, 3));
    EXPECT_THAT(CalculateWindows({Entry(3955), Entry(3955), Entry(3955)}), ElementsAre(1, 1, 1));
}

TEST(CalculateWindows, StopsAtAnEntryThatFitsNoPieceAndKeepsTheCountOfThoseBefore) {
    EXPECT_THAT(CalculateWindows({Entry(10), Entry(3956), Entry(20)}), ElementsAre(1));
    EXPECT_THAT(CalculateWindows({Entry(3956)}), IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR packedRequest=3956 bytes beyond the PM_PIPE_BUF_MAX!",
                                                    "ERROR packedRequest=3956 bytes beyond the PM_PIPE_BUF_MAX!"));
}

TEST(CombinePiecesMsg, FailsForAnEmptyList) {
    PackedRequests packed;
    std::vector<Message::RequestMsg> messages;
    ASSERT_TRUE(ProcMgrPackTermRequest({}, packed));
    EXPECT_FALSE(ProcMgrCombinePiecesMsg(RequestType::TERM_APP, packed, messages));
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR CombinePiecesMsg failed: packedRequest is empty!!"));
}

TEST(CombinePiecesMsg, PutsTwoShortTermEntriesIntoOneRecordByteForByte) {
    PackedRequests packed{{3, "bb#"}, {2, "a#"}};
    std::vector<Message::RequestMsg> messages;
    ASSERT_TRUE(ProcMgrCombinePiecesMsg(RequestType::TERM_APP, packed, messages));

    ASSERT_THAT(messages, SizeIs(1));
    const std::string head(
        "\2\0\0\0\0\0\0\0\7\0\0\0\0\0\0\0"
        "2#a#bb#",
        23);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(messages.data()), sizeof(Message::RequestMsg)),
              head + std::string(3984 - head.size(), '\0'));
}

TEST(CombinePiecesMsg, SortsEntriesOf2000And1955And1IntoPiecesOfTwoAndOne) {
    EXPECT_THAT(Combine(RequestType::START_APP, {Entry(2000, 'a'), Entry(1955, 'b'), Entry(1, 'c')}),
                ElementsAre("2#c" + std::string(1955, 'b'), "1#" + std::string(2000, 'a')));
}

TEST(CombinePiecesMsg, SortsEntriesOfOneLengthByTheirBytes) {
    EXPECT_THAT(Combine(RequestType::START_APP, {{1, "b"}, {1, "\xc3"}, {1, "a"}, {2, "aa"}, {1, "Z"}}),
                ElementsAre("5#Zab\xc3"
                            "aa"));
}

TEST(CombinePiecesMsg, SortsTheListOfItsCaller) {
    PackedRequests packed{{2, "bb"}, {1, "a"}};
    std::vector<Message::RequestMsg> messages;
    ASSERT_TRUE(ProcMgrCombinePiecesMsg(RequestType::START_APP, packed, messages));
    EXPECT_THAT(Texts(packed), ElementsAre("a", "bb"));
}

TEST(CombinePiecesMsg, AppendsToTheRecordsItIsGiven) {
    std::vector<Message::RequestMsg> messages{Record(9, "kept")};
    PackedRequests packed{{1, "a"}};
    ASSERT_TRUE(ProcMgrCombinePiecesMsg(RequestType::START_APP, packed, messages));
    ASSERT_THAT(messages, SizeIs(2));
    EXPECT_EQ(Payload(messages[0]), "kept");
    EXPECT_EQ(Payload(messages[1]), "1#a");
}

TEST(CombinePiecesMsg, SendsThoseBeforeA3957ByteEntryAndSaysNothingOfTheRestToItsCaller) {
    PackedRequests packed;
    ASSERT_TRUE(ProcMgrPackTermRequest({{std::string(3956, 'n')}, {"a"}, {"bb"}}, packed));
    EXPECT_THAT(Combine(RequestType::TERM_APP, packed), ElementsAre("2#a#bb#"));
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR packedRequest=3957 bytes beyond the PM_PIPE_BUF_MAX!"));
}

TEST(CombinePiecesMsg, SucceedsWithoutARecordWhenTheShortestEntryFitsNoPiece) {
    EXPECT_THAT(Combine(RequestType::TERM_APP, {Entry(3959), Entry(3956)}), IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(), ElementsAre("ERROR packedRequest=3956 bytes beyond the PM_PIPE_BUF_MAX!"));
}

TEST(CombinePiecesMsg, FillsAPieceWith3955EntriesOfOneByte) {
    const std::vector<std::string> payloads = Combine(RequestType::TERM_APP, PackedRequests(3956, {1, "#"}));
    EXPECT_THAT(payloads, ElementsAre("3955#" + std::string(3955, '#'), "1##"));
}

TEST(CombineMsg, TakesAPieceThatFillsTheRecordWithoutATerminator) {
    std::vector<Message::RequestMsg> messages;
    ProcMgrCombineMsg(RequestType::TERM_APP, 1, std::string(3962, 'x'), messages);
    ASSERT_THAT(messages, SizeIs(1));
    EXPECT_EQ(messages[0].size, 3964U);
    EXPECT_EQ(Payload(messages[0]), "1#" + std::string(3962, 'x'));
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(CombineMsg, AppendsARecordWithoutDataWhenThePieceDoesNotFit) {
    std::vector<Message::RequestMsg> messages;
    ProcMgrCombineMsg(RequestType::TERM_APP, 1, std::string(3963, 'x'), messages);
    ASSERT_THAT(messages, SizeIs(1));
    EXPECT_EQ(messages[0].type, 2U);
    EXPECT_EQ(messages[0].size, 3965U);
    EXPECT_EQ(std::string(messages[0].data, 3964), std::string(3964, '\0'));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrCombineMsg failed memcpy_s failed: strSize=3965 bytes, ret=34"));
}

TEST(CombineMsg, AppendsARecordWithoutDataWhenTheCopyFails) {
    FakeCopies::Get().FailCall(1, EINVAL);
    std::vector<Message::RequestMsg> messages;
    ProcMgrCombineMsg(RequestType::TERM_APP, 1, "a#", messages);
    ASSERT_THAT(messages, SizeIs(1));
    EXPECT_EQ(messages[0].size, 4U);
    EXPECT_EQ(std::string(messages[0].data, 3964), std::string(3964, '\0'));
    EXPECT_THAT(FakeLog::Get().Lines(),
                ElementsAre("ERROR ProcMgrCombineMsg failed memcpy_s failed: strSize=4 bytes, ret=22"));
}

TEST(SerializationLog, NamesTheFileThatLogs) {
    (void)CalculateWindows({Entry(4000)});
    EXPECT_EQ(FakeLog::Get().Records().front().file, "procmgr_agent_serialization.cpp");
}

}  // namespace
}  // namespace ProcMgr::Serialization
