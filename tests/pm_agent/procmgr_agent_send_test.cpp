#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "pm_agent/tunor_wrappers.h"
#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string Fd() {
    return std::to_string(FakePipe::Get().LastFd());
}

TEST(StartApp, BeforeAnyRegistrationReturnsNotOkAndSendsNothing) {
    EXPECT_EQ(Agent().StartApp({{"cam", {}, {}}}), 0xF10501U);
    EXPECT_THAT(FakePipe::Get().AllSent(), IsEmpty());
    EXPECT_THAT(FakePipe::Get().Opens(), IsEmpty());
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=1",
                            "ERROR ProcMgrAgent : StartApp failed: agent is not ok, please exec ProcMgrAgent::isOk"));
}

TEST(StartApp, WithAnEmptyListSaysSoEvenWhenThePipeIsClosed) {
    EXPECT_EQ(Agent().StartApp({}), 0xF10001U);
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=0",
                                        "ERROR ProcMgrAgent : StartApp failed: startAppList is zero"));
}

TEST(StartApp, SendsOneRecordOfTheWholeSize) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().StartApp({{"lidar", {"-v"}, {}}, {"cam", {}, {{1, {"x"}}}}}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("0:2#lidar#1#-v#0#cam#0#1#1#1#x#"));
    const FakePipe::Sent sent = FakePipe::Get().AllSent().front();
    EXPECT_EQ(sent.operation, FakePipe::Operation::SEND_REQUEST);
    EXPECT_EQ(sent.fd, FakePipe::Get().LastFd());
    EXPECT_THAT(sent.bytes, SizeIs(3984));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=2"));
}

TEST(StartApp, SendsThePiecesInTheirOrder) {
    ASSERT_TRUE(Agent().IsOk());
    const std::string a(2000, 'a');
    const std::string b(2001, 'b');
    EXPECT_EQ(Agent().StartApp({{b, {}, {}}, {a, {}, {}}, {"c", {}, {}}}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("0:2#c#0#0#" + a + "#0#0#", "0:1#" + b + "#0#0#"));
}

TEST(StartApp, ThatDoesNotPackSendsNothing) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().StartApp({{"cam", {}, {}}, {"big", {std::string(4000, 'x')}, {}}}), 0xF10502U);
    EXPECT_THAT(SentTexts(), IsEmpty());
    EXPECT_THAT(
        LogLines(),
        ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=2",
                    "ERROR ProcMgrAgent: PackStartRequest failed app=big, size=4009 bytes beyone the PM_PIPE_BUF_MAX!!",
                    "ERROR ProcMgrAgent : StartApp failed: ProcMgrPackStartRequest failed"));
}

TEST(StartApp, WhoseLongestEntryFitsNoPieceSendsTheOthersAndReportsSuccess) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().StartApp({{std::string(3952, 'n'), {}, {}}, {"cam", {}, {}}}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("0:1#cam#0#0#"));
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=2",
                                        "ERROR packedRequest=3957 bytes beyond the PM_PIPE_BUF_MAX!"));
}

TEST(StartApp, WhoseOnlyEntryFitsNoPieceFailsToSend) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().StartApp({{std::string(3952, 'n'), {}, {}}}), 0xF10503U);
    EXPECT_THAT(SentTexts(), IsEmpty());
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=1",
                            "ERROR packedRequest=3957 bytes beyond the PM_PIPE_BUF_MAX!",
                            "ERROR ProcMgrAgent : SendRequestMsg failed: requestPieceMsg is empty, fd=" + Fd(),
                            "ERROR ProcMgrAgent : StartApp failed: SendRequestMsg failed"));
}

TEST(StartApp, StopsAtTheFirstPieceThatCannotBeSent) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().ScriptSend({0, -7});
    const std::string big(2000, 'a');
    EXPECT_EQ(Agent().StartApp({{big, {}, {}}, {big, {}, {}}, {big, {}, {}}}), 0xF10503U);
    EXPECT_THAT(SentTexts(), SizeIs(2));
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=3",
                                        "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-7",
                                        "ERROR ProcMgrAgent : StartApp failed: SendRequestMsg failed"));
}

