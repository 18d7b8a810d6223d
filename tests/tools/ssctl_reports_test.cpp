#include "tools/ssctl/reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Ssctl;
using ProcMgr::AppInfo;
using testing::ElementsAre;

namespace {

constexpr uint32_t kStart = 0;
constexpr uint32_t kStop = 1;
constexpr uint32_t kRestart = 2;

std::vector<AppInfo> Asked(const std::vector<std::pair<std::string, uint32_t>>& orders) {
    std::vector<AppInfo> apps;
    for (const auto& [name, type] : orders) {
        AppInfo app;
        app.name = name;
        app.optionType = type;
        apps.push_back(app);
    }
    return apps;
}

std::vector<AppChangeInfo> Lines(const std::vector<std::string>& names) {
    std::vector<AppChangeInfo> apps;
    for (const std::string& name : names) {
        apps.emplace_back(name, AppChangeState::SUCCESS);
    }
    return apps;
}

}  // namespace

TEST(MatchActions, FindsTheOperationOfEachLine) {
    EXPECT_THAT(MatchActions(Asked({{"a", kStop}, {"b", kStart}, {"c", kRestart}}), Lines({"b", "a", "c"})),
                ElementsAre("start", "stop", "restart"));
}

TEST(MatchActions, TellsTheLinesOfAnApplicationThatWasStoppedAndStartedApart) {
    EXPECT_THAT(MatchActions(Asked({{"a", kStop}, {"b", kStop}, {"a", kStart}}), Lines({"a", "a", "b"})),
                ElementsAre("start", "stop", "stop"));
}

TEST(MatchActions, TakesTheOperationThatIsCarriedOutFirstWhenThePhaseOfTheOtherNeverRan) {
    EXPECT_THAT(MatchActions(Asked({{"a", kStop}, {"a", kStart}, {"a", kRestart}}), Lines({"a"})), ElementsAre("stop"));
    EXPECT_THAT(MatchActions(Asked({{"a", kStop}, {"a", kStart}, {"a", kRestart}}), Lines({"a", "a"})),
                ElementsAre("start", "stop"));
}

TEST(MatchActions, CountsInstancesToTheirTemplate) {
    EXPECT_THAT(MatchActions(Asked({{"view", kStop}, {"view@c", kStart}}), Lines({"view@c", "view@a", "view@b"})),
                ElementsAre("start", "stop", "stop"));
}

TEST(MatchActions, SaysNothingOfALineThatNobodyAskedFor) {
    EXPECT_THAT(MatchActions(Asked({{"a", kStop}}), Lines({"x", "a", "a"})), ElementsAre("", "stop", ""));
}

TEST(ReportChange, ShowsWhatWasDoneForEachApplication) {
    const Outcome outcome = ReportChange(Asked({{"a", kStop}, {"lidar", kStart}}),
                                         {true, {{"lidar", AppChangeState::SUCCESS}, {"a", AppChangeState::SUCCESS}}});
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(RenderText(outcome, false),
              "APPLICATION  ACTION  RESULT\n"
              "lidar        start   SUCCESS\n"
              "a            stop    SUCCESS\n");
    EXPECT_EQ(RenderComplaint(outcome), "");
    EXPECT_EQ(RenderDocument({"change", "grp_owner"}, outcome),
              R"({"schema":1,"command":"change","resource":"grp_owner","ok":true,"exit_code":0,"applications":[)"
              R"({"name":"lidar","action":"start","result":"SUCCESS","code":0,"ok":true},)"
              R"({"name":"a","action":"stop","result":"SUCCESS","code":0,"ok":true}]})"
              "\n");
}

TEST(ReportChange, NamesEveryResult) {
    const Outcome outcome = ReportChange({}, {false,
                                              {{"a", AppChangeState::SUCCESS},
                                               {"b", AppChangeState::TERM_FAILED},
                                               {"c", AppChangeState::START_FAILED},
                                               {"d", AppChangeState::RESTART_FAILED},
                                               {"e", AppChangeState::INIT},
                                               {"f", AppChangeState::PROCESSING},
                                               {"g", AppChangeState::START_FAILED_BY_EIO},
                                               {"h", static_cast<AppChangeState>(7)}}});
    EXPECT_EQ(RenderText(outcome, false),
              "APPLICATION  ACTION  RESULT\n"
              "a            -       SUCCESS\n"
              "b            -       TERM_FAILED\n"
              "c            -       START_FAILED\n"
              "d            -       RESTART_FAILED\n"
              "e            -       INIT\n"
              "f            -       PROCESSING\n"
              "g            -       START_FAILED_BY_EIO\n"
              "h            -       UNKNOWN(7)\n");
    EXPECT_EQ(outcome.members.at("applications").at(7).dump(),
              R"({"name":"h","action":null,"result":"UNKNOWN","code":7,"ok":false})");
}

TEST(ReportChange, FailsWhenOneApplicationFailed) {
    const Outcome outcome = ReportChange(Asked({{"a", kStart}, {"b", kStart}}),
                                         {true, {{"a", AppChangeState::START_FAILED}, {"b", AppChangeState::SUCCESS}}});
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::REFUSED);
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: 1 of 2 operations did not succeed.\n"
              "       See how things stand with 'ssctl state'; the log of the group owner says why.\n");
    EXPECT_EQ(RenderText(outcome, true),
              "\x1b[1mAPPLICATION\x1b[0m  \x1b[1mACTION\x1b[0m  \x1b[1mRESULT\x1b[0m\n"
              "a            start   \x1b[31mSTART_FAILED\x1b[0m\n"
              "b            start   \x1b[32mSUCCESS\x1b[0m\n");
}

