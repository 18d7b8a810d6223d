#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "tests/pm_agent/agent_test_support.h"

namespace ProcMgr {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

void DropStates(const std::vector<Message::AppStateInfo>& /*states*/) {
}
void DropAnswers(const std::map<std::string, unsigned int>& /*states*/) {
}

TEST(IsOk, OpensThePipeToTheProcessManagerOnce) {
    unsetenv("DATAMASTER_RUN_MODE");
    EXPECT_TRUE(Agent().IsOk());
    EXPECT_TRUE(Agent().IsOk());

    const std::vector<FakePipe::Open> opens = FakePipe::Get().Opens();
    ASSERT_THAT(opens, SizeIs(1));
    EXPECT_EQ(opens[0].peerName, "PROCMGR");
    EXPECT_EQ(opens[0].groupId, getgid());
    EXPECT_EQ(opens[0].timeoutMs, 180000U);
    EXPECT_NE(opens[0].handler, nullptr);
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST(IsOk, WaitsLongerInRunModeOne) {
    setenv("DATAMASTER_RUN_MODE", "1", 1);
    EXPECT_TRUE(Agent().IsOk());
    EXPECT_EQ(FakePipe::Get().Opens().front().timeoutMs, 1800000U);
}

TEST(IsOk, WaitsTheNormalTimeInAnyOtherRunMode) {
    for (const char* mode : {"", "0", "11", "true"}) {
        FakePipe::Get().ScriptOpen({{0, EIO}});
        setenv("DATAMASTER_RUN_MODE", mode, 1);
        EXPECT_FALSE(Agent().IsOk());
        EXPECT_EQ(FakePipe::Get().Opens().back().timeoutMs, 180000U) << mode;
    }
}

TEST(IsOk, TriesOnceMoreWhenToldSo) {
    FakePipe::Get().ScriptOpen({{-11, EAGAIN}});
    EXPECT_TRUE(Agent().IsOk());
    EXPECT_THAT(FakePipe::Get().Opens(), SizeIs(2));
    EXPECT_THAT(LogLines(), ElementsAre("WARN ProcMgrAgent : TunorOpen failed, try again"));
}

TEST(IsOk, TriesOnlyOnceMore) {
    FakePipe::Get().ScriptOpen({{-11, EAGAIN}, {-11, EBUSY}});
    EXPECT_FALSE(Agent().IsOk());
    EXPECT_THAT(FakePipe::Get().Opens(), SizeIs(2));
    EXPECT_THAT(LogLines(),
                ElementsAre("WARN ProcMgrAgent : TunorOpen failed, try again",
                            "ERROR ProcMgrAgent : TunorOpen failed!! ret=-11, errno=" + std::to_string(EBUSY)));
}

TEST(IsOk, FailsForZeroAndForNegativeResultsAndSaysErrno) {
    FakePipe::Get().ScriptOpen({{0, ETIMEDOUT}, {-1, EACCES}, {-10, EADDRINUSE}});
    EXPECT_FALSE(Agent().IsOk());
    EXPECT_FALSE(Agent().IsOk());
    EXPECT_FALSE(Agent().IsOk());
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent : TunorOpen failed!! ret=0, errno=110",
                                        "ERROR ProcMgrAgent : TunorOpen failed!! ret=-1, errno=13",
                                        "ERROR ProcMgrAgent : TunorOpen failed!! ret=-10, errno=98"));
    EXPECT_TRUE(Agent().IsOk());
}

TEST(IsOk, StaysTrueAfterThePipeWasLost) {
    ASSERT_TRUE(Agent().IsOk());
    FakePipe::Get().LosePipe();
    EXPECT_TRUE(Agent().IsOk());
    EXPECT_EQ(Agent().TermApp({{"cam"}}), 0xF10503U);
    EXPECT_THAT(FakePipe::Get().Opens(), SizeIs(1));
}

