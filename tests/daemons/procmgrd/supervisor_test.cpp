#include "daemons/procmgrd/supervisor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace Procmgrd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::array<const char*, kProcessStates> kStateNames = {
    "DOWN",    "STARTING",    "STARTING_THEN_TERM",     "STARTING_THEN_RESTART",
    "RUNNING", "TERMINATING", "TERMINATING_THEN_START", "REPLACING"};
constexpr std::array<const char*, kProcessEvents> kEventNames = {
    "START", "RESTART", "TERM", "STARTED", "LAUNCH_FAILED", "EXITED", "FORCED_DEADLINE", "SOFT_DEADLINE", "APP_REPORT"};
constexpr std::array<const char*, 14> kVerbNames = {"",          "note",         "launch",  "term",   "kill",
                                                    "disarm",    "tell-started", "running", "failed", "stopped",
                                                    "tell-exit", "timeout",      "keep",    "pass-on"};

std::string Render(ProcessState state, ProcessEvent event) {
    const ProcessStep& step = StepOf(state, event);
    std::string line =
        std::string(kStateNames[static_cast<size_t>(state)]) + " " + kEventNames[static_cast<size_t>(event)] + ":";
    for (const Verb verb : step.verbs) {
        if (verb != Verb::NONE) {
            line += std::string(" ") + kVerbNames[static_cast<size_t>(verb)];
        }
    }
    return line + " -> " + kStateNames[static_cast<size_t>(step.next)];
}

std::string RenderGrid() {
    std::string grid = "\n";
    for (size_t state = 0; state < kProcessStates; ++state) {
        for (size_t event = 0; event < kProcessEvents; ++event) {
            grid += Render(static_cast<ProcessState>(state), static_cast<ProcessEvent>(event)) + "\n";
        }
    }
    return grid;
}

