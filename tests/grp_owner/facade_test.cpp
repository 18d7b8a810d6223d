#include <cstddef>

#include "tests/grp_owner/facade_fixture.h"

namespace ProcMgr {

using Facade = FacadeTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

static_assert(sizeof(ApplicationInfo) == 8 && offsetof(ApplicationInfo, cfgDeviceId) == 4);
static_assert(sizeof(GrpOwnerCfg) == 112, "three strings, two flags, a pointer");

TEST_F(Facade, IsOneInstance) {
    EXPECT_EQ(&ProcMgrGrpOwner::GetInstance(), &owner_);
}

TEST_F(Facade, ChangeOfThreeEmptyListsSucceedsWithTimeOut5000AndLeavesTheResultUnchanged) {
    Enable({Manifest("cam")});
    std::map<std::string, bool> result{{"old", true}};
    EXPECT_EQ(owner_.ChangeAppState({}, {}, {}, result), 0);
    EXPECT_THAT(result, ElementsAre(Pair("old", true)));
    EXPECT_EQ(
        FakeLog::Get().LinesWith("ChangeApp begin"),
        (Strings{"INFO GrpOwnerServer receive callback(RegSsChangeAppCallBack)  ChangeApp begin. (timeout=5000 ms)",
                 "INFO ChangeApp begin. (term=0,start=0,restart=0,timeout=5000 ms)"}));
}

TEST_F(Facade, ChangeWhereOneOfTwoApplicationsFailsReturns1WithTrueForTheOneAndFalseForTheOther) {
    Enable({Manifest("cam"), Manifest("nav")});
    processManager_.Answer("START", "nav", Report::TERMINATED_ABNORMAL_EXIT, 1);
    std::map<std::string, bool> result{{"old", true}, {"nav", true}};
    EXPECT_EQ(owner_.ChangeAppState({}, {"cam", "nav"}, {}, result), 1);
    EXPECT_THAT(result, ElementsAre(Pair("cam", true), Pair("nav", false), Pair("old", true)));
}

TEST_F(Facade, ChangeTerminatesStartsAndRestartsWithoutArguments) {
    Enable({Manifest("cam"), Manifest("map").Arguments({"-m"}), Manifest("nav").Arguments({"-n"})});
    std::map<std::string, bool> result;
    ASSERT_EQ(owner_.ChangeAppState({}, {"cam", "nav"}, {}, result), 0);
    processManager_.ClearRequests();
    result.clear();
    EXPECT_EQ(owner_.ChangeAppState({"cam"}, {"map"}, {"nav"}, result), 0);
    EXPECT_THAT(result, ElementsAre(Pair("cam", true), Pair("map", true), Pair("nav", true)));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#", "START 1#map#0#0#", "RESTART 1#nav#0#0#"));
}

TEST_F(Facade, ChangeWithoutArgumentsWipesTheManifestsArgumentsForPolicyRestartsToo) {
    Enable({Manifest("cam").Arguments({"-m"}).Restart("on-failure")});
    std::map<std::string, bool> result;
    ASSERT_EQ(owner_.ChangeAppState({}, {"cam"}, {}, result), 0);
    processManager_.ClearRequests();
    processManager_.Tell("cam", Report::TERMINATED_ABNORMAL_EXIT, 1000, 1);
    EXPECT_TRUE(processManager_.Step());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#cam#0#0#"));
}

TEST_F(Facade, ChangeRefusedByARunningOneReturns1AndLeavesTheResultUntouched) {
    Enable({Manifest("cam"), Manifest("nav")});
    std::map<std::string, bool> refused{{"nav", true}};
    int answer = -1;
    clocks_.OnWait([&] {
        if (answer == -1) {
            answer = owner_.ChangeAppState({}, {"nav"}, {}, refused);
        }
        return processManager_.Step();
    });
    std::map<std::string, bool> result;
    EXPECT_EQ(owner_.ChangeAppState({}, {"cam"}, {}, result), 0);
    EXPECT_EQ(answer, 1);
    EXPECT_THAT(refused, ElementsAre(Pair("nav", true)));
}

TEST_F(Facade, RestartReturns0EvenWhenTheApplicationIsUnknown) {
    Enable({Manifest("cam").Restart("on-failure")});
    EXPECT_EQ(owner_.GrpOwnerRestartApp("ghost"), 0);
    EXPECT_EQ(owner_.GrpOwnerRestartApp("cam"), 0);
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#cam#0#0#"));
}

TEST_F(Facade, EventsAreAcceptedWheneverReportingIsEnabledWhateverTheData) {
    GrpOwnerCfg cfg = Config();
    cfg.eventReportEnable = true;
    ASSERT_EQ(owner_.GrpOwnerConfig(cfg), 0);
    const unsigned char data[] = {1};
    EXPECT_EQ(owner_.ReportEventFromApp(nullptr, 0), 0);
    EXPECT_EQ(owner_.ReportEventFromApp(data, 1), 0);
    EXPECT_EQ(owner_.ReportEventFromApp(data, 0xffffffffU), 0);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST_F(Facade, EventsAreRefusedWhenReportingIsNotEnabled) {
    EXPECT_EQ(owner_.ReportEventFromApp(nullptr, 0), 1);
    EXPECT_EQ(FakeLog::Get().Lines(), Strings{"ERROR Event report module isn't enabled."});
}

TEST_F(Facade, QueryOfAnUnknownApplicationReturns1AndDoesNotModifyTheInfo) {
    Enable({});
    ApplicationInfo info{7, 8};
    EXPECT_EQ(owner_.QueryAppInfo("ghost", info), 1);
    EXPECT_EQ(info.nodeType, 7U);
    EXPECT_EQ(info.cfgDeviceId, 8U);
    EXPECT_EQ(FacadeLines(), Strings{"INFO App ghost is not managed this group owner."});
}

TEST_F(Facade, QueryFillsNodeTypeAndDeviceIdOfTheManifest) {
    Enable({Manifest("cam").NodeType(-1).VfId(9)});
    ApplicationInfo info;
    EXPECT_EQ(owner_.QueryAppInfo("cam", info), 0);
    EXPECT_EQ(info.nodeType, 0xffffffffU);
    EXPECT_EQ(info.cfgDeviceId, 9U);
}

TEST_F(Facade, CheckSaysWhetherAnApplicationIsManagedAndAddsNothing) {
    Enable({Manifest("cam")});
    EXPECT_TRUE(owner_.CheckAppExisted("cam"));
    EXPECT_THAT(FacadeLines(), IsEmpty());
    EXPECT_FALSE(owner_.CheckAppExisted("ghost"));
    EXPECT_FALSE(owner_.CheckAppExisted("ghost"));
    EXPECT_EQ(FacadeLines(), (Strings{"INFO App ghost is not managed by app manager, will be added to monitor.",
                                      "INFO App ghost is not managed by app manager, will be added to monitor."}));
}

TEST_F(Facade, AutoStartStartsTheBaseApplicationsAndSaysWhetherAllCameUp) {
    Enable({Manifest("base").AutoBoot(), Manifest("cam").AutoBoot().DependsOn({"base"}), Manifest("nav")});
    EXPECT_TRUE(owner_.StartAutoStartApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#base#0#0#", "START 1#cam#0#0#"));
    EXPECT_THAT(listener_.Heard(), ElementsAre("base 100 SWITCH_ON", "cam 100 SWITCH_ON"));
}

TEST_F(Facade, AutoStartFailsWhenOneDoesNotComeUp) {
    Enable({Manifest("base").AutoBoot()});
    processManager_.Ignore("START", "base");
    EXPECT_FALSE(owner_.StartAutoStartApp());
}

TEST_F(Facade, SelfStateIsSentAndSuccessIsTrue) {
    Enable({});
    EXPECT_TRUE(owner_.ReportSelfStateToPm(true));
    EXPECT_TRUE(owner_.ReportSelfStateToPm(false));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TYPE3 1#2#", "TYPE3 1#3#"));
    EXPECT_EQ(FacadeLines(), (Strings{"INFO Group owner running ok.",
                                      "ERROR Group owner running failed, so report <TERMINATING> to pm."}));
}

TEST_F(Facade, SelfStateThatCannotBeSentIsFalse) {
    EXPECT_FALSE(owner_.ReportSelfStateToPm(true)) << "not enabled, so no pipe";
    Enable({});
    processManager_.FailSends(1, 1);
    EXPECT_FALSE(owner_.ReportSelfStateToPm(true));
}

TEST_F(Facade, ReportsOfApplicationsReachTheServer) {
    Enable({Manifest("cam").Reporting()});
    owner_.ReportAppStateFromApp("cam", 5, AppReportState::SWITCH_ON);
    EXPECT_EQ(StateOf("cam"), AppStateType::RUNNING_STATE);
}

TEST_F(Facade, SubscriberOfApplicationStatesIsReplacedAndCleared) {
    Enable({Manifest("cam")});
    Strings heard;
    owner_.SubscribeAppState([&](const std::string& name, int pid, AppReportState) {
        heard.push_back(name + std::to_string(pid));
        return true;
    });
    std::map<std::string, bool> result;
    EXPECT_EQ(owner_.ChangeAppState({}, {"cam"}, {}, result), 0);
    EXPECT_THAT(heard, ElementsAre("cam100"));
    EXPECT_THAT(listener_.Heard(), IsEmpty());
    owner_.SubscribeAppState({});
    EXPECT_EQ(owner_.ChangeAppState({"cam"}, {}, {}, result), 0);
    EXPECT_THAT(heard, ElementsAre("cam100"));
}

TEST_F(Facade, SubscriberIsCopied) {
    const auto target = std::make_shared<int>(0);
    {
        const std::function<bool(int, int)> subscriber = [target](int, int) { return true; };
        owner_.SubscribeSystemState(subscriber);
    }
    EXPECT_EQ(target.use_count(), 2);
    owner_.SubscribeSystemState({});
    EXPECT_EQ(target.use_count(), 1);
}

TEST_F(Facade, UnhandledFieldsOfTheConfigurationAreAccepted) {
    GrpOwnerCfg cfg = Config();
    cfg.reserved = "kept";
    cfg.logOutput = [](int, const char*) { ADD_FAILURE(); };
    Enable({Manifest("cam")}, cfg);
    EXPECT_FALSE(owner_.CheckAppExisted("ghost"));
}

}  // namespace ProcMgr
