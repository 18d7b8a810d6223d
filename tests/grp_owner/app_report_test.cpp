#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using AppReports = ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(AppReports, SwitchOnMovesAKnownApplicationAndWatchesIt) {
    Load({Manifest("cam").Reporting().HeartBeat().Gid(7)});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    server_.ReportAppStateFromApp("cam", 42, AppReportState::SWITCH_ON);
    EXPECT_EQ(StateOf("cam"), AppStateType::RUNNING_STATE);
    EXPECT_THAT(listener_.Heard(), ElementsAre("check cam gid=7"));
    EXPECT_EQ(ServerLines(), (Strings{"INFO GrpOwnerServer: ReportAppStateFromApp. (appName=cam,state=on,pid=42)",
                                      "INFO GroupOwner: register heart beat check success. (app=cam,gid=7)"}));
    EXPECT_EQ(manager_.FindApplicationSilently("cam")->GetPid(), -1);
}

TEST_F(AppReports, SwitchOnOfAnUnknownApplicationIsOnlyLogged) {
    Load({});
    server_.ReportAppStateFromApp("ghost", 42, AppReportState::SWITCH_ON);
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Strings{
            "INFO ApplicationManager: FindApplication ghost (no application found).",
            "INFO ReportAppStateFromApp nodeName:ghost pid:42  cannot found in GrpOwner(with cfg). so add the appMonitor"}));
    EXPECT_FALSE(IsKnown("ghost"));
}

TEST_F(AppReports, SwitchOffIsOnlyLoggedWhetherTheApplicationIsKnownOrNot) {
    Load({Manifest("cam")});
    BringUp({"cam"});
    server_.ReportAppStateFromApp("cam", 42, AppReportState::SWITCH_OFF);
    server_.ReportAppStateFromApp("ghost", 43, AppReportState::SWITCH_OFF);
    EXPECT_EQ(ServerLines(), (Strings{"INFO GrpOwnerServer: ReportAppStateFromApp. (appName=cam,state=off,pid=42)",
                                      "INFO GrpOwnerServer: ReportAppStateFromApp. (appName=ghost,state=off,pid=43)"}));
    EXPECT_EQ(StateOf("cam"), AppStateType::RUNNING_STATE);
    EXPECT_THAT(listener_.Heard(), IsEmpty());
}

TEST_F(AppReports, OtherStatesDoNothing) {
    Load({Manifest("cam")});
    for (uint32_t state = 2; state < 8; ++state) {
        server_.ReportAppStateFromApp("cam", 42, static_cast<AppReportState>(state));
    }
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
    EXPECT_EQ(StateOf("cam"), AppStateType::INIT_STATE);
}

TEST_F(AppReports, NotificationGivesTheSubscribersAnswer) {
    EXPECT_TRUE(GrpOwnerServer::NotifyAppState("cam", 42, AppReportState::SWITCH_ON));
    listener_.answer = false;
    EXPECT_FALSE(GrpOwnerServer::NotifyAppState("cam", 42, AppReportState::SWITCH_ON));
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 SWITCH_ON", "cam 42 SWITCH_ON"));
}

TEST_F(AppReports, WithoutSubscriberNotificationStillLogsAndReturnsFalse) {
    GrpOwnerServer::SubscribeAppState({});
    EXPECT_FALSE(GrpOwnerServer::NotifyAppState("cam", 42, AppReportState::HEART_BEAT_LOST));
    EXPECT_FALSE(GrpOwnerServer::NotifyAppState("cam", -1, static_cast<AppReportState>(6)));
    EXPECT_EQ(FakeLog::Get().Lines(), (Strings{"INFO Notify app state begin. (name=cam,pid=42,state=HEART_BEAT_LOST)",
                                               "INFO Notify app state begin. (name=cam,pid=-1,state=unknown)"}));
}

TEST_F(AppReports, EveryStateIsLoggedByItsName) {
    GrpOwnerServer::SubscribeAppState({});
    for (uint32_t state = 0; state < 6; ++state) {
        EXPECT_FALSE(GrpOwnerServer::NotifyAppState("cam", 1, static_cast<AppReportState>(state)));
    }
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Strings{"INFO Notify app state begin. (name=cam,pid=1,state=SWITCH_ON)",
                       "INFO Notify app state begin. (name=cam,pid=1,state=SWITCH_OFF)",
                       "INFO Notify app state begin. (name=cam,pid=1,state=HEART_BEAT_LOST)",
                       "INFO Notify app state begin. (name=cam,pid=1,state=HEART_BEAT_RECOVERY)",
                       "INFO Notify app state begin. (name=cam,pid=1,state=ABNORMAL_EXIT)",
                       "INFO Notify app state begin. (name=cam,pid=1,state=ACTIVELY_EXIT)"}));
}

}  // namespace ProcMgr