TEST(ProcessMachine, HasAnAnswerForEveryEventInEveryState) {
    EXPECT_EQ(RenderGrid(), R"(
DOWN START: note launch -> STARTING
DOWN RESTART: note launch -> STARTING
DOWN TERM: stopped -> DOWN
DOWN STARTED: -> DOWN
DOWN LAUNCH_FAILED: -> DOWN
DOWN EXITED: -> DOWN
DOWN FORCED_DEADLINE: -> DOWN
DOWN SOFT_DEADLINE: -> DOWN
DOWN APP_REPORT: -> DOWN
STARTING START: -> STARTING
STARTING RESTART: note -> STARTING_THEN_RESTART
STARTING TERM: -> STARTING_THEN_TERM
STARTING STARTED: tell-started pass-on -> RUNNING
STARTING LAUNCH_FAILED: failed -> DOWN
STARTING EXITED: -> STARTING
STARTING FORCED_DEADLINE: -> STARTING
STARTING SOFT_DEADLINE: -> STARTING
STARTING APP_REPORT: keep -> STARTING
STARTING_THEN_TERM START: note -> STARTING_THEN_RESTART
STARTING_THEN_TERM RESTART: note -> STARTING_THEN_RESTART
STARTING_THEN_TERM TERM: -> STARTING_THEN_TERM
STARTING_THEN_TERM STARTED: tell-started term -> TERMINATING
STARTING_THEN_TERM LAUNCH_FAILED: stopped -> DOWN
STARTING_THEN_TERM EXITED: -> STARTING_THEN_TERM
STARTING_THEN_TERM FORCED_DEADLINE: -> STARTING_THEN_TERM
STARTING_THEN_TERM SOFT_DEADLINE: -> STARTING_THEN_TERM
STARTING_THEN_TERM APP_REPORT: keep -> STARTING_THEN_TERM
STARTING_THEN_RESTART START: -> STARTING_THEN_RESTART
STARTING_THEN_RESTART RESTART: note -> STARTING_THEN_RESTART
STARTING_THEN_RESTART TERM: -> STARTING_THEN_TERM
STARTING_THEN_RESTART STARTED: tell-started term -> REPLACING
STARTING_THEN_RESTART LAUNCH_FAILED: launch -> STARTING
STARTING_THEN_RESTART EXITED: -> STARTING_THEN_RESTART
STARTING_THEN_RESTART FORCED_DEADLINE: -> STARTING_THEN_RESTART
STARTING_THEN_RESTART SOFT_DEADLINE: -> STARTING_THEN_RESTART
STARTING_THEN_RESTART APP_REPORT: -> STARTING_THEN_RESTART
RUNNING START: running pass-on -> RUNNING
RUNNING RESTART: note term -> REPLACING
RUNNING TERM: term -> TERMINATING
RUNNING STARTED: -> RUNNING
RUNNING LAUNCH_FAILED: -> RUNNING
RUNNING EXITED: tell-exit -> DOWN
RUNNING FORCED_DEADLINE: -> RUNNING
RUNNING SOFT_DEADLINE: -> RUNNING
RUNNING APP_REPORT: keep pass-on -> RUNNING
TERMINATING START: note -> TERMINATING_THEN_START
TERMINATING RESTART: note -> TERMINATING_THEN_START
TERMINATING TERM: -> TERMINATING
TERMINATING STARTED: -> TERMINATING
TERMINATING LAUNCH_FAILED: -> TERMINATING
TERMINATING EXITED: disarm stopped -> DOWN
TERMINATING FORCED_DEADLINE: kill -> TERMINATING
TERMINATING SOFT_DEADLINE: timeout -> RUNNING
TERMINATING APP_REPORT: keep pass-on -> TERMINATING
TERMINATING_THEN_START START: note -> TERMINATING_THEN_START
TERMINATING_THEN_START RESTART: note -> TERMINATING_THEN_START
TERMINATING_THEN_START TERM: -> TERMINATING
TERMINATING_THEN_START STARTED: -> TERMINATING_THEN_START
TERMINATING_THEN_START LAUNCH_FAILED: -> TERMINATING_THEN_START
TERMINATING_THEN_START EXITED: disarm stopped launch -> STARTING
TERMINATING_THEN_START FORCED_DEADLINE: kill -> TERMINATING_THEN_START
TERMINATING_THEN_START SOFT_DEADLINE: timeout running pass-on -> RUNNING
TERMINATING_THEN_START APP_REPORT: keep pass-on -> TERMINATING_THEN_START
REPLACING START: -> REPLACING
REPLACING RESTART: note -> REPLACING
REPLACING TERM: -> TERMINATING
REPLACING STARTED: -> REPLACING
REPLACING LAUNCH_FAILED: -> REPLACING
REPLACING EXITED: disarm launch -> STARTING
REPLACING FORCED_DEADLINE: kill -> REPLACING
REPLACING SOFT_DEADLINE: timeout -> RUNNING
REPLACING APP_REPORT: -> REPLACING
)");
}

const AppKey kCam{"group", "cam"};
constexpr StopRule kForced{300, true};
constexpr StopRule kUnforced{300, false};

AppRequest Request(bool isRestart, const std::string& argument = "") {
    AppRequest request;
    request.isRestart = isRestart;
    request.argv = {argument};
    return request;
}

std::string Describe(const Action& action) {
    switch (action.kind) {
        case Action::Kind::LAUNCH:
            return "launch " + action.request.argv.at(0);
        case Action::Kind::TERM_TREE:
            return "term";
        case Action::Kind::KILL_TREE:
            return "kill";
        case Action::Kind::ARM_DEADLINE:
            return "arm " + std::to_string(action.delayMs);
        case Action::Kind::DISARM_DEADLINE:
            return "disarm";
        case Action::Kind::REPORT:
            return "report " + std::to_string(action.report.appState) + " pid " + std::to_string(action.report.pid) +
                   " reason " + std::to_string(action.report.reason) + " value " + std::to_string(action.report.value1);
        case Action::Kind::APP_REPORT:
            return "app-report " + std::to_string(action.appState) + " pid " + std::to_string(action.pid);
    }
    return "?";
}

std::vector<std::string> Describe(const Actions& actions) {
    std::vector<std::string> texts;
    for (const Action& action : actions) {
        EXPECT_EQ(action.key, kCam);
        texts.push_back(Describe(action));
    }
    return texts;
}

