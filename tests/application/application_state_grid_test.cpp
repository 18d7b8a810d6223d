// The whole grid: what every event means in every state, with the lines that it leaves in the log.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/include/platform_log.h"
#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

constexpr AppStateType I = AppStateType::INIT_STATE;
constexpr AppStateType R = AppStateType::RUNNING_STATE;
constexpr AppStateType W = AppStateType::WAIT_READY_STATE;
constexpr AppStateType G = AppStateType::TERMINATING_STATE;
constexpr AppStateType D = AppStateType::TERMINATED_STATE;

// How an application tells that it is ready: not at all, as a ROS node, by reporting, or both.
enum class Kind { PLAIN, ROS, REPORTING, BOTH };

ApplicationManifest ManifestOf(Kind kind) {
    ManifestBuilder manifest = Manifest("cam");
    manifest.Attributes().isRosNode = kind == Kind::ROS || kind == Kind::BOTH;
    manifest.Attributes().isReporting = kind == Kind::REPORTING || kind == Kind::BOTH;
    return manifest;
}

struct OperationRow {
    bool (Application::*operation)();
    AppStateType before;
    AppStateType after;
    bool result;
    Lines lines;
};

const OperationRow kOperations[] = {
    {&Application::Start, I, W, true, {"INFO InitApplicationState appName:cam  Start()"}},
    {&Application::Term, I, I, true, {"WARN InitApplicationState appName:cam Term, return."}},
    {&Application::Restart, I, W, true, {"INFO InitApplicationState appName:cam Restart()"}},

    {&Application::Start, W, W, false, {"ERROR WaitReadyApplicationState appName:cam Start, it's invalid operation."}},
    {&Application::Term, W, G, true, {"WARN WaitReadyApplicationState appName:cam Term"}},
    {&Application::Restart,
     W,
     W,
     false,
     {"ERROR WaitReadyApplicationState appName:cam Restart, it's invalid operation."}},

    {&Application::Start,
     R,
     R,
     true,
     {"WARN RunningApplicationState appName:cam Start, it's duplicate operation, but we return true, should mark the operation success directly"}},
    {&Application::Term, R, G, true, {"INFO RunningApplicationState appName:cam Term"}},
    {&Application::Restart, R, W, true, {"INFO RunningApplicationState appName:cam Restart"}},

    {&Application::Start,
     G,
     G,
     false,
     {"ERROR TerminatingApplicationState appName:cam Start, it's invalid operation."}},
    {&Application::Term, G, G, true, {"INFO TerminatingApplicationState appName:cam Term, continuing terminating."}},
    {&Application::Restart,
     G,
     G,
     false,
     {"ERROR TerminatingApplicationState appName:cam Restart, it's invalid operation."}},

    {&Application::Start, D, W, true, {"INFO TerminatedApplicationState appName:cam Start"}},
    {&Application::Term,
     D,
     D,
     true,
     {"WARN TerminatedApplicationState appName:cam Term, it's duplicate operation, but we return true, should mark the operation success directly"}},
    {&Application::Restart, D, W, true, {"INFO TerminatedApplicationState appName:cam Restart"}},
};

TEST(ApplicationStateGrid, OperationsOfTheManager) {
    for (const OperationRow& row : kOperations) {
        for (const Kind kind : {Kind::PLAIN, Kind::ROS, Kind::REPORTING, Kind::BOTH}) {
            const auto application = MakeApplication(ManifestOf(kind), row.before);
            FakeLog::Get().Clear();
            EXPECT_EQ((*application.*row.operation)(), row.result) << row.lines[0];
            EXPECT_EQ(application->GetAppStateType(), row.after) << row.lines[0];
            EXPECT_EQ(FakeLog::Get().Lines(), row.lines);
        }
    }
}

TEST(ApplicationStateGrid, HoldsEveryOperationInEveryState) {
    EXPECT_EQ(std::size(kOperations), 3 * 5U);
}

using Report = std::function<AppChangeState(Application&, AppStateType&)>;