TEST(StartApp, TakesAPositiveResultOfThePipeForSuccess) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().SetSendResult(3984);
    EXPECT_EQ(Agent().StartApp({{"cam", {}, {}}}), 0U);
}

TEST(StartApp, LogsFromTheAgentsFile) {
    (void)Agent().StartApp({});
    for (const FakeLog::Record& record : FakeLog::Get().Records()) {
        EXPECT_EQ(record.file, "procmgr_agent_impl.cpp");
        EXPECT_EQ(record.moduleId, 27U);
    }
}

TEST(TermApp, HasItsOwnTextsAtEachStep) {
    EXPECT_EQ(Agent().TermApp({}), 0xF10001U);
    EXPECT_EQ(Agent().TermApp({{"cam"}}), 0xF10501U);
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().TermApp({{std::string(4000, 'n')}}), 0xF10502U);
    FakePipe::Get().ScriptSend({-1});
    EXPECT_EQ(Agent().TermApp({{"cam"}}), 0xF10503U);
    EXPECT_EQ(Agent().TermApp({{"bb"}, {"a"}}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("2:1#cam#", "2:2#a#bb#"));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=0",
                            "ERROR ProcMgrAgent : TermApp failed: TermAppList is zero",
                            "INFO <time>, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=1",
                            "ERROR ProcMgrAgent : TermApp failed: agent is not ok, please exec ProcMgrAgent::isOk",
                            "INFO <time>, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=1",
                            "ERROR ProcMgrAgent : PackTermRequest failed app=" + std::string(4000, 'n') +
                                ", size=4001 bytes beyone the PM_PIPE_BUF_MAX!!",
                            "ERROR ProcMgrAgent : TermApp failed: ProcMgrPackTermRequest failed",
                            "INFO <time>, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=1",
                            "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-1",
                            "ERROR ProcMgrAgent : TermApp failed: SendRequestMsg failed",
                            "INFO <time>, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=2"));
}

TEST(RestartApp, HasItsOwnTextsAtEachStep) {
    EXPECT_EQ(Agent().RestartApp({}), 0xF10001U);
    EXPECT_EQ(Agent().RestartApp({{"cam", {}, {}}}), 0xF10501U);
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().RestartApp({{"big", {std::string(4000, 'x')}, {}}}), 0xF10502U);
    FakePipe::Get().ScriptSend({-1});
    EXPECT_EQ(Agent().RestartApp({{"cam", {}, {}}}), 0xF10503U);
    EXPECT_EQ(Agent().RestartApp({{"cam", {"-v"}, {{-2, {"p"}}}}}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("1:1#cam#0#0#", "1:1#cam#1#-v#1#-2#1#p#"));
    EXPECT_THAT(
        LogLines(),
        ElementsAre("INFO <time>, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=0",
                    "ERROR ProcMgrAgent : restartApp failed: restartAppList is zero",
                    "INFO <time>, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=1",
                    "ERROR ProcMgrAgent : restartApp failed: agent is not ok, please exec ProcMgrAgent::isOk",
                    "INFO <time>, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=1",
                    "ERROR ProcMgrAgent PackRestartRequest failed app=big, size=4009 bytes beyone PM_PIPE_BUF_MAX!!",
                    "ERROR ProcMgrAgent : restartApp failed: PackrestartRequest failed",
                    "INFO <time>, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=1",
                    "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-1",
                    "ERROR ProcMgrAgent : restartApp failed: SendRequestMsg failed",
                    "INFO <time>, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=1"));
}

