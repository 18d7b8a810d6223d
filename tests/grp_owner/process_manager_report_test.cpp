#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using ProcessManagerReports = ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ProcessManagerReports, UnknownApplicationInTheMiddleOfABatchIsSkippedAndTheOthersAreHandled) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"cam", "nav"});
    server_.ReportAppStateFromProcMgr({Info("cam", Report::TERMINATED_NORMAL_EXIT, 11),
                                       Info("ghost", Report::TERMINATED_NORMAL_EXIT, 12),
                                       Info("nav", Report::TERMINATED_NORMAL_EXIT, 13)});
    EXPECT_EQ(ServerLines(),
              (Strings{"INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                       "INFO Receive app state from pm. (appName=cam,state=TERMINATED_NORMAL_EXIT,pid=11)",
                       "INFO Notify app state begin. (name=cam,pid=100,state=SWITCH_OFF)",
                       "INFO Receive app state from pm. (appName=ghost,state=TERMINATED_NORMAL_EXIT,pid=12)",
                       "INFO App:ghost is not in this group.",
                       "INFO Receive app state from pm. (appName=nav,state=TERMINATED_NORMAL_EXIT,pid=13)",
                       "INFO Notify app state begin. (name=nav,pid=100,state=SWITCH_OFF)",
                       "INFO GrpOwnerServer: ReportAppStateFromProcMgr end."}));
    EXPECT_EQ(StateOf("cam"), AppStateType::TERMINATED_STATE);
    EXPECT_EQ(StateOf("nav"), AppStateType::TERMINATED_STATE);
}

TEST_F(ProcessManagerReports, EmptyBatchLogsBeginAndEnd) {
    server_.ReportAppStateFromProcMgr({});
    EXPECT_EQ(FakeLog::Get().Lines(), (Strings{"INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                                               "INFO GrpOwnerServer: ReportAppStateFromProcMgr end."}));
}

TEST_F(ProcessManagerReports, NormalStartOfARunningApplicationIsAnnouncedWithItsNewPidAndThenWatched) {
    Load({Manifest("cam").HeartBeat().Gid(7)});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    Tell("cam", Report::RUNNING_NORMAL_START, 42);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 SWITCH_ON", "check cam gid=7"));
    EXPECT_EQ(ServerLines(), (Strings{"INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                                      "INFO Receive app state from pm. (appName=cam,state=RUNNING_NORMAL_START,pid=42)",
                                      "INFO Notify app state begin. (name=cam,pid=42,state=SWITCH_ON)",
                                      "INFO GroupOwner: register heart beat check success. (app=cam,gid=7)",
                                      "INFO GrpOwnerServer: ReportAppStateFromProcMgr end."}));
}

TEST_F(ProcessManagerReports, NormalStartThatDoesNotMakeItRunNotifiesNobodyButRegistersTheHeartBeatCheck) {
    Load({Manifest("cam").HeartBeat().Gid(7).Reporting()});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    Tell("cam", Report::RUNNING_NORMAL_START, 42);
    EXPECT_THAT(listener_.Heard(), ElementsAre("check cam gid=7"));
    EXPECT_EQ(StateOf("cam"), AppStateType::WAIT_READY_STATE);
}

TEST_F(ProcessManagerReports, ApplicationWithoutHeartBeatIsNeitherWatchedNorUnwatched) {
    Load({Manifest("cam")});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    Tell("cam", Report::RUNNING_NORMAL_START, 42);
    Tell("cam", Report::TERMINATED_NORMAL_EXIT, 42);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 SWITCH_ON", "cam 42 SWITCH_OFF"));
}

TEST_F(ProcessManagerReports, NormalRestartSwitchesOffWithTheOldPidAndOnWithTheNewOne) {
    Load({Manifest("cam").HeartBeat().Gid(7)});
    BringUp({"cam"});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Restart());
    Tell("cam", Report::RUNNING_NORMAL_RESTART, 43);
    EXPECT_THAT(listener_.Heard(),
                ElementsAre("stop checking cam", "cam 100 SWITCH_OFF", "cam 43 SWITCH_ON", "check cam gid=7"));
}

TEST_F(ProcessManagerReports, NormalRestartThatDoesNotMakeItRunOnlySwitchesOffAndWatches) {
    Load({Manifest("cam").HeartBeat().Gid(7).Reporting()});
    Tell("cam", Report::RUNNING_NORMAL_RESTART, 43);
    EXPECT_THAT(listener_.Heard(), ElementsAre("stop checking cam", "cam -1 SWITCH_OFF", "check cam gid=7"));
}

TEST_F(ProcessManagerReports, TerminationTimeOutTellsNobody) {
    Load({Manifest("cam").HeartBeat()});
    BringUp({"cam"});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Term());
    Tell("cam", Report::RUNNING_ABNORMAL_TERM_TIMEOUT, 1000);
    EXPECT_THAT(listener_.Heard(), IsEmpty());
    EXPECT_EQ(StateOf("cam"), AppStateType::RUNNING_STATE);
}

TEST_F(ProcessManagerReports, NormalExitSwitchesOffAndForgetsAnInstanceOfATemplate) {
    Load({Manifest("cam").Template().HeartBeat()});
    BringUp({"cam@1"});
    Tell("cam@1", Report::TERMINATED_NORMAL_EXIT, 1000);
    EXPECT_THAT(listener_.Heard(), ElementsAre("stop checking cam@1", "cam@1 100 SWITCH_OFF"));
    EXPECT_FALSE(IsKnown("cam@1"));
}

TEST_F(ProcessManagerReports, AbnormalExitIsAnnouncedAndThePolicyRestartsTheApplication) {
    Load({Manifest("cam").HeartBeat().Restart("on-failure")});
    BringUp({"cam"});
    Tell("cam", Report::TERMINATED_ABNORMAL_EXIT, 1000, 9);
    EXPECT_THAT(listener_.Heard(), ElementsAre("stop checking cam", "cam 100 ABNORMAL_EXIT"));
    EXPECT_EQ(ServerLines(),
              (Strings{"INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                       "INFO Receive app state from pm. (appName=cam,state=TERMINATED_ABNORMAL_EXIT,pid=1000)",
                       "WARN Receive app abnormal exit. (appName=cam,pid=1000, reason=9)",
                       "INFO Notify app state begin. (name=cam,pid=100,state=ABNORMAL_EXIT)",
                       "INFO GrpOwnerServer: ReportAppStateFromProcMgr end."}));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("RESTART 1#cam#0#0#"));
    EXPECT_EQ(StateOf("cam"), AppStateType::WAIT_READY_STATE);
}

