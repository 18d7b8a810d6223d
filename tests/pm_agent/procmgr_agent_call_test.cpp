#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "pm_agent/procmgr_agent_impl.h"
#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Message::StartupCfgInfo kCfg{{{"ROOT", "/opt"}, {"A", "1"}}, "/etc/apps"};

// An agent of the test's own, whose inner steps it may call.
class OpenAgent : public ProcMgrAgentImpl {
public:
    using ProcMgrAgentImpl::RpcSyncAndGetResult;
};

TEST(LoadStartupCfgInfo, CallsWithPathAndDataAndReturnsTheResult) {
    unsetenv("DATAMASTER_RUN_MODE");
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("6:1#/etc/apps#2#A#1#ROOT#/opt#"));
    const FakePipe::Sent sent = FakePipe::Get().AllSent().front();
    EXPECT_EQ(sent.operation, FakePipe::Operation::TIMED_RPC);
    EXPECT_EQ(sent.timeoutMs, 5000U);
    EXPECT_THAT(sent.bytes, SizeIs(3984));
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                                        "INFO ProcMgrAgent : LoadStartupCfgInfo result=0"));
}

TEST(LoadStartupCfgInfo, WaitsLongerInRunModeOne) {
    setenv("DATAMASTER_RUN_MODE", "1", 1);
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0U);
    EXPECT_EQ(FakePipe::Get().AllSent().front().timeoutMs, 1800000U);
}

TEST(ReLoadStartupCfgInfo, DiffersInItsTypeAndItsBeginLineOnly) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().ScriptAnswer({{0, "7#", 0}});
    EXPECT_EQ(Agent().ReLoadStartupCfgInfo(kCfg), 0xF10505U);
    EXPECT_THAT(SentTexts(), ElementsAre("7:1#/etc/apps#2#A#1#ROOT#/opt#"));
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send RELOAD_STARTUP_CFG msg to PM begin",
                                        "INFO ProcMgrAgent : LoadStartupCfgInfo result=7",
                                        "ERROR ProcMgrAgent : LoadStartupCfgInfo failed, result=7"));
}

TEST(LoadStartupCfgInfo, NeedsAnOpenPipe) {
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF10501U);
    EXPECT_THAT(FakePipe::Get().Opens(), IsEmpty());
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                                        "ERROR ProcMgrAgent : LoadStartupCfgInfo failed: agent is not ok"));
}

TEST(LoadStartupCfgInfo, ThatDoesNotPackIsNotSent) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().LoadStartupCfgInfo({{}, std::string(4000, 'p')}), 0xF10502U);
    EXPECT_THAT(SentTexts(), IsEmpty());
    EXPECT_THAT(
        LogLines(),
        ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                    "ERROR ProcMgrAgent : PackMatchDataAndPathRequest failed: beyone the PM_PIPE_BUF_MAX!!",
                    "ERROR ProcMgrAgent : LoadStartupCfgInfo failed: ProcMgrPackMatchDataAndPathRequest failed"));
}

TEST(LoadStartupCfgInfo, ThatFitsNoPieceHasNothingToSend) {
    ASSERT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().LoadStartupCfgInfo({{}, std::string(3954, 'p')}), 0xF10000U);
    EXPECT_THAT(SentTexts(), IsEmpty());
    EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                                        "ERROR packedRequest=3957 bytes beyond the PM_PIPE_BUF_MAX!",
                                        "ERROR ProcMgrAgent : LoadStartupCfgInfo failed: requestPieceMsg is empty"));
}

TEST(LoadStartupCfgInfo, FailsWhenTheCallFails) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().ScriptAnswer({{-110, "0", 0}});
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF1000AU);
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                            "ERROR ProcMgrAgent : LoadStartupCfgInfo failed: TunorTimedRPCSync failed: err code=-110"));
}

TEST(LoadStartupCfgInfo, FailsForAnAnswerWithoutData) {
    ASSERT_TRUE(Agent().IsOk());
    for (const FakePipe::Answer& answer :
         {FakePipe::Answer{0, std::nullopt, 0}, FakePipe::Answer{0, std::nullopt, 4}, FakePipe::Answer{0, "", 0}}) {
        FakeLog::Get().Clear();
        FakePipe::Get().ScriptAnswer({answer});
        EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF10504U);
        EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                                            "ERROR ProcMgrAgent : LoadStartupCfgInfo failed, resp.data is nullptr"));
    }
}

TEST(LoadStartupCfgInfo, NeverTakesABrokenAnswerForSuccess) {
    ASSERT_TRUE(Agent().IsOk());
    for (const char* text : {"ok", "#", "0x", "0#0", " 0"}) {
        FakeLog::Get().Clear();
        FakePipe::Get().ScriptAnswer({{0, text, 0}});
        EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF10505U) << text;
        EXPECT_THAT(LogLines(), ElementsAre("INFO <time>, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin",
                                            "INFO ProcMgrAgent : LoadStartupCfgInfo result=-1",
                                            "ERROR ProcMgrAgent : LoadStartupCfgInfo failed, result=-1"));
    }
}

TEST(LoadStartupCfgInfo, OfTwoPiecesStopsAfterTheFirstPieceWhoseAnswerIsNotZero) {
    OpenAgent agent;
    ASSERT_TRUE(agent.IsOk());
    FakePipe::Get().ScriptAnswer({{0, "3", 0}});
    EXPECT_EQ(agent.RpcSyncAndGetResult({Record(6, "1#one#0#"), Record(6, "1#two#0#")}), 0xF10505U);
    EXPECT_THAT(SentTexts(), ElementsAre("6:1#one#0#"));
    EXPECT_THAT(LogLines(), ElementsAre("INFO ProcMgrAgent : LoadStartupCfgInfo result=3",
                                        "ERROR ProcMgrAgent : LoadStartupCfgInfo failed, result=3"));
}

TEST(LoadStartupCfgInfo, OfTwoPiecesSendsBothWhenBothAreAnsweredWithZero) {
    OpenAgent agent;
    ASSERT_TRUE(agent.IsOk());
    EXPECT_EQ(agent.RpcSyncAndGetResult({Record(6, "1#one#0#"), Record(6, "1#two#0#")}), 0U);
    EXPECT_THAT(SentTexts(), ElementsAre("6:1#one#0#", "6:1#two#0#"));
    EXPECT_THAT(LogLines(), ElementsAre("INFO ProcMgrAgent : LoadStartupCfgInfo result=0",
                                        "INFO ProcMgrAgent : LoadStartupCfgInfo result=0"));
}

TEST(Agent, ClosesAPipeThatIsStillOpenWhenItIsDestroyed) {
    {
        OpenAgent agent;
        ASSERT_TRUE(agent.IsOk());
    }
    EXPECT_THAT(FakePipe::Get().Closed(), ElementsAre(FakePipe::Get().LastFd()));
}

TEST(CallFault, OnceFailsThatCallOnlyAndForEverFailsEveryCall) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().ScriptAnswer({{-1, "0", 0}});
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF1000AU);
    EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0U);
    FakePipe::Get().SetAnswer({-1, "0", 0});
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Agent().LoadStartupCfgInfo(kCfg), 0xF1000AU);
        EXPECT_EQ(Agent().ReLoadStartupCfgInfo(kCfg), 0xF1000AU);
    }
}

}  // namespace
}  // namespace ProcMgr