class SupervisorOfOne : public testing::Test {
protected:
    void Run(StopRule rule = kForced) {
        EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(false, "first"), rule)), ElementsAre("launch first"));
        EXPECT_THAT(Describe(supervisor_.Started(kCam, 70)), ElementsAre("report 0 pid 70 reason 0 value 0"));
    }

    Supervisor supervisor_;
};

TEST_F(SupervisorOfOne, TellsAStartWithItsPid) {
    Run();
    EXPECT_EQ(supervisor_.QueryState(kCam), 0U);
}

TEST_F(SupervisorOfOne, AnswersAStartOfARunningOneWithItsPid) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(false), kForced)),
                ElementsAre("report 0 pid 70 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, RestartsWithoutTellingTheExit) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(true, "second"), kForced)), ElementsAre("term", "arm 300"));
    EXPECT_EQ(supervisor_.QueryState(kCam), 2U);
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 15})), ElementsAre("disarm", "launch second"));
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 71)), ElementsAre("report 1 pid 71 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, TellsARestartThatCannotBeExecutedAsAnAbnormalExit) {
    Run();
    static_cast<void>(supervisor_.Start(kCam, Request(true, "second"), kForced));
    static_cast<void>(supervisor_.Exited(kCam, {false, 0}));
    EXPECT_THAT(Describe(supervisor_.LaunchFailed(kCam, {ExitReason::IO_ERROR, 5})),
                ElementsAre("report 4 pid 0 reason 1 value 5"));
    EXPECT_EQ(supervisor_.QueryState(kCam), 1U);
}

TEST_F(SupervisorOfOne, TellsARestartOfOneThatDoesNotRunAsARestart) {
    EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(true, "only"), kForced)), ElementsAre("launch only"));
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 70)), ElementsAre("report 1 pid 70 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, RestartsOnceMoreWhenARestartComesDuringAStart) {
    static_cast<void>(supervisor_.Start(kCam, Request(false, "first"), kForced));
    EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(true, "second"), kForced)), IsEmpty());
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 70)),
                ElementsAre("report 0 pid 70 reason 0 value 0", "term", "arm 300"));
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 15})), ElementsAre("disarm", "launch second"));
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 71)), ElementsAre("report 1 pid 71 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, UsesTheNewestOfSeveralRestarts) {
    Run();
    static_cast<void>(supervisor_.Start(kCam, Request(true, "second"), kForced));
    static_cast<void>(supervisor_.Start(kCam, Request(true, "third"), kForced));
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 15})), ElementsAre("disarm", "launch third"));
}

TEST_F(SupervisorOfOne, TellsAnAskedForExitAsNormalHoweverItEnded) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Terminate(kCam)), ElementsAre("term", "arm 300"));
    EXPECT_THAT(Describe(supervisor_.Terminate(kCam)), IsEmpty());
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {false, 3})),
                ElementsAre("disarm", "report 3 pid 70 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, KillsAfterTheDeadlineWhenForceIsAllowed) {
    Run();
    static_cast<void>(supervisor_.Terminate(kCam));
    EXPECT_THAT(Describe(supervisor_.DeadlinePassed(kCam)), ElementsAre("kill"));
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 9})),
                ElementsAre("disarm", "report 3 pid 70 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, TellsTheTimeOutAndGoesOnRunningWhenForceIsNotAllowed) {
    Run(kUnforced);
    static_cast<void>(supervisor_.Terminate(kCam));
    EXPECT_THAT(Describe(supervisor_.DeadlinePassed(kCam)), ElementsAre("report 2 pid 70 reason 0 value 0"));
    EXPECT_EQ(supervisor_.QueryState(kCam), 0U);
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 15})), ElementsAre("report 4 pid 70 reason 4 value 15"));
}

TEST_F(SupervisorOfOne, AnswersATerminationOfOneThatDoesNotRunAtOnce) {
    EXPECT_THAT(Describe(supervisor_.Terminate(kCam)), ElementsAre("report 3 pid 0 reason 0 value 0"));
    Run();
    static_cast<void>(supervisor_.Exited(kCam, {false, 0}));
    EXPECT_THAT(Describe(supervisor_.Terminate(kCam)), ElementsAre("report 3 pid 0 reason 0 value 0"));
}

