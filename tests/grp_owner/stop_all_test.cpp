#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/grp_owner/group_fixture.h"

namespace ProcMgr {

using StopAllApp = ServerTest;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using Strings = std::vector<std::string>;

Strings StopLines() {
    return FakeLog::Get().LinesWith("StopAllApp");
}

}  // namespace

TEST_F(StopAllApp, StopsTheDrivingApplicationsFirstAndTheBaseApplicationsSecond) {
    Load({Manifest("base1").AutoBoot(), Manifest("base2").AutoBoot(), Manifest("cam"), Manifest("nav")});
    BringUp({"base1", "base2", "cam", "nav"});
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 2#cam#nav#", "TERM 2#base1#base2#"));
    EXPECT_EQ(pauses_, 2);
    EXPECT_EQ(StopLines(),
              (Strings{"INFO StopAllApp term driving app begin.", "INFO StopAllApp term driving app end. result: 1",
                       "INFO StopAllApp term base app begin.", "INFO StopAllApp term base app end. result: 1"}));
}

TEST_F(StopAllApp, LeavesBaseAppsAloneWhenDrivingStageFailsThreeTimes) {
    Load({Manifest("base").AutoBoot(), Manifest("cam"), Manifest("nav")});
    BringUp({"base", "cam", "nav"});
    processManager_.Answer("TERM", "cam", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    EXPECT_FALSE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 2#cam#nav#", "TERM 1#cam#", "TERM 1#cam#"));
    EXPECT_EQ(pauses_, 3);
    EXPECT_EQ(StopLines(), (Strings{"INFO StopAllApp term driving app begin.",
                                    "WARN StopAllApp drivingAppTermList 1 loop: cam term failed state: 1",
                                    "WARN StopAllApp drivingAppTermList 2 loop: cam term failed state: 1",
                                    "WARN StopAllApp drivingAppTermList 3 loop: cam term failed state: 1",
                                    "INFO StopAllApp term driving app end. result: 0"}));
    EXPECT_EQ(StateOf("base"), AppStateType::RUNNING_STATE);
}

TEST_F(StopAllApp, BaseStageFailsThreeTimes) {
    Load({Manifest("base").AutoBoot()});
    BringUp({"base"});
    processManager_.Answer("TERM", "base", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    EXPECT_FALSE(server_.StopAllApp());
    EXPECT_EQ(pauses_, 4);
    EXPECT_EQ(StopLines(),
              (Strings{"INFO StopAllApp term driving app begin.", "INFO StopAllApp term driving app end. result: 1",
                       "INFO StopAllApp term base app begin.",
                       "WARN StopAllApp baseAppTermList 1 loop: base term failed state: 1",
                       "WARN StopAllApp baseAppTermList 2 loop: base term failed state: 1",
                       "WARN StopAllApp baseAppTermList 3 loop: base term failed state: 1",
                       "INFO StopAllApp term base app end. result: 0"}));
}

TEST_F(StopAllApp, DrivingTableOfInitialisingAndTerminatedAppsStillAsksTheManagerOnceWithNothingAndPauses) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"nav"});
    Tell("nav", Report::TERMINATED_NORMAL_EXIT);
    Forget();
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_EQ(pauses_, 2);
    EXPECT_EQ(FakeLog::Get().LinesWith("ChangeApp begin"),
              (Strings{"INFO ChangeApp begin. (term=0,start=0,restart=0,timeout=5000 ms)",
                       "INFO ChangeApp begin. (term=0,start=0,restart=0,timeout=5000 ms)"}));
}

TEST_F(StopAllApp, BaseApplicationsAreNamedWhateverTheirState) {
    Load({Manifest("base").AutoBoot(), Manifest("late").AutoBoot()});
    BringUp({"base"});
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_EQ(FakeLog::Get().LinesWith("ChangeApp begin").back(),
              "INFO ChangeApp begin. (term=2,start=0,restart=0,timeout=5000 ms)");
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#base#"));
}