TEST(ReportBaseServiceState, HasItsOwnTextsAtEachStep) {
    EXPECT_EQ(Agent().ReportBaseServiceState({2}), 0xF10501U);
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().ScriptSend({-1});
    EXPECT_EQ(Agent().ReportBaseServiceState({3}), 0xF10503U);
    EXPECT_EQ(Agent().ReportBaseServiceState({9}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("3:1#3#", "3:1#9#"));
    EXPECT_THAT(
        LogLines(),
        ElementsAre(
            "INFO <time>, ProcMgrAgent Send BASESERVICE_STATE_REPORT msg to PM begin: BaseServiceState=RUNNING",
            "ERROR ProcMgrAgent: ReportBaseServiceState failed: agent is not ok, please exec ProcMgrAgent::isOk",
            "INFO <time>, ProcMgrAgent Send BASESERVICE_STATE_REPORT msg to PM begin: BaseServiceState=TERMINATING",
            "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-1",
            "ERROR ProcMgrAgent : ReportBaseServiceState failed: SendRequestMsg failed",
            "INFO <time>, ProcMgrAgent Send BASESERVICE_STATE_REPORT msg to PM begin: BaseServiceState="));
}

TEST(ReportAppExecState, HasItsOwnTextsAtEachStepAndNamesTheRestartPackerOnPurpose) {
    EXPECT_EQ(Agent().ReportAppExecState({"cam", 0, 1, 2}), 0xF10501U);
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().ReportAppExecState({std::string(4000, 'n'), 0, 1, 2}), 0xF10502U);
    FakePipe::Get().ScriptSend({-1});
    EXPECT_EQ(Agent().ReportAppExecState({"cam", 0, 1, 2}), 0xF10503U);
    EXPECT_EQ(Agent().ReportAppExecState({"cam", 1, 3, 4}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("5:1#cam#0#1#2#", "5:1#cam#1#3#4#"));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send APP_EXECUTION_REPORT msg to PM begin",
                            "ERROR ProcMgrAgent : ReportAppExecState failed: agent is not ok",
                            "INFO <time>, ProcMgrAgent Send APP_EXECUTION_REPORT msg to PM begin",
                            "ERROR ProcMgrAgent : PackExecStateRequest failed: beyone the PM_PIPE_BUF_MAX!!",
                            "ERROR ProcMgrAgent : ReportAppExecState failed: PackrestartRequest failed",
                            "INFO <time>, ProcMgrAgent Send APP_EXECUTION_REPORT msg to PM begin",
                            "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-1",
                            "ERROR ProcMgrAgent : ReportAppExecState failed: SendRequestMsg failed",
                            "INFO <time>, ProcMgrAgent Send APP_EXECUTION_REPORT msg to PM begin"));
}

TEST(QueryAppState, HasItsOwnTextsAtEachStep) {
    EXPECT_EQ(Agent().QueryAppState({}), 0xF10001U);
    EXPECT_EQ(Agent().QueryAppState({"cam"}), 0xF10501U);
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().QueryAppState({std::string(3957, 'n')}), 0xF10502U);
    FakePipe::Get().ScriptSend({-1});
    EXPECT_EQ(Agent().QueryAppState({"cam"}), 0xF10503U);
    EXPECT_EQ(Agent().QueryAppState({"lidar", "cam"}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("9:" + U32(1) + Sized("cam"), "9:" + U32(2) + Sized("lidar") + Sized("cam")));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=0",
                            "ERROR ProcMgrAgent : QueryAppState failed: appList is empty",
                            "INFO <time>, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=1",
                            "ERROR ProcMgrAgent : QueryAppState failed: agent is not ok",
                            "INFO <time>, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=1",
                            "ERROR ProcMgrAgent : QueryAppState SerializeMessage failed",
                            "INFO <time>, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=1",
                            "ERROR ProcMgrAgent : SendRequestMsg failed: fd=" + Fd() + ", err_code=-1",
                            "ERROR ProcMgrAgent : QueryAppState failed: SendRequestMsg failed",
                            "INFO <time>, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=2"));
}

// Every request once, with a piece count of its own; the n-th send fails, then every n-th.
struct FaultCase {
    const char* name;
    size_t pieces;
    std::function<uint32_t()> send;
};