AppChangeState NormalStart(Application& application, AppStateType& previous) {
    return application.ReportRunningNormalStartFromProcMgr(previous);
}
AppChangeState TermTimeout(Application& application, AppStateType& previous) {
    return application.ReportRunningAbnormalTermTimeoutFromProcMgr(previous);
}
AppChangeState NormalReStart(Application& application, AppStateType& previous) {
    return application.ReportRunningNormalReStartFromProcMgr(previous);
}
AppChangeState NormalExit(Application& application, AppStateType& previous) {
    return application.ReportTerminatedNormalFromProcMgr(previous);
}
template <unsigned reason>
AppChangeState AbnormalExit(Application& application, AppStateType& previous) {
    return application.ReportTerminatedAbnormalFromProcMgr(reason, previous);
}
AppChangeState OwnStart(Application& application, AppStateType& previous) {
    return application.ReportRunningNormalStartFromApp(previous);
}

struct ReportRow {
    AppChangeState (*report)(Application&, AppStateType&);
    AppStateType before;
    AppStateType after;
    uint32_t result;
    Lines lines;
};

void ExpectReport(const ReportRow& row, Kind kind) {
    const auto application = MakeApplication(ManifestOf(kind), row.before);
    FakeLog::Get().Clear();
    auto previous = static_cast<AppStateType>(99);
    EXPECT_EQ(static_cast<uint32_t>(row.report(*application, previous)), row.result) << row.lines[0];
    EXPECT_EQ(previous, row.before) << row.lines[0];
    EXPECT_EQ(application->GetAppStateType(), row.after) << row.lines[0];
    EXPECT_EQ(FakeLog::Get().Lines(), row.lines);
}

// The reports whose meaning does not depend on how the application tells that it is ready.
const ReportRow kReports[] = {
    {&NormalStart, I, I, 5, {"WARN InitApplicationState appName:cam ReportRunningNormalStartFromProcMgr"}},
    {&TermTimeout, I, I, 5, {"WARN InitApplicationState appName:cam ReportRunningAbnormalTermTimeoutFromProcMgr"}},
    {&NormalReStart, I, I, 5, {"WARN InitApplicationState appName:cam ReportRunningNormalReStartFromProcMgr"}},
    {&NormalExit, I, I, 5, {"WARN InitApplicationState appName:cam ReportTerminatedNormalFromProcMgr"}},
    {&AbnormalExit<7>,
     I,
     I,
     5,
     {"WARN InitApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr, reason=7"}},
    {&OwnStart, I, R, 0, {"WARN InitApplicationState appName:cam ReportRunningNormalStartFromApp"}},

    {&TermTimeout, W, W, 5, {"WARN WaitReadyApplicationState appName:cam ReportRunningAbnormalTermTimeoutFromProcMgr"}},
    {&NormalExit, W, D, 2, {"WARN WaitReadyApplicationState appName:cam ReportTerminatedNormalFromProcMgr"}},
    {&AbnormalExit<0>, W, D, 2, {"INFO WaitReadyApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr"}},
    {&AbnormalExit<1>, W, D, 6, {"INFO WaitReadyApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr"}},
    {&AbnormalExit<5>, W, D, 2, {"INFO WaitReadyApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr"}},

    {&NormalStart, R, R, 5, {"WARN RunningApplicationState appName:cam ReportRunningNormalStartFromProcMgr"}},
    {&TermTimeout, R, R, 5, {"WARN RunningApplicationState appName:cam ReportRunningAbnormalTermTimeoutFromProcMgr"}},
    {&NormalReStart, R, R, 5, {"WARN RunningApplicationState appName:cam ReportRunningNormalReStartFromProcMgr"}},
    {&NormalExit, R, D, 5, {"WARN RunningApplicationState appName:cam ReportTerminatedNormalFromProcMgr"}},
    {&AbnormalExit<1>,
     R,
     D,
     5,
     {"INFO RunningApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr, reason=1"}},
    {&OwnStart,
     R,
     R,
     5,
     {"ERROR RunningApplicationState appName:cam ReportRunningNormalStartFromApp. there is something wrong in app cfg, please check is_ros_node(it should be true)"}},

    {&NormalStart, G, G, 5, {"WARN TerminatingApplicationState appName:cam ReportRunningNormalStartFromProcMgr"}},
    {&TermTimeout,
     G,
     R,
     1,
     {"INFO TerminatingApplicationState appName:cam ReportRunningAbnormalTermTimeoutFromProcMgr"}},
    {&NormalReStart, G, G, 5, {"WARN TerminatingApplicationState appName:cam ReportRunningNormalReStartFromProcMgr"}},
    {&NormalExit, G, D, 0, {"INFO TerminatingApplicationState appName:cam ReportTerminatedNormalFromProcMgr"}},
    {&AbnormalExit<1>,
     G,
     D,
     0,
     {"WARN TerminatingApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr, reason=1"}},
    {&OwnStart, G, G, 5, {"WARN TerminatingApplicationState appName:cam ReportRunningNormalStartFromApp"}},

    {&NormalStart, D, D, 5, {"WARN TerminatedApplicationState appName:cam ReportRunningNormalStartFromProcMgr"}},
    {&TermTimeout,
     D,
     D,
     5,
     {"WARN TerminatedApplicationState appName:cam ReportRunningAbnormalTermTimeoutFromProcMgr"}},
    {&NormalReStart, D, D, 5, {"WARN TerminatedApplicationState appName:cam ReportRunningNormalReStartFromProcMgr"}},
    {&NormalExit, D, D, 5, {"WARN TerminatedApplicationState appName:cam ReportTerminatedNormalFromProcMgr"}},
    {&AbnormalExit<4294967295U>,
     D,
     D,
     5,
     {"WARN TerminatedApplicationState appName:cam ReportTerminatedAbnormalFromProcMgr, reason=4294967295"}},
    {&OwnStart, D, D, 5, {"WARN TerminatedApplicationState appName:cam ReportRunningNormalStartFromApp"}},
};