TEST_F(SupervisorOfOne, ForgetsOneThatIsDown) {
    EXPECT_THAT(supervisor_.Terminate(kCam), testing::SizeIs(1));
    EXPECT_EQ(supervisor_.Size(), 0U);
    Run();
    EXPECT_EQ(supervisor_.Size(), 1U);
    static_cast<void>(supervisor_.Exited(kCam, {true, 9}));
    EXPECT_EQ(supervisor_.Size(), 0U);
    static_cast<void>(supervisor_.Start(kCam, Request(true), kForced));
    static_cast<void>(supervisor_.LaunchFailed(kCam, {ExitReason::IO_ERROR, 5}));
    EXPECT_EQ(supervisor_.Size(), 0U);
    EXPECT_EQ(supervisor_.QueryState(kCam), 1U);
}

TEST_F(SupervisorOfOne, TellsAnUnaskedExitByItsStatus) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {false, 0})), ElementsAre("report 3 pid 70 reason 0 value 0"));
    Run();
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {false, 3})), ElementsAre("report 4 pid 70 reason 5 value 3"));
    Run();
    EXPECT_THAT(Describe(supervisor_.Exited(kCam, {true, 11})), ElementsAre("report 4 pid 70 reason 4 value 11"));
}

TEST_F(SupervisorOfOne, PassesOnWhatTheApplicationSaysAndRepeatsItToTheNextStart) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 0)), ElementsAre("app-report 0 pid 70"));
    EXPECT_THAT(Describe(supervisor_.Start(kCam, Request(false), kForced)),
                ElementsAre("report 0 pid 70 reason 0 value 0", "app-report 0 pid 70"));
}

TEST_F(SupervisorOfOne, PassesTheSameWordOnOnce) {
    Run();
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 0)), ElementsAre("app-report 0 pid 70"));
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 0)), IsEmpty());
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 1)), ElementsAre("app-report 1 pid 70"));
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 0)), ElementsAre("app-report 0 pid 70"));
}

TEST_F(SupervisorOfOne, PassesOnAWordThatCameBeforeTheStartWasKnown) {
    static_cast<void>(supervisor_.Start(kCam, Request(false, "first"), kForced));
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 0)), IsEmpty());
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 70)),
                ElementsAre("report 0 pid 70 reason 0 value 0", "app-report 0 pid 70"));
}

TEST_F(SupervisorOfOne, DoesNotTakeTheOldProcessesWordForTheNewOnes) {
    Run();
    static_cast<void>(supervisor_.Reported(kCam, 0));
    static_cast<void>(supervisor_.Start(kCam, Request(true, "second"), kForced));
    EXPECT_THAT(Describe(supervisor_.Reported(kCam, 1)), IsEmpty());
    static_cast<void>(supervisor_.Exited(kCam, {true, 15}));
    EXPECT_THAT(Describe(supervisor_.Started(kCam, 71)), ElementsAre("report 1 pid 71 reason 0 value 0"));
}

TEST(Supervisor, KeepsTheApplicationsOfOwnersApart) {
    Supervisor supervisor;
    for (const AppKey& key : {AppKey{"a", "cam"}, AppKey{"a", "lidar"}, AppKey{"ab", "cam"}}) {
        static_cast<void>(supervisor.Start(key, Request(false), kForced));
        static_cast<void>(supervisor.Started(key, 70));
    }
    static_cast<void>(supervisor.Exited({"a", "lidar"}, {}));
    EXPECT_THAT(supervisor.LiveAppsOf("a"), ElementsAre("cam"));
    EXPECT_THAT(supervisor.LiveAppsOf("ab"), ElementsAre("cam"));
    EXPECT_EQ(supervisor.LiveApps().size(), 2U);
    static_cast<void>(supervisor.Exited({"a", "cam"}, {}));
    EXPECT_THAT(supervisor.LiveApps(), ElementsAre(AppKey{"ab", "cam"}));
}