std::vector<FaultCase> FaultCases() {
    const std::string big(2000, 'n');
    return {
        {"start", 3,
         [big] {
             return Agent().StartApp({{big, {}, {}}, {big, {}, {}}, {big, {}, {}}});
         }},
        {"restart", 2,
         [big] {
             return Agent().RestartApp({{big, {}, {}}, {big, {}, {}}});
         }},
        {"term", 2,
         [big] {
             return Agent().TermApp({{big}, {big}});
         }},
        {"base service", 1, [] { return Agent().ReportBaseServiceState({2}); }},
        {"execution", 1,
         [] {
             return Agent().ReportAppExecState({"cam", 0, 0, 0});
         }},
        {"query", 1, [] { return Agent().QueryAppState({"cam"}); }},
    };
}

std::vector<int> FailNth(size_t n, size_t count, bool isForEver) {
    std::vector<int> results(count, 0);
    for (size_t i = n; i < count; ++i) {
        results[i] = i == n || isForEver ? -5 : 0;
    }
    return results;
}

TEST(SendFault, AtEachPieceFailsThatRequestOnlyAndSendsNothingBehindIt) {
    ASSERT_TRUE(Agent().IsOk());
    for (const FaultCase& request : FaultCases()) {
        for (size_t n = 0; n < request.pieces; ++n) {
            for (const bool isForEver : {false, true}) {
                FakePipe::Get().ClearSent();
                FakePipe::Get().ScriptSend(FailNth(n, request.pieces, isForEver));
                EXPECT_EQ(request.send(), 0xF10503U) << request.name << " piece " << n;
                EXPECT_THAT(FakePipe::Get().AllSent(), SizeIs(n + 1)) << request.name;

                FakePipe::Get().ScriptSend({});
                EXPECT_EQ(request.send(), 0U) << request.name << " after the fault";
            }
        }
    }
}

TEST(SendFault, ForEverFailsEveryRequestEveryTime) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().SetSendResult(-5);
    for (int round = 0; round < 3; ++round) {
        for (const FaultCase& request : FaultCases()) {
            EXPECT_EQ(request.send(), 0xF10503U) << request.name;
        }
    }
}

TEST(CopyFault, AtEachCopyEndsEveryRequestWithAStatus) {
    ASSERT_TRUE(Agent().IsOk());
    for (const FaultCase& request : FaultCases()) {
        for (size_t n = 1; n <= 4; ++n) {
            FakeCopies::Get().FailCall(n, EINVAL);
            // A piece whose copy fails travels without its data; a query that can't be written is not sent.
            EXPECT_THAT(request.send(), testing::AnyOf(0U, 0xF10502U)) << request.name << " copy " << n;
        }
    }
}

TEST(TunorWrappers, CallTheFunctionOfTheSameNameAndReturnItsResult) {
    ASSERT_TRUE(Agent().IsOk());
    const int fd = FakePipe::Get().LastFd();
    std::string bytes = "abc";
    const TunorRequest request{bytes.data(), 3};
    const TunorResponse answer{bytes.data(), 2};
    TunorResponse response{};
    FakePipe::Get().ScriptSend({5, 6});
    EXPECT_EQ(ProcMgrTunorSendRequest(fd, &request), 5);
    EXPECT_EQ(ProcMgrTunorSendResponse(fd, &answer), 6);
    FakePipe::Get().ScriptAnswer({{7, "x", 0}, {8, "y", 0}});
    EXPECT_EQ(ProcMgrTunorRPCSync(fd, &request, &response), 7);
    EXPECT_EQ(ProcMgrTunorTimedRPCSync(fd, &request, &response, 1234), 8);
    EXPECT_EQ(ProcMgrTunorClosePipe(fd), 0);
    EXPECT_EQ(ProcMgrTunorClosePipe(fd), -1);

    const std::vector<FakePipe::Sent> sent = FakePipe::Get().AllSent();
    ASSERT_THAT(sent, SizeIs(4));
    EXPECT_EQ(sent[1].operation, FakePipe::Operation::SEND_RESPONSE);
    EXPECT_EQ(sent[1].bytes, "ab");
    EXPECT_EQ(sent[2].operation, FakePipe::Operation::RPC);
    EXPECT_EQ(sent[3].operation, FakePipe::Operation::TIMED_RPC);
    EXPECT_EQ(sent[3].timeoutMs, 1234U);
}

}  // namespace
}  // namespace ProcMgr