TEST(ApplicationStateGrid, Reports) {
    for (const ReportRow& row : kReports) {
        for (const Kind kind : {Kind::PLAIN, Kind::ROS, Kind::REPORTING, Kind::BOTH}) {
            ExpectReport(row, kind);
        }
    }
}

TEST(ApplicationStateGrid, ReportsInWaitReadyOfAnApplicationThatDoesNotReportItself) {
    ExpectReport({&NormalStart,
                  W,
                  R,
                  0,
                  {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalStartFromProcMgr",
                   "INFO WaitReadyApplicationState appName:cam is running after receiving pm report."}},
                 Kind::PLAIN);
    ExpectReport({&NormalReStart,
                  W,
                  R,
                  0,
                  {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalReStartFromProcMgr",
                   "INFO WaitReadyApplicationState appName:cam is running after receiving pm report."}},
                 Kind::PLAIN);
    ExpectReport({&OwnStart, W, W, 5, {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalStartFromApp"}},
                 Kind::PLAIN);
}

TEST(ApplicationStateGrid, ReportsInWaitReadyOfAnApplicationThatReportsItself) {
    for (const Kind kind : {Kind::ROS, Kind::REPORTING, Kind::BOTH}) {
        ExpectReport(
            {&NormalStart, W, W, 5, {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalStartFromProcMgr"}},
            kind);
        ExpectReport({&NormalReStart,
                      W,
                      W,
                      5,
                      {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalReStartFromProcMgr"}},
                     kind);
        ExpectReport(
            {&OwnStart, W, R, 0, {"INFO WaitReadyApplicationState appName:cam ReportRunningNormalStartFromApp"}}, kind);
    }
}

TEST(ApplicationStateGrid, EveryMessageComesFromTheFileOfItsState) {
    const std::pair<AppStateType, std::string> files[] = {
        {I, "init_application_state.cpp"},       {R, "running_application_state.cpp"},
        {W, "waitready_application_state.cpp"},  {G, "terminating_application_state.cpp"},
        {D, "terminated_application_state.cpp"},
    };
    for (const auto& [state, file] : files) {
        const auto application = MakeApplication(Manifest("cam"), state);
        FakeLog::Get().Clear();
        static_cast<void>(application->Term());
        ASSERT_EQ(FakeLog::Get().Records().size(), 1U);
        EXPECT_EQ(FakeLog::Get().Records()[0].file, file);
        EXPECT_EQ(FakeLog::Get().Records()[0].moduleId, 27U);
    }
}

TEST(ApplicationStateGrid, MessagesGoToSyslogWhenItIsSwitchedOn) {
    EnableSyslogState();
    const auto application = MakeApplication(Manifest("cam"), I);
    EXPECT_TRUE(application->Start());
    EXPECT_FALSE(application->Start());
    EXPECT_TRUE(application->Term());
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"SYSLOG6 InitApplicationState appName:cam  Start()",
                     "SYSLOG3 WaitReadyApplicationState appName:cam Start, it's invalid operation.",
                     "SYSLOG4 WaitReadyApplicationState appName:cam Term"}));
}

}  // namespace
}  // namespace ProcMgr
