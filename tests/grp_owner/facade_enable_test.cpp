#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <future>
#include <thread>

#include "include/ss_to_owner_server.h"
#include "tests/grp_owner/facade_fixture.h"
#include "tests/ss_server/ss_requests.h"

namespace ProcMgr {

using GrpOwnerEnable = FacadeTest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kClosedOnce = 42;
constexpr int kServed = 43;

/// Runs after the static objects of later construction are gone.
void ExitWithWhatWasClosed() {
    _exit(FakePipe::Get().Closed().size() == 1 ? kClosedOnce : 1);
}

/// What a request that is under way when the process exits tells and hears. Never destroyed.
struct LateRequest {
    std::promise<void> begun;
    std::promise<void> exiting;
    std::atomic<bool> isServed{false};

    static LateRequest& Get() {
        static LateRequest& request = *new LateRequest;
        return request;
    }

    /// The subscriber: waits for the exit, then needs the manager.
    static bool OnSystemState(int /*state*/, int /*timeoutMs*/) {
        Get().begun.set_value();
        Get().exiting.get_future().wait();
        LetAnExitThatDoesNotWaitOvertake();
        Get().isServed = ProcMgrGrpOwner::GetInstance().CheckAppExisted("cam");
        return true;
    }

    static void LetAnExitThatDoesNotWaitOvertake() {
        for (int i = 0; i < 10000; ++i) {
            std::this_thread::yield();
        }
    }

    static void Send() {
        IoctlBuffer buffer("1");
        buffer.Send(2);
    }
};

}  // namespace

TEST_F(GrpOwnerEnable, AgentThatIsNotOkFailsItAndTheManagerIsNotInitialised) {
    FakePipe::Get().ScriptOpen({{-1, ETIMEDOUT}});
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 1);
    EXPECT_EQ(FacadeLines(), Strings{"ERROR GroupOwner: ProcMgrAgent RegAppStateChangeCallBack failed because "
                                     "ProcMgrAgent is not OK."});
    EXPECT_THAT(FakeManifests::Get().Calls(), IsEmpty());
    EXPECT_THAT(FakePipe::Get().AllSent(), IsEmpty());
    EXPECT_THAT(FakeVek::Get().Services(), IsEmpty());
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), IsEmpty());
}

TEST_F(GrpOwnerEnable, WithoutServiceItReturns0AndRegistersNothingOnTheBus) {
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_THAT(FakeVek::Get().Services(), IsEmpty());
    EXPECT_EQ(FacadeLines(), Strings{"INFO GroupOwner: ProcMgrAgent RegAppStateChangeCallBack."});
}

TEST_F(GrpOwnerEnable, WithServiceItRegistersExactlyTheEightCallbacksInOrderUnderTheResourceFileName) {
    GrpOwnerCfg cfg = Config();
    cfg.ssServerEnable = true;
    ASSERT_EQ(owner_.GrpOwnerConfig(cfg), 0);
    FakeVek::Get().SetResult(FakeVek::Operation::REGISTER_SERVICE, 13);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0) << "the service's results are ignored";
    EXPECT_EQ(FakeLog::Get().LinesWith("resFileName"),
              (Strings{"ERROR RegSsVerifyAppCallBackImpl failed, resFileName=res",
                       "ERROR RegSsChangeAppCallBackImpl(with timeout) failed, resFileName=res",
                       "ERROR RegReloadCallBackImpl failed, resFileName=res",
                       "ERROR RegDumpCallBackImpl failed, resFileName=res",
                       "ERROR RegQueryAppListCallBackImpl failed, resFileName=res",
                       "ERROR RegStopAllAppCallBackImpl failed, resFileName=res",
                       "ERROR RegSetSystemStateCallBackImpl(with timeout) failed, resFileName=res",
                       "ERROR RegSsQueryAppStateCallBackImpl failed, resFileName=res"}));
    ASSERT_EQ(FakeVek::Get().Services().size(), 8U);
    for (const FakeVek::Service& service : FakeVek::Get().Services()) {
        EXPECT_EQ(service.name, "res");
    }
}

TEST_F(GrpOwnerEnable, RegistersTheAgentsCallbacksBeforeTheManagerLoadsItsConfiguration) {
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    Strings linesAtLoad;
    processManager_.OnCommand([&](const std::string&) {});
    FakePipe::Get().OnSend([&](const FakePipe::Sent&) { linesAtLoad = FakeLog::Get().Lines(); });
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    Strings registrations;
    for (const std::string& line : linesAtLoad) {
        if (line.find("success fd=") != std::string::npos) {
            registrations.push_back(line.substr(0, line.find("success")));
        }
    }
    EXPECT_EQ(registrations, (Strings{"INFO ********* ProcMgrAgent : RegAppStateChangeCallBack ",
                                      "INFO ProcMgrAgent : RegQueryAppStateCallBackImpl "}));
}