TEST_F(ProcessManagerReports, AbnormalExitWithoutPolicyRestartsNothing) {
    Load({Manifest("cam")});
    BringUp({"cam"});
    Tell("cam", Report::TERMINATED_ABNORMAL_EXIT, 1000, 9);
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_EQ(StateOf("cam"), AppStateType::TERMINATED_STATE);
}

TEST_F(ProcessManagerReports, RequestedTerminationThatEndsAbnormallySucceedsAndIsRestartedByPolicy) {
    Load({Manifest("cam").Restart("on-failure")});
    BringUp({"cam"});
    processManager_.Answer("TERM", "cam", Report::TERMINATED_ABNORMAL_EXIT, 9);
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({App("cam")}, {}, {}, result, 5000));
    EXPECT_EQ(Text(result), "cam=SUCCESS");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#", "RESTART 1#cam#0#0#"));
}

TEST_F(ProcessManagerReports, AbnormalExitOfAnInstanceForgetsItSoThatNoPolicyRestartsIt) {
    Load({Manifest("cam").Template().Restart("on-forever")});
    BringUp({"cam@1"});
    Tell("cam@1", Report::TERMINATED_ABNORMAL_EXIT, 1000, 9);
    EXPECT_FALSE(IsKnown("cam@1"));
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_EQ(FakeLog::Get().LinesWith("SetTermedState"),
              Strings{"WARN ApplicationManager: SetTermedState cam@1 (no application found, skip it)."});
}

TEST_F(ProcessManagerReports, KindOutsideTheTableIsAnError) {
    Load({Manifest("cam")});
    Tell("cam", Report::INVALID_INTERMEDIATE_STATE, 5);
    server_.ReportAppStateFromProcMgr({{"cam", 6, 0, 0xffffffffU, 0}});
    EXPECT_EQ(ServerLines(), (Strings{"INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                                      "INFO Receive app state from pm. (appName=cam,state=Unknown,pid=5)",
                                      "ERROR GrpOwnerServer: ReportAppStateFromProcMgr app:cam state is unknown !",
                                      "INFO GrpOwnerServer: ReportAppStateFromProcMgr end.",
                                      "INFO GrpOwnerServer: ReportAppStateFromProcMgr begin.",
                                      "INFO Receive app state from pm. (appName=cam,state=Unknown,pid=6)",
                                      "ERROR GrpOwnerServer: ReportAppStateFromProcMgr app:cam state is unknown !",
                                      "INFO GrpOwnerServer: ReportAppStateFromProcMgr end."}));
}

