#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

constexpr auto kInit = AppStateType::INIT_STATE;
constexpr auto kRunning = AppStateType::RUNNING_STATE;
constexpr auto kWaitReady = AppStateType::WAIT_READY_STATE;
constexpr auto kNone = static_cast<AppStateType>(5);

TEST(Application, ConstructedWithAnEmptyNameKeepsTheManifestsName) {
    EXPECT_EQ(Application(Manifest("cam"), "").GetAppName(), "cam");
}

TEST(Application, ConstructedWithANameBearsThatName) {
    EXPECT_EQ(Application(Manifest("cam").Template(), "cam@front").GetAppName(), "cam@front");
}

TEST(Application, CopiesTheAttributesOfItsManifest) {
    ManifestBuilder manifest = Manifest("cam");
    manifest.Uid(1001).Gid(1002).Arguments({"-a", "b"}).Restart("on-failure").TermTimeOut(700).RosNode().Reporting();
    manifest.HeartBeat().NodeType(-3).VfId(7).Template().AutoBoot();
    const Application application(manifest, "");
    EXPECT_EQ(application.GetUid(), 1001U);
    EXPECT_EQ(application.GetGid(), 1002U);
    EXPECT_EQ(application.GetArguments(), (std::vector<std::string>{"-a", "b"}));
    EXPECT_EQ(application.GetRestart(), "on-failure");
    EXPECT_EQ(application.GetTermTimeOut(), 700U);
    EXPECT_TRUE(application.GetIsRosNode());
    EXPECT_TRUE(application.GetIsReporting());
    EXPECT_TRUE(application.GetHeartBeatSwitch());
    EXPECT_EQ(application.GetNodeType(), -3);
    EXPECT_EQ(application.GetCfgDeviceId(), 7U);
    EXPECT_TRUE(application.GetIsDynamicPara());
    EXPECT_TRUE(application.GetIsAutoBoot());
}

TEST(Application, StartsInInitWithoutProcessRestartsOrQueriedState) {
    const Application application(Manifest("cam"), "");
    EXPECT_EQ(application.GetAppStateType(), kInit);
    EXPECT_EQ(application.GetPid(), -1);
    EXPECT_EQ(application.GetRestartCount(), 0U);
    EXPECT_EQ(application.GetQueriedState(), 1);
    EXPECT_FALSE(application.GetIsRosNode());
    EXPECT_FALSE(application.GetIsReporting());
    EXPECT_FALSE(application.GetHeartBeatSwitch());
    EXPECT_FALSE(application.GetIsDynamicPara());
}

TEST(Application, KeepsWhatIsSet) {
    Application application(Manifest("cam").Arguments({"old"}), "");
    application.SetPid(4711);
    application.SetRestartCount(3);
    application.SetQueriedState(2);
    application.SetArguments({"new", "er"});
    EXPECT_EQ(application.GetPid(), 4711);
    EXPECT_EQ(application.GetRestartCount(), 3U);
    EXPECT_EQ(application.GetQueriedState(), 2);
    EXPECT_EQ(application.GetArguments(), (std::vector<std::string>{"new", "er"}));
    application.SetArguments({});
    EXPECT_TRUE(application.GetArguments().empty());
}

TEST(Application, HasAPredicateForEveryStateButTerminating) {
    for (const AppStateType state : kAllStates) {
        const auto application = MakeApplication(Manifest("cam"), state);
        EXPECT_EQ(application->GetAppStateType(), state);
        EXPECT_EQ(application->IsAppInitializing(), state == AppStateType::INIT_STATE);
        EXPECT_EQ(application->IsAppRunning(), state == AppStateType::RUNNING_STATE);
        EXPECT_EQ(application->IsAppWaitReady(), state == AppStateType::WAIT_READY_STATE);
        EXPECT_EQ(application->IsAppTerminated(), state == AppStateType::TERMINATED_STATE);
    }
}

