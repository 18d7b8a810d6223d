#include <atomic>
#include <thread>

#include "tests/grp_owner/facade_fixture.h"

namespace ProcMgr {

namespace {

constexpr int kRounds = 300;

/// Runs `work` again and again in a thread until it is destroyed.
class Background {
public:
    explicit Background(std::function<void()> work)
        : thread_([this, work = std::move(work)] {
              while (!isDone_.load()) {
                  work();
              }
          }) {}

    ~Background() {
        isDone_ = true;
        thread_.join();
    }

    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

private:
    std::atomic<bool> isDone_{false};
    std::thread thread_;
};

Message::AppStateInfo Info(const std::string& name, Message::ReportAppStateType kind) {
    return {name, 7, 0, static_cast<uint32_t>(kind), 0};
}

/// Without the listener, which is for one thread.
class Concurrent : public FacadeTest {
protected:
    void SetUp() override { owner_.SubscribeAppState({}); }
};

}  // namespace

TEST_F(Concurrent, SubscribersAreReplacedWhileReportsNoticesAndStatesComeIn) {
    Enable({Manifest("cam").HeartBeat().Restart("on-forever")});
    GrpOwnerServer server([] {});
    std::atomic<int> heard{0};
    std::atomic<int> states{0};
    {
        const Background reports([&] {
            server.ReportAppStateFromProcMgr({Info("cam", Message::ReportAppStateType::RUNNING_NORMAL_RESTART),
                                              Info("cam", Message::ReportAppStateType::TERMINATED_ABNORMAL_EXIT)});
        });
        const Background notices([] {
            GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 7, 1);
            GrpOwnerServer::ProcessHeartBeatNotify("cam", 3, 7, 0);
        });
        const Background requests([&] {
            owner_.ReportAppStateFromApp("cam", 7, AppReportState::SWITCH_ON);
            static_cast<void>(server.SetSystemState(1, 100));
        });
        for (int i = 0; i < kRounds || heard == 0 || states == 0; ++i) {
            const auto token = std::make_shared<int>(i);
            owner_.SubscribeAppState([&heard, token](const std::string&, int, AppReportState) {
                ++heard;
                return *token >= 0;
            });
            server.SubscribeSystemState([&states, token](int, int) {
                ++states;
                return *token >= 0;
            });
        }
        owner_.SubscribeAppState({});
        server.SubscribeSystemState({});
    }
    EXPECT_GT(heard, 0);
    EXPECT_GT(states, 0);
}

TEST_F(Concurrent, ReportsMayComeInWhileTheOwnerIsBeingEnabled) {
    FakeManifests::Get().SetManifests({Manifest("cam"), Manifest("nav").HeartBeat()});
    ASSERT_EQ(owner_.GrpOwnerConfig(Config()), 0);
    FakePipe::Get().OnSend([this](const FakePipe::Sent&) {
        for (int i = 0; i < kRounds; ++i) {
            processManager_.Tell("nav", Report::RUNNING_NORMAL_START, 7);
        }
        processManager_.AnswerAtOnce();
    });
    EXPECT_EQ(owner_.GrpOwnerEnable(), 0);
    EXPECT_TRUE(owner_.CheckAppExisted("cam"));
    EXPECT_TRUE(FakePipe::Get().WaitUntilDelivered());
}

TEST_F(Concurrent, QueriesAndListsAreServedWhileAChangeRuns) {
    Enable({Manifest("cam"), Manifest("nav")});
    const Background looking([this] {
        ApplicationInfo info;
        EXPECT_EQ(owner_.QueryAppInfo("cam", info), 0);
        std::vector<std::string> names;
        EXPECT_TRUE(manager_.QueryAppList(names));
    });
    for (int i = 0; i < kRounds / 10; ++i) {
        std::map<std::string, bool> result;
        EXPECT_EQ(owner_.ChangeAppState({}, {"cam", "nav"}, {}, result), 0);
        EXPECT_EQ(owner_.ChangeAppState({"cam", "nav"}, {}, {}, result), 0);
    }
}

}  // namespace ProcMgr