TEST_F(StopAllApp, SendsTheTerminationAgainToAnApplicationThatDidNotAnswer) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"cam", "nav"});
    processManager_.Ignore("TERM", "cam");
    EXPECT_FALSE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 2#cam#nav#", "TERM 1#cam#", "TERM 1#cam#"));
}

TEST_F(StopAllApp, ApplicationThatEndsDuringThePauseIsStoppedByTheNextAttempt) {
    Load({Manifest("cam")});
    BringUp({"cam"});
    processManager_.Ignore("TERM", "cam");
    onPause_ = [this] {
        if (pauses_ == 1) {
            Tell("cam", Report::TERMINATED_NORMAL_EXIT);
        }
    };
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#"));
    EXPECT_EQ(pauses_, 3);
    EXPECT_EQ(StopLines()[1], "WARN StopAllApp drivingAppTermList 1 loop: cam term failed state: 1");
}

TEST_F(StopAllApp, EachAttemptReportsItsOwnFailuresOnly) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"cam", "nav"});
    processManager_.Answer("TERM", "cam", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    processManager_.Answer("TERM", "nav", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
    onPause_ = [this] {
        if (pauses_ == 1) {
            Tell("nav", Report::TERMINATED_NORMAL_EXIT);
        }
    };
    EXPECT_FALSE(server_.StopAllApp());
    EXPECT_EQ(FakeLog::Get().LinesWith("loop:"),
              (Strings{"WARN StopAllApp drivingAppTermList 1 loop: cam term failed state: 1",
                       "WARN StopAllApp drivingAppTermList 1 loop: nav term failed state: 1",
                       "WARN StopAllApp drivingAppTermList 2 loop: cam term failed state: 1",
                       "WARN StopAllApp drivingAppTermList 3 loop: cam term failed state: 1"}));
}

TEST_F(StopAllApp, AttemptRefusedByARunningChangeKeepsItsListForTheNextOne) {
    Load({Manifest("cam"), Manifest("nav")});
    BringUp({"nav"});
    std::mutex mutex;
    std::condition_variable changed;
    bool isRefused = false;
    bool isChangeDone = false;
    const auto set = [&](bool& flag) {
        const std::lock_guard<std::mutex> lock(mutex);
        flag = true;
        changed.notify_all();
    };
    const auto waitFor = [&](const bool& flag) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return flag; });
    };
    onPause_ = [&] {
        if (pauses_ == 1) {
            set(isRefused);
            waitFor(isChangeDone);
        }
    };
    std::thread stopper;
    clocks_.OnWait([&] {
        if (!stopper.joinable()) {
            stopper = std::thread([&] { EXPECT_TRUE(server_.StopAllApp()); });
            waitFor(isRefused);
        }
        return processManager_.Step();
    });
    std::vector<AppChangeInfo> result;
    EXPECT_TRUE(manager_.ChangeApp({}, {App("cam")}, {}, result, 5000));
    set(isChangeDone);
    stopper.join();
    EXPECT_EQ(pauses_, 3);
    EXPECT_THAT(processManager_.RequestsOf("TERM"), ElementsAre("TERM 2#cam#nav#"));
    EXPECT_EQ(StateOf("nav"), AppStateType::TERMINATED_STATE);
}

TEST_F(StopAllApp, AnnouncesTheEndsButNoRequest) {
    Load({Manifest("base").AutoBoot(), Manifest("cam")});
    BringUp({"base", "cam"});
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(listener_.Heard(), ElementsAre("cam 100 SWITCH_OFF", "base 100 SWITCH_OFF"));
}

TEST_F(StopAllApp, InstancesOfTemplatesAreStoppedAndForgotten) {
    Load({Manifest("cam").Template()});
    BringUp({"cam@1"});
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam@1#"));
    EXPECT_FALSE(IsKnown("cam@1"));
}

TEST_F(StopAllApp, TemplateThatBootsByItselfIsStoppedAsTheBaseApplicationItIs) {
    Load({Manifest("cam").Template().AutoBoot()});
    BringUp({"cam"});
    EXPECT_TRUE(server_.StopAllApp());
    EXPECT_THAT(processManager_.Requests(), ElementsAre("TERM 1#cam#"));
}

}  // namespace ProcMgr
