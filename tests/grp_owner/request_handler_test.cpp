#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using RequestHandlers = ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(RequestHandlers, SetSystemStateGivesTheSubscribersAnswer) {
    bool answer = true;
    server_.SubscribeSystemState([&](int state, int timeoutMs) {
        EXPECT_EQ(state, 2);
        EXPECT_EQ(timeoutMs, 300);
        return answer;
    });
    EXPECT_TRUE(server_.SetSystemState(2, 300));
    answer = false;
    EXPECT_FALSE(server_.SetSystemState(2, 300));
    EXPECT_EQ(ServerLines(), (Strings{"INFO Set system state begin. (state=2,timeout=300 ms)",
                                      "INFO Set system state begin. (state=2,timeout=300 ms)"}));
}

TEST_F(RequestHandlers, SetSystemStateFailsWithoutSubscriber) {
    EXPECT_FALSE(server_.SetSystemState(-1, 0));
    server_.SubscribeSystemState([](int, int) { return true; });
    server_.SubscribeSystemState({});
    EXPECT_FALSE(server_.SetSystemState(1, 0));
    EXPECT_EQ(ServerLines()[0], "INFO Set system state begin. (state=-1,timeout=0 ms)");
}

TEST_F(RequestHandlers, SubscriberMayReplaceItselfWhileItIsCalled) {
    server_.SubscribeSystemState([this](int, int) {
        server_.SubscribeSystemState([](int, int) { return true; });
        return false;
    });
    EXPECT_FALSE(server_.SetSystemState(1, 0));
    EXPECT_TRUE(server_.SetSystemState(1, 0));
}

TEST_F(RequestHandlers, StatesZeroToTwoOfAnAnswerAreStoredAndTheQueryIsAnswered) {
    Load({Manifest("cam"), Manifest("map"), Manifest("nav")});
    processManager_.SetQueriedState("cam", 0);
    processManager_.SetQueriedState("map", 1);
    processManager_.SetQueriedState("nav", 2);
    std::vector<AppStatus> states;
    EXPECT_TRUE(server_.QueryAppState({"nav", "map", "cam", "ghost"}, states, 5000));
    ASSERT_EQ(states.size(), 4U);
    EXPECT_EQ(states[0].state, 2);
    EXPECT_EQ(states[1].state, 1);
    EXPECT_EQ(states[2].state, 0);
    EXPECT_EQ(states[3].state, 1);
    EXPECT_EQ(states[3].pid, -1);
}

TEST_F(RequestHandlers, Status3OfAKnownApplicationIsLoggedAsInvalidAndStillWakesTheWaitingQuery) {
    Load({Manifest("cam"), Manifest("nav")});
    processManager_.SetQueriedState("nav", 2);
    std::vector<AppStatus> states;
    ASSERT_TRUE(server_.QueryAppState({"nav"}, states, 5000));
    Forget();
    processManager_.SetQueriedState("nav", 3);
    ASSERT_TRUE(server_.QueryAppState({"nav"}, states, 5000));
    EXPECT_EQ(states[0].state, 2);
    EXPECT_EQ(ServerLines(), Strings{"ERROR GrpOwnerServer: nav detailstatus 3 invalid"});
}

TEST_F(RequestHandlers, AnswersAreTakenInNameOrderAndUnknownNamesAreLogged) {
    Load({Manifest("cam"), Manifest("nav")});
    server_.QueryAppStateRespFromProcMgr({{"nav", 4}, {"cam", 0xffffffffU}, {"ghost", 0}});
    EXPECT_EQ(ServerLines(), (Strings{"ERROR GrpOwnerServer: cam detailstatus 4294967295 invalid",
                                      "INFO GrpOwnerServer: ghost is not in this group.",
                                      "ERROR GrpOwnerServer: nav detailstatus 4 invalid"}));
}

TEST_F(RequestHandlers, EmptyAnswerWakesTheWaitingQueryToo) {
    Load({Manifest("cam")});
    processManager_.IgnoreQueries();
    clocks_.OnWait([this] {
        server_.QueryAppStateRespFromProcMgr({});
        return true;
    });
    std::vector<AppStatus> states;
    EXPECT_TRUE(server_.QueryAppState({"cam"}, states, 5000));
}

TEST_F(RequestHandlers, QueryWithoutAnswerFails) {
    Load({Manifest("cam")});
    processManager_.IgnoreQueries();
    std::vector<AppStatus> states;
    EXPECT_FALSE(server_.QueryAppState({"cam"}, states, 5000));
    EXPECT_THAT(states, IsEmpty());
}

TEST_F(RequestHandlers, ListVerifyReloadAndDumpGiveTheManagersResult) {
    Load({Manifest("base").AutoBoot(), Manifest("cam"), Manifest("nav")});
    std::vector<std::string> names;
    EXPECT_TRUE(server_.QueryAppList(names));
    EXPECT_THAT(names, ElementsAre("base", "cam", "nav"));
    EXPECT_TRUE(server_.GrpOwnerVerifyApp({{"cam", 1}, {"nav", 0}}));
    EXPECT_EQ(StateOf("cam"), AppStateType::TERMINATED_STATE);
    EXPECT_EQ(StateOf("nav"), AppStateType::RUNNING_STATE);
    EXPECT_TRUE(server_.ReloadCfg());
    FakePipe::Get().ScriptAnswer({{0, "1"}});
    EXPECT_FALSE(server_.ReloadCfg());
    EXPECT_TRUE(server_.ApplicationDump());
}

TEST_F(RequestHandlers, FindAppGivesTheApplicationOrLogsThatThereIsNone) {
    Load({Manifest("cam")});
    EXPECT_EQ(server_.FindApp("cam"), manager_.FindApplicationSilently("cam"));
    EXPECT_THAT(ServerLines(), IsEmpty());
    EXPECT_EQ(server_.FindApp("ghost"), nullptr);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Strings{"INFO ApplicationManager: FindApplication ghost (no application found).",
                       "INFO GrpOwnerServer::GrpOwnerServer::FindApp (no application found) app name is ghost."}));
}

TEST_F(RequestHandlers, EventsAreAcceptedAndDropped) {
    EXPECT_EQ(server_.GrpOwnerReportEvent(nullptr, 0), 0);
    const unsigned char data[] = {1, 2};
    EXPECT_EQ(server_.GrpOwnerReportEvent(data, sizeof(data)), 0);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

}  // namespace ProcMgr
