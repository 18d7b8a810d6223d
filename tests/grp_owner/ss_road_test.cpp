#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <csignal>

#include "tests/grp_owner/facade_fixture.h"
#include "tests/ss_server/ss_requests.h"

namespace ProcMgr {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A group that the system-state manager drives through the bus.
class SsRoad : public FacadeTest {
protected:
    void EnableWithService(const std::vector<ApplicationManifest>& manifests) {
        GrpOwnerCfg cfg = Config();
        cfg.ssServerEnable = true;
        Enable(manifests, cfg);
    }

    static std::string Ask(unsigned int cmd, const std::string& payload) {
        IoctlBuffer buffer(payload);
        const int length = buffer.Send(cmd);
        EXPECT_GE(length, 8);
        return buffer.Bytes(12, static_cast<size_t>(length) - 8);
    }
};

}  // namespace

TEST_F(SsRoad, ChangeStartsAndTerminatesWithArgumentsAndDynamicParameters) {
    EnableWithService({Manifest("cam").Template(), Manifest("nav")});
    EXPECT_EQ(Ask(0, "2#cam@1#0#1#-v#1#0#1#front#nav#0#0#0#"), "3#1#cam@1#0#nav#0#");
    EXPECT_THAT(processManager_.RequestsOf("START"), ElementsAre("START 2#nav#0#0#cam@1#1#-v#1#0#1#front#"));
    EXPECT_EQ(Ask(0, "1#cam#1#0#0#"), "2#1#cam@1#0#");
}

TEST_F(SsRoad, ChangeOfUnknownNamesIsAnsweredPerApplication) {
    EnableWithService({});
    EXPECT_EQ(Ask(0, "2#ghost#2#0#0##2#0#0#"), "3#0##3#ghost#3#");
    EXPECT_EQ(Ask(0, "0#"), "1#1#") << "the next change is accepted";
}

TEST_F(SsRoad, ListVerifyAndQueryAnswerFromTheManager) {
    EnableWithService({Manifest("base").AutoBoot(), Manifest("cam"), Manifest("nav")});
    EXPECT_EQ(Ask(6, ""), "1#base#cam#nav#");
    EXPECT_EQ(Ask(8, "2#cam#0#nav#1#"), "1");
    EXPECT_EQ(StateOf("cam"), AppStateType::RUNNING_STATE);
    processManager_.SetQueriedState("nav", 2);
    EXPECT_EQ(Ask(9, U32(2) + Sized("nav") + Sized("ghost")), std::string("\1") + U32(2) + Sized("nav") +
                                                                  U32(0xffffffffU) + U32(2) + Sized("ghost") +
                                                                  U32(0xffffffffU) + U32(1));
}

TEST_F(SsRoad, ReloadAndDumpAnswerABareDigit) {
    EnableWithService({Manifest("cam")});
    FakeManifests::Get().SetManifests({Manifest("cam"), Manifest("nav")});
    EXPECT_EQ(Ask(3, ""), "1");
    EXPECT_TRUE(IsKnown("nav"));
    EXPECT_EQ(Ask(4, ""), "1");
}

TEST_F(SsRoad, SystemStateReachesTheSubscriberWithTheTimeOutOfTheRequest) {
    EnableWithService({});
    EXPECT_EQ(Ask(2, "1"), "0#") << "nobody has subscribed";
    Strings states;
    owner_.SubscribeSystemState([&](int state, int timeoutMs) {
        states.push_back(std::to_string(state) + " within " + std::to_string(timeoutMs));
        return true;
    });
    EXPECT_EQ(Ask(2, "1"), "1#");
    EXPECT_THAT(states, ElementsAre("1 within 3000"));
}

TEST_F(SsRoad, StopAllStopsEverythingAndPausesAWholeSecondAfterEachOfItsTwoAttemptsThoughSignalsInterruptIt) {
    EnableWithService({Manifest("base").AutoBoot(), Manifest("cam")});
    EXPECT_EQ(Ask(0, "2#base#0#0#0#cam#0#0#0#"), "3#1#base#0#cam#0#");
    processManager_.ClearRequests();
    static std::atomic<int> interruptions{0};
    ASSERT_NE(std::signal(SIGALRM, [](int) { ++interruptions; }), SIG_ERR);
    const itimerval often{{0, 200000}, {0, 200000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask(5, ""), "1");
    const itimerval never{};
    EXPECT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
    EXPECT_GT(interruptions, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#", "TERM 1#base#"));
}

TEST_F(SsRoad, ChangeIsAnnouncedToTheSubscriber) {
    EnableWithService({Manifest("cam")});
    EXPECT_EQ(Ask(0, "1#cam#0#0#0#"), "2#1#cam#0#");
    EXPECT_EQ(Ask(0, "1#cam#1#0#0#"), "2#1#cam#0#");
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 100 SWITCH_ON", "cam 0 ACTIVELY_EXIT", "cam 100 SWITCH_OFF"));
}

}  // namespace ProcMgr