TEST(MapStateTypeToStatePointer, GivesANewStateOfEachKind) {
    const Application application(Manifest("cam"), "");
    for (const AppStateType state : kAllStates) {
        const auto pointer = application.MapStateTypeToStatePointer(state);
        ASSERT_NE(pointer, nullptr);
        EXPECT_EQ(pointer->GetType(), state);
        EXPECT_EQ(pointer->GetApplicationName(), "cam");
    }
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST(MapStateTypeToStatePointer, Of5ReturnsNullAndLogsTheError) {
    const Application application(Manifest("cam"), "");
    EXPECT_EQ(application.MapStateTypeToStatePointer(kNone), nullptr);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"ERROR Application::MapStateTypeToStatePointer: failed to determine the state type: 5"}));
}

TEST(SetAppState, WithNullKeepsTheOldState) {
    Application application(Manifest("cam"), "");
    application.SetAppState(nullptr);
    EXPECT_EQ(application.GetAppStateType(), kInit);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"ERROR Application::SetAppState: setting application cam 'state to NULL is invalid"}));
}

TEST(SetAppState, ReleasesThePreviousState) {
    Application application(Manifest("cam"), "");
    bool isReleased = false;
    application.SetAppState(std::make_shared<OddState>(kRunning, &application, &isReleased));
    EXPECT_FALSE(isReleased);
    application.SetAppState(application.MapStateTypeToStatePointer(kInit));
    EXPECT_TRUE(isReleased);
}

TEST(CompareAndSetAppState, ReplacesTheStateItExpects) {
    Application application(Manifest("cam"), "");
    EXPECT_TRUE(application.CompareAndSetAppState(kInit, kRunning));
    EXPECT_TRUE(application.IsAppRunning());
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST(CompareAndSetAppState, LeavesAnotherStateAlone) {
    const auto application = MakeApplication(Manifest("cam"), kWaitReady);
    EXPECT_FALSE(application->CompareAndSetAppState(kInit, kRunning));
    EXPECT_TRUE(application->IsAppWaitReady());
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST(CompareAndSetAppState, RefusesAKindThatDoesNotExist) {
    Application application(Manifest("cam"), "");
    EXPECT_FALSE(application.CompareAndSetAppState(kInit, kNone));
    EXPECT_TRUE(application.IsAppInitializing());
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "ERROR Application::MapStateTypeToStatePointer: failed to determine the state type: 5",
            "ERROR Application::CompareAndSetAppState: the next state should not be null, old state type is 0; next state type is 5"}));
}

TEST(CompareAndSetAppState, DoesNotLookAtTheNextKindWhenTheStateIsAnother) {
    Application application(Manifest("cam"), "");
    EXPECT_FALSE(application.CompareAndSetAppState(kRunning, kNone));
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{});
}

TEST(CopyDynamicAttributeFromApp, TakesOverStateProcessAndRestartCount) {
    for (const AppStateType state : kAllStates) {
        const auto from = MakeApplication(Manifest("cam"), state);
        from->SetPid(4711);
        from->SetRestartCount(2);
        from->SetQueriedState(0);
        from->SetArguments({"kept"});
        Application fresh(Manifest("cam").Arguments({"fresh"}), "");
        EXPECT_TRUE(fresh.CopyDynamicAttributeFromApp(*from));
        EXPECT_EQ(fresh.GetAppStateType(), state);
        EXPECT_EQ(from->GetAppStateType(), state);
        EXPECT_EQ(fresh.GetPid(), 4711);
        EXPECT_EQ(fresh.GetRestartCount(), 2U);
        EXPECT_EQ(fresh.GetQueriedState(), 1) << "the next query finds it out";
        EXPECT_EQ(fresh.GetArguments(), (std::vector<std::string>{"fresh"}));
    }
}

TEST(CopyDynamicAttributeFromApp, BindsTheStateToTheNewRecord) {
    auto from = MakeApplication(Manifest("cam"), kWaitReady);
    Application fresh(Manifest("cam"), "cam@new");
    ASSERT_TRUE(fresh.CopyDynamicAttributeFromApp(*from));
    from.reset();
    AppStateType previous{};
    EXPECT_EQ(fresh.ReportRunningNormalStartFromProcMgr(previous), AppChangeState::SUCCESS);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO WaitReadyApplicationState appName:cam@new ReportRunningNormalStartFromProcMgr",
                     "INFO WaitReadyApplicationState appName:cam@new is running after receiving pm report."}));
}