TEST(ReportChange, FailsWhenTheOwnerSaysSoThoughNoApplicationFailed) {
    const Outcome outcome = ReportChange(Asked({{"a", kStart}}), {false, {{"a", AppChangeState::SUCCESS}}});
    EXPECT_EQ(outcome.fault, Fault::FAILED);
    EXPECT_EQ(outcome.problem, "the change was not completed");
}

TEST(ReportChange, TellsARefusalFromAFailure) {
    const Outcome outcome = ReportChange(Asked({{"a", kStart}}), {false, {}});
    EXPECT_EQ(RenderText(outcome, false), "");
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: the group owner refused the change.\n"
              "       Another change may be running: try again later. The log of the group owner says why.\n");
    EXPECT_EQ(RenderDocument({"start", "r"}, outcome),
              R"({"schema":1,"command":"start","resource":"r","ok":false,"exit_code":1,"applications":[],"error":)"
              R"({"kind":"refused","message":"the group owner refused the change","advice":)"
              R"("Another change may be running: try again later. The log of the group owner says why."}})"
              "\n");
}

TEST(ReportList, ShowsATableOrTheNamesAlone) {
    EXPECT_EQ(RenderText(ReportList({true, {"b", "a"}}, false), false), "APPLICATION\nb\na\n");
    EXPECT_EQ(RenderText(ReportList({true, {"b", "a"}}, true), true), "b\na\n");
    EXPECT_EQ(RenderDocument({"list", "r"}, ReportList({true, {"b", "a"}}, true)),
              R"({"schema":1,"command":"list","resource":"r","ok":true,"exit_code":0,)"
              R"("applications":[{"name":"b"},{"name":"a"}]})"
              "\n");
}

TEST(ReportList, OfAnEmptyGroupSaysSoToPeopleOnly) {
    EXPECT_EQ(RenderText(ReportList({true, {}}, false), false), "The group has no applications.\n");
    EXPECT_EQ(RenderText(ReportList({true, {}}, true), false), "");
}

TEST(ReportList, FailsWhenTheOwnerGaveNone) {
    const Outcome outcome = ReportList({false, {}}, false);
    EXPECT_EQ(outcome.fault, Fault::REFUSED);
    EXPECT_EQ(RenderText(outcome, false), "");
}

TEST(ReportState, ShowsProcessesAndStates) {
    const Outcome outcome =
        ReportState(5, {true, {{"lidar", 4711, 0}, {"nav", 12, 1}, {"cam", 5, 2}, {"new", 6, 3}, {"odd", 7, -9}}});
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(RenderText(outcome, false),
              "APPLICATION   PID  STATE\n"
              "lidar        4711  RUNNING\n"
              "nav             -  NOT_RUNNING\n"
              "cam             5  IN_TRANSITION\n"
              "new             6  UNKNOWN(3)\n"
              "odd             7  UNKNOWN(-9)\n");
    EXPECT_EQ(
        outcome.members.dump(),
        R"({"applications":[{"name":"lidar","pid":4711,"state":"RUNNING","code":0},)"
        R"({"name":"nav","pid":null,"state":"NOT_RUNNING","code":1},)"
        R"({"name":"cam","pid":5,"state":"IN_TRANSITION","code":2},)"
        R"({"name":"new","pid":6,"state":"UNKNOWN","code":3},{"name":"odd","pid":7,"state":"UNKNOWN","code":-9}]})");
}

TEST(ReportState, FailsWhenStatesAreMissing) {
    const Outcome outcome = ReportState(2, {true, {{"a", 1, 0}}});
    EXPECT_EQ(outcome.fault, Fault::FAILED);
    EXPECT_EQ(RenderText(outcome, false), "APPLICATION  PID  STATE\na              1  RUNNING\n");
    EXPECT_EQ(outcome.problem, "the states of 1 of 2 applications came");
}

TEST(ReportState, ShowsNoTableWhenNoStateCame) {
    const Outcome outcome = ReportState(2, {false, {}});
    EXPECT_EQ(RenderText(outcome, false), "");
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: the states of 0 of 2 applications came.\n"
              "       The process manager may be slow or gone: try a longer --timeout; the log of the group owner says"
              " more.\n");
}

TEST(ReportEvent, NamesTheState) {
    EXPECT_EQ(RenderText(ReportEvent(1), false), "WORKING\n");
    EXPECT_EQ(RenderText(ReportEvent(9), false), "UNKNOWN(9)\n");
    EXPECT_EQ(ReportEvent(4294967295U).members.dump(), R"({"event":{"state":4294967295,"name":"UNKNOWN"}})");
}

TEST(RenderDocument, ReplacesBytesThatAreNoUtf8) {
    const std::string text = RenderDocument({"list", "r"}, ReportList({true, {"a\xFF"}}, false));
    EXPECT_THAT(text, testing::HasSubstr("a\xEF\xBF\xBD"));
}

TEST(ExitCodeOf, IsWhatScriptsDependOn) {
    const std::vector<std::pair<Fault, int>> codes = {
        {Fault::NONE, 0},  {Fault::REFUSED, 1},    {Fault::FAILED, 1},     {Fault::DENIED, 1},
        {Fault::USAGE, 2}, {Fault::BAD_ANSWER, 1}, {Fault::NO_SERVICE, 3}, {Fault::TIMED_OUT, 4}};
    for (const auto& [fault, code] : codes) {
        EXPECT_EQ(static_cast<int>(ExitCodeOf(fault)), code);
    }
}