TEST(RegAppStateChangeCallBack, OpensThePipeAndSaysSo) {
    setenv("PROC_NAME", "owner", 1);
    EXPECT_TRUE(Agent().RegAppStateChangeCallBackImpl(DropStates));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO ********* ProcMgrAgent : RegAppStateChangeCallBack begin :cur_proName=owner",
                            "INFO ********* ProcMgrAgent : RegAppStateChangeCallBack success fd=" +
                                std::to_string(FakePipe::Get().LastFd())));
}

TEST(RegAppStateChangeCallBack, RefusesAnEmptyCallBack) {
    EXPECT_FALSE(Agent().RegAppStateChangeCallBackImpl(nullptr));
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent :RegAppStateChangeCallBack failed: cb is null"));
    EXPECT_THAT(FakePipe::Get().Opens(), IsEmpty());
}

TEST(RegAppStateChangeCallBack, FailsWhenThePipeCannotBeOpened) {
    unsetenv("PROC_NAME");
    FakePipe::Get().ScriptOpen({{-1, EACCES}});
    EXPECT_FALSE(Agent().RegAppStateChangeCallBackImpl(DropStates));
    EXPECT_THAT(LogLines(), ElementsAre("INFO ********* ProcMgrAgent : RegAppStateChangeCallBack begin :cur_proName=",
                                        "ERROR ProcMgrAgent : TunorOpen failed!! ret=-1, errno=13",
                                        "ERROR ProcMgrAgent :RegisterService failed: CheckPipeIsOk failed"));
}

TEST(RegQueryAppStateCallBack, OpensThePipeAndSaysSo) {
    setenv("PROC_NAME", "owner", 1);
    EXPECT_TRUE(Agent().RegQueryAppStateCallBackImpl(DropAnswers));
    EXPECT_THAT(LogLines(), ElementsAre("INFO ProcMgrAgent : RegQueryAppStateCallBackImpl begin:cur_proName=owner",
                                        "INFO ProcMgrAgent : RegQueryAppStateCallBackImpl success fd=" +
                                            std::to_string(FakePipe::Get().LastFd())));
}

TEST(RegQueryAppStateCallBack, RefusesAnEmptyCallBack) {
    EXPECT_FALSE(Agent().RegQueryAppStateCallBackImpl(nullptr));
    EXPECT_THAT(LogLines(), ElementsAre("ERROR ProcMgrAgent : RegQueryAppStateCallBackImpl failed: cb is null"));
}

TEST(RegQueryAppStateCallBack, FailsWhenThePipeCannotBeOpened) {
    setenv("PROC_NAME", "owner", 1);
    FakePipe::Get().ScriptOpen({{-1, EACCES}});
    EXPECT_FALSE(Agent().RegQueryAppStateCallBackImpl(DropAnswers));
    EXPECT_THAT(LogLines(),
                ElementsAre("INFO ProcMgrAgent : RegQueryAppStateCallBackImpl begin:cur_proName=owner",
                            "ERROR ProcMgrAgent : TunorOpen failed!! ret=-1, errno=13",
                            "ERROR ProcMgrAgent :RegQueryAppStateCallBackImpl failed: CheckPipeIsOk failed"));
}

TEST(ClosePipe, ClosesAnOpenPipeOnce) {
    ASSERT_TRUE(Agent().IsOk());
    Agent().ClosePipe();
    Agent().ClosePipe();
    EXPECT_THAT(FakePipe::Get().Closed(), ElementsAre(FakePipe::Get().LastFd()));
}

TEST(ClosePipe, DoesNothingWhenThePipeWasNeverOpened) {
    Agent().ClosePipe();
    EXPECT_THAT(FakePipe::Get().Closed(), IsEmpty());
}

TEST(ClosePipe, LeavesRequestsWithoutAPipe) {
    ASSERT_TRUE(Agent().IsOk());
    Agent().ClosePipe();
    EXPECT_EQ(Agent().TermApp({{"cam"}}), 0xF10501U);
    EXPECT_THAT(FakePipe::Get().AllSent(), IsEmpty());
}

}  // namespace
}  // namespace ProcMgr