TEST_F(GrpOwnerEnable, ManagerThatFailsToInitialiseFailsItAndTheCallbacksStay) {
    FakeManifests::Get().SetManifests({Manifest("cam")});
    FakePipe::Get().ScriptAnswer({{0, "7"}});
    GrpOwnerCfg cfg = Config();
    cfg.ssServerEnable = true;
    ASSERT_EQ(owner_.GrpOwnerConfig(cfg), 0);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 1);
    EXPECT_EQ(FacadeLines(), (Strings{"INFO GroupOwner: ProcMgrAgent RegAppStateChangeCallBack.",
                                      "ERROR GroupOwner: ApplicationManager init failed."}));
    EXPECT_THAT(FakeVek::Get().Services(), IsEmpty());
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), IsEmpty());
    processManager_.Tell("cam", Report::RUNNING_NORMAL_START, 4);
    EXPECT_TRUE(processManager_.Step());
    EXPECT_EQ(LinesOf("grp_owner_server.cpp").at(2), "INFO App:cam is not in this group.");
}

TEST_F(GrpOwnerEnable, MayBeCalledAgainAfterAFailure) {
    FakeManifests::Get().SetManifests({Manifest("cam").AutoBoot()});
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    FakePipe::Get().ScriptOpen({{-1, ETIMEDOUT}});
    EXPECT_EQ(owner_.GrpOwnerEnable(), 1);
    FakePipe::Get().ScriptAnswer({{0, "7"}});
    EXPECT_EQ(owner_.GrpOwnerEnable(), 1);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_TRUE(owner_.StartAutoStartApp());
}

TEST_F(GrpOwnerEnable, UnconfiguredItTakesTheEntryPathFromTheEnvironment) {
    ASSERT_EQ(setenv("STARTUP_ENTRY_PATH", "/tmp", 1), 0);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_EQ(FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_YAML).at(0).text, "/tmp");
    EXPECT_THAT(FakeVek::Get().Services(), IsEmpty());
}

TEST_F(GrpOwnerEnable, ConfiguredPathIsUsedAsItIsAndALaterConfigurationReplacesAnEarlierOne) {
    GrpOwnerCfg first = Config();
    first.startupEntryPath = "/elsewhere";
    first.ssServerEnable = true;
    ASSERT_EQ(owner_.GrpOwnerConfig(first), 0);
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_EQ(FakeManifests::Get().CallsOf(FakeManifests::Operation::PARSE_YAML).at(0).text, "/group/manifests");
    EXPECT_THAT(FakeVek::Get().Services(), IsEmpty());
}

TEST_F(GrpOwnerEnable, StartsTheOwnersHeartBeatOnceAndDisableStopsItAndTheChecks) {
    ASSERT_EQ(setenv("PROC_NAME", "owner", 1), 0);
    Enable({Manifest("cam").HeartBeat().AutoBoot()});
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("send owner to PROCMGR"));
    EXPECT_TRUE(owner_.StartAutoStartApp());
    EXPECT_EQ(owner_.GrpOwnerDisable(), 0);
    EXPECT_THAT(FakeHeartBeat::Get().Lines(),
                ElementsAre("send owner to PROCMGR", "check cam gid=0", "stop sending", "stop checking all"));
}

TEST_F(GrpOwnerEnable, DisableWithoutEnableReturns0) {
    EXPECT_EQ(owner_.GrpOwnerDisable(), 0);
    EXPECT_THAT(FakeHeartBeat::Get().Lines(), ElementsAre("stop checking all"));
}

TEST_F(GrpOwnerEnable, OperationsStayCallableAfterDisable) {
    Enable({Manifest("cam").AutoBoot()});
    EXPECT_EQ(owner_.GrpOwnerDisable(), 0);
    EXPECT_TRUE(owner_.StartAutoStartApp());
    EXPECT_TRUE(owner_.CheckAppExisted("cam"));
}

TEST(GrpOwnerEnableDeathTest, PipeIsClosedAtExit) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            std::atexit(ExitWithWhatWasClosed);
            ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
            owner.GrpOwnerConfig({});
            owner.GrpOwnerEnable();
            std::exit(0);
        },
        testing::ExitedWithCode(kClosedOnce), "");
}

TEST(GrpOwnerEnableDeathTest, RequestUnderWayAtExitIsServedBeforeTheManagerGoes) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            std::atexit([] { _exit(LateRequest::Get().isServed ? kServed : 1); });
            FakeManifests::Get().SetManifests({Manifest("cam")});
            ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
            GrpOwnerCfg cfg;
            cfg.startupEntryPath = "/group/manifests";
            cfg.resFileName = "res";
            cfg.ssServerEnable = true;
            owner.GrpOwnerConfig(cfg);
            owner.SubscribeSystemState(LateRequest::OnSystemState);
            owner.GrpOwnerEnable();
            std::thread(LateRequest::Send).detach();
            LateRequest::Get().begun.get_future().wait();
            std::atexit([] { LateRequest::Get().exiting.set_value(); });
            std::exit(0);
        },
        testing::ExitedWithCode(kServed), "");
}

TEST(GrpOwnerEnableDeathTest, PipeStaysOpenAtExitWhenNothingWasEnabled) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            std::atexit(ExitWithWhatWasClosed);
            ProcMgrGrpOwner::GetInstance();
            std::exit(0);
        },
        testing::ExitedWithCode(1), "");
}

}  // namespace ProcMgr