TEST_F(ProcessManagerReports, KindsHaveNames) {
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::RUNNING_NORMAL_START), "RUNNING_NORMAL_START");
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::RUNNING_NORMAL_RESTART), "RUNNING_NORMAL_RESTART");
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::RUNNING_ABNORMAL_TERM_TIMEOUT),
              "RUNNING_ABNORMAL_TERM_TIMEOUT");
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::TERMINATED_NORMAL_EXIT), "TERMINATED_NORMAL_EXIT");
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::TERMINATED_ABNORMAL_EXIT), "TERMINATED_ABNORMAL_EXIT");
    EXPECT_EQ(server_.GetAppStateFromProcMgrName(Report::INVALID_INTERMEDIATE_STATE), "Unknown");
}

TEST_F(ProcessManagerReports, RecordReplacedByAReloadInTheMiddleIsTheOneThatIsAnnounced) {
    Load({Manifest("cam").HeartBeat().Gid(7)});
    BringUp({"cam"});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Restart());
    listener_.onNotice = [this](const std::string&, AppReportState state) {
        if (state == AppReportState::SWITCH_OFF) {
            EXPECT_TRUE(manager_.UpdateApplicationList({Manifest("cam").HeartBeat().Gid(8)}));
        }
    };
    Tell("cam", Report::RUNNING_NORMAL_RESTART, 43);
    EXPECT_THAT(listener_.Heard(),
                ElementsAre("stop checking cam", "cam 100 SWITCH_OFF", "cam 43 SWITCH_ON", "check cam gid=8"));
}

TEST_F(ProcessManagerReports, RecordDroppedByAReloadInTheMiddleEndsTheRow) {
    Load({Manifest("cam").HeartBeat().Gid(7)});
    BringUp({"cam"});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Restart());
    listener_.onNotice = [this](const std::string&, AppReportState) {
        EXPECT_TRUE(manager_.UpdateApplicationList({}));
    };
    Tell("cam", Report::RUNNING_NORMAL_RESTART, 43);
    EXPECT_THAT(listener_.Heard(), ElementsAre("stop checking cam", "cam 100 SWITCH_OFF"));
    EXPECT_EQ(FakeLog::Get().LinesWith("FindApplication").size(), 1U) << "the manager's own, for the report";
}

TEST_F(ProcessManagerReports, SelfReportingApplicationWhoseOwnReportComesLastIsNotAnnouncedAndItsStartSucceeds) {
    Load({Manifest("cam").Reporting()});
    clocks_.OnWait([this] {
        const bool stepped = processManager_.Step();
        server_.ReportAppStateFromApp("cam", 1000, AppReportState::SWITCH_ON);
        return stepped;
    });
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(server_.ChangeApp({}, {App("cam")}, {}, result, 5000));
    EXPECT_EQ(Text(result), "cam=SUCCESS");
    EXPECT_THAT(listener_.Heard(), IsEmpty());
}

TEST_F(ProcessManagerReports, SelfReportingApplicationWhoseOwnReportComesFirstIsAnnouncedOnce) {
    Load({Manifest("cam").Reporting()});
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    server_.ReportAppStateFromApp("cam", 42, AppReportState::SWITCH_ON);
    EXPECT_THAT(listener_.Heard(), IsEmpty());
    Tell("cam", Report::RUNNING_NORMAL_START, 42);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 SWITCH_ON"));
}

TEST_F(ProcessManagerReports, ActivelyExitNeverReachesTheSubscriberFromReportsAndNotices) {
    Load({Manifest("cam").HeartBeat().Restart("on-failure")});
    listener_.onNotice = [](const std::string&, AppReportState state) {
        EXPECT_NE(state, AppReportState::ACTIVELY_EXIT);
    };
    for (uint32_t kind = 0; kind < 8; ++kind) {
        Tell("cam", static_cast<Report>(kind), 42, kind);
        for (int status = 0; status < 3; ++status) {
            GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 42, status);
        }
        for (uint32_t state = 0; state < 8; ++state) {
            server_.ReportAppStateFromApp("cam", 42, static_cast<AppReportState>(state));
        }
    }
    EXPECT_FALSE(listener_.Heard().empty());
}

TEST_F(ProcessManagerReports, ReportsThatArriveThroughThePipeReachTheServer) {
    Load({Manifest("cam")});
    BringUp({"cam"});
    processManager_.Tell("cam", Report::TERMINATED_NORMAL_EXIT, 1000);
    EXPECT_TRUE(processManager_.Step());
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 100 SWITCH_OFF"));
}

}  // namespace ProcMgr