/// Plays every sequence of events that the world can bring, up to a depth, and watches the promises.
class World {
public:
    void Explore(const Supervisor& before, int depth, bool isLaunching, bool isAlive, int owed) {
        ++visited_;
        if (depth == 0) {
            Settle(before, isLaunching, isAlive, owed);
            return;
        }
        for (const ProcessEvent event : {ProcessEvent::START, ProcessEvent::RESTART, ProcessEvent::TERM,
                                         ProcessEvent::STARTED, ProcessEvent::LAUNCH_FAILED, ProcessEvent::EXITED,
                                         ProcessEvent::FORCED_DEADLINE, ProcessEvent::APP_REPORT}) {
            Supervisor next = before;
            bool launching = isLaunching;
            bool alive = isAlive;
            int stillOwed = owed;
            if (Play(next, event, launching, alive, stillOwed)) {
                Explore(next, depth - 1, launching, alive, stillOwed);
            }
        }
    }

    int Visited() const { return visited_; }

private:
    static bool IsRequest(ProcessEvent event) {
        return event == ProcessEvent::START || event == ProcessEvent::RESTART || event == ProcessEvent::TERM;
    }

    static Actions Send(Supervisor& supervisor, ProcessEvent event, bool& launching, bool& alive) {
        switch (event) {
            case ProcessEvent::START:
                return supervisor.Start(kCam, Request(false), kForced);
            case ProcessEvent::RESTART:
                return supervisor.Start(kCam, Request(true), kForced);
            case ProcessEvent::TERM:
                return supervisor.Terminate(kCam);
            case ProcessEvent::STARTED:
                launching = false;
                alive = true;
                return supervisor.Started(kCam, 70);
            case ProcessEvent::LAUNCH_FAILED:
                launching = false;
                return supervisor.LaunchFailed(kCam, {});
            case ProcessEvent::EXITED:
                alive = false;
                return supervisor.Exited(kCam, {true, 9});
            case ProcessEvent::APP_REPORT:
                return supervisor.Reported(kCam, 0);
            default:
                return supervisor.DeadlinePassed(kCam);
        }
    }

    /// False when the world can't bring this event now.
    static bool Play(Supervisor& supervisor, ProcessEvent event, bool& launching, bool& alive, int& owed) {
        const bool isEndOfLaunch = event == ProcessEvent::STARTED || event == ProcessEvent::LAUNCH_FAILED;
        if ((isEndOfLaunch && !launching) || (event == ProcessEvent::EXITED && !alive)) {
            return false;
        }
        owed += IsRequest(event) ? 1 : 0;
        for (const Action& action : Send(supervisor, event, launching, alive)) {
            if (action.kind == Action::Kind::LAUNCH) {
                EXPECT_FALSE(alive || launching) << "two processes of one application";
                launching = true;
            }
            if (action.kind == Action::Kind::TERM_TREE || action.kind == Action::Kind::KILL_TREE) {
                EXPECT_TRUE(alive) << "a signal for nobody";
            }
            // One report may answer several requests that met in one transition.
            owed = action.kind == Action::Kind::REPORT ? 0 : owed;
        }
        return true;
    }

    /// Lets everything that is under way come to its end: then nobody may wait for an answer.
    static void Settle(Supervisor supervisor, bool launching, bool alive, int owed) {
        for (int i = 0; i < 8 && supervisor.QueryState(kCam) == 2U; ++i) {
            Play(supervisor, launching ? ProcessEvent::STARTED : ProcessEvent::EXITED, launching, alive, owed);
        }
        EXPECT_NE(supervisor.QueryState(kCam), 2U);
        EXPECT_EQ(owed, 0);
        EXPECT_EQ(alive, supervisor.QueryState(kCam) == 0U);
    }

    int visited_ = 0;
};

TEST(Supervisor, NeverHasTwoProcessesAndOwesNoAnswerWhateverTheOrderOfEvents) {
    World world;
    world.Explore(Supervisor(), 6, false, false, 0);
    EXPECT_GT(world.Visited(), 10000);
}

}  // namespace
}  // namespace Procmgrd