TEST(CopyDynamicAttributeFromApp, CopiesNothingFromAStateOfNoKnownKind) {
    Application from(Manifest("cam"), "");
    from.SetAppState(std::make_shared<OddState>(kNone, &from));
    from.SetPid(4711);
    from.SetRestartCount(2);
    const auto fresh = MakeApplication(Manifest("cam"), kRunning);
    EXPECT_FALSE(fresh->CopyDynamicAttributeFromApp(from));
    EXPECT_TRUE(fresh->IsAppRunning());
    EXPECT_EQ(fresh->GetPid(), -1);
    EXPECT_EQ(fresh->GetRestartCount(), 0U);
    EXPECT_EQ(
        FakeLog::Get().Lines(),
        (Lines{
            "ERROR Application::MapStateTypeToStatePointer: failed to determine the state type: 5",
            "ERROR Application::CopyDynamicAttributeFromApp: the next state should not be null.The original application is in state 5"}));
}

TEST(CopyDynamicAttributeFromApp, TakesTheRecordItself) {
    const auto application = MakeApplication(Manifest("cam"), kRunning);
    application->SetPid(7);
    EXPECT_TRUE(application->CopyDynamicAttributeFromApp(*application));
    EXPECT_TRUE(application->IsAppRunning());
    EXPECT_EQ(application->GetPid(), 7);
}

TEST(ApplicationMove, BindsANewStateToTheNewRecordAndLeavesTheSourceInInit) {
    const ManualClock clock;
    ManifestBuilder manifest = Manifest("cam").Restart("on-failure").Arguments({"a"});
    auto source = MakeApplication(manifest, kRunning);
    source->SetPid(4711);
    source->SetQueriedState(0);
    for (int round = 0; round < 5; ++round) {
        EXPECT_TRUE(source->IsOkToRestart());
    }
    Application moved(std::move(*source));
    EXPECT_TRUE(source->IsAppInitializing());  // NOLINT(bugprone-use-after-move): its state is promised
    source.reset();

    EXPECT_EQ(moved.GetAppName(), "cam");
    EXPECT_EQ(moved.GetPid(), 4711);
    EXPECT_EQ(moved.GetQueriedState(), 0);
    EXPECT_EQ(moved.GetRestart(), "on-failure");
    EXPECT_EQ(moved.GetArguments(), (std::vector<std::string>{"a"}));
    EXPECT_FALSE(moved.IsOkToRestart()) << "the restart window moved too";
    FakeLog::Get().Clear();
    EXPECT_TRUE(moved.Term());
    EXPECT_EQ(moved.GetAppStateType(), AppStateType::TERMINATING_STATE);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO RunningApplicationState appName:cam Term"}));
}

TEST(ApplicationMove, LeavesASourceThatCanStillBeUsed) {
    auto source = MakeApplication(Manifest("cam"), kRunning);
    const Application moved(std::move(*source));
    EXPECT_TRUE(source->Start());  // NOLINT(bugprone-use-after-move): its state is promised
    EXPECT_TRUE(source->IsAppWaitReady());
    EXPECT_TRUE(moved.IsAppRunning());
}

TEST(ApplicationMove, TurnsAStateOfNoKnownKindIntoInit) {
    Application source(Manifest("cam"), "");
    source.SetAppState(std::make_shared<OddState>(kNone, &source));
    const Application moved(std::move(source));
    EXPECT_TRUE(moved.IsAppInitializing());
}

TEST(ApplicationReports, WriteTheStateInForceBeforeTheCallIntoPrevious) {
    const auto application = MakeApplication(Manifest("cam"), kRunning);
    auto previous = kNone;
    EXPECT_EQ(application->ReportTerminatedNormalFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(previous, kRunning);
    EXPECT_EQ(application->ReportTerminatedNormalFromProcMgr(previous), AppChangeState::PROCESSING);
    EXPECT_EQ(previous, AppStateType::TERMINATED_STATE);
}

}  // namespace
}  // namespace ProcMgr
