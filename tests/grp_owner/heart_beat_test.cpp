#include <stdexcept>

#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using HeartBeats = ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(HeartBeats, LostThenRestartTellsLostOffOnAndRecoveryBeforeTheCheckIsRegisteredAgain) {
    Load({Manifest("cam").HeartBeat().Gid(7)});
    BringUp({"cam"});
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 1), 1);
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Restart());
    Tell("cam", Report::RUNNING_NORMAL_RESTART, 43);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 1000 HEART_BEAT_LOST", "stop checking cam", "cam 100 SWITCH_OFF",
                                               "cam 43 SWITCH_ON", "cam 43 HEART_BEAT_RECOVERY", "check cam gid=7"));
}

TEST_F(HeartBeats, RecoveryIsToldOnceAfterALoss) {
    Load({Manifest("cam").HeartBeat()});
    BringUp({"cam"});
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 1), 1);
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 0), 1);
    server_.ReportAppStateFromApp("cam", 1000, AppReportState::SWITCH_ON);
    EXPECT_THAT(listener_.Heard(),
                ElementsAre("cam 1000 HEART_BEAT_LOST", "cam 1000 HEART_BEAT_RECOVERY", "check cam gid=0"));
}

TEST_F(HeartBeats, LossOutlivesTheEndOfTheApplicationUntilItComesUpAgain) {
    Load({Manifest("cam").HeartBeat()});
    BringUp({"cam"});
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 1), 1);
    Tell("cam", Report::TERMINATED_NORMAL_EXIT, 1000);
    ASSERT_TRUE(manager_.FindApplicationSilently("cam")->Start());
    listener_.Clear();
    Tell("cam", Report::RUNNING_NORMAL_START, 44);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 44 SWITCH_ON", "cam 44 HEART_BEAT_RECOVERY", "check cam gid=0"));
}

TEST_F(HeartBeats, NoticesAreLoggedAndToldWithTheirPid) {
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 42, 1), 1);
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 0xffffffffU, 0), 1);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Strings{"INFO GroupOwner: process heart beat notify. (app=cam,pid=42,status=lost)",
                       "INFO Notify app state begin. (name=cam,pid=42,state=HEART_BEAT_LOST)",
                       "INFO GroupOwner: process heart beat notify. (app=cam,pid=-1,status=recovery)",
                       "INFO Notify app state begin. (name=cam,pid=-1,state=HEART_BEAT_RECOVERY)"}));
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 HEART_BEAT_LOST", "cam -1 HEART_BEAT_RECOVERY"));
}

TEST_F(HeartBeats, NameIsExactlyAsManyBytesAsTheLengthSays) {
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify("camera", 3, 42, 1), 1);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 42 HEART_BEAT_LOST"));
}

TEST_F(HeartBeats, NoticeWithStatus2Returns0AndChangesNothing) {
    Load({Manifest("cam").HeartBeat()});
    BringUp({"cam"});
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 1), 1);
    listener_.Clear();
    Forget();
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, 2), 0);
    EXPECT_EQ(FakeHeartBeat::Get().NotifyHeartBeat("cam", 1000, -1), 0);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
    GrpOwnerServer::RegisterAppHeartBeat(manager_.FindApplicationSilently("cam"));
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 100 HEART_BEAT_RECOVERY", "check cam gid=0"));
}

TEST_F(HeartBeats, NoticeWithoutNameIsRefused) {
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify(nullptr, 3, 42, 1), 0);
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify("cam", 0, 42, 1), 0);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Strings{"ERROR GroupOwner: process heart beat notify, app name is invalid. (nameLen=3)",
                       "ERROR GroupOwner: process heart beat notify, app name is invalid. (nameLen=0)"}));
    EXPECT_THAT(listener_.Heard(), IsEmpty());
}

TEST_F(HeartBeats, ExceptionOfASubscriberDoesNotReachTheLibrary) {
    GrpOwnerServer::SubscribeAppState(
        [](const std::string&, int, AppReportState) -> bool { throw std::runtime_error("subscriber"); });
    EXPECT_EQ(GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 42, 1), 0);
}

TEST_F(HeartBeats, FailedRegistrationIsLoggedWithTheLibrarysCodeAndNotRetried) {
    Load({Manifest("cam").HeartBeat()});
    FakeHeartBeat::Get().SetResult(FakeHeartBeat::Operation::REGISTER_CHECK, -5);
    GrpOwnerServer::RegisterAppHeartBeat(manager_.FindApplicationSilently("cam"));
    EXPECT_EQ(FakeLog::Get().Lines(), Strings{"ERROR GroupOwner: register heart beat check failed. (app=cam,ret=-5)"});
    EXPECT_THAT(listener_.Heard(), ElementsAre("check cam gid=0"));
}

TEST_F(HeartBeats, UpdatesOfOtherStatesChangeNothing) {
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::HEART_BEAT_LOST);
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::SWITCH_OFF);
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::ABNORMAL_EXIT);
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::ACTIVELY_EXIT);
    EXPECT_THAT(listener_.Heard(), IsEmpty());
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::SWITCH_ON);
    GrpOwnerServer::UpdateHeartBeatLostApps("cam", 1, AppReportState::SWITCH_ON);
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 1 HEART_BEAT_RECOVERY"));
}

}  // namespace ProcMgr
