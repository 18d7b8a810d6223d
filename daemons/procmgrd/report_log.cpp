#include <array>
#include <cstring>

#include "daemons/procmgrd/conductor.h"
#include "daemons/procmgrd/daemon_log.h"

namespace Procmgrd {
namespace {

using ProcMgr::Message::AppStateInfo;
using ProcMgr::Message::ReportAppStateType;

enum class Detail : uint8_t { NONE, ERRNO, SIGNAL, EXIT_CODE };

struct ReasonRow {
    ExitReason reason;
    const char* text;
    Detail detail;
};

constexpr std::array<ReasonRow, 12> kReasons = {{
    {ExitReason::OTHER, "it could not be started", Detail::ERRNO},
    {ExitReason::IO_ERROR, "the program could not be read", Detail::ERRNO},
    {ExitReason::NOT_FOUND, "the program does not exist; check bin_path", Detail::ERRNO},
    {ExitReason::NOT_PERMITTED, "the program may not be executed; check its mode and the uid", Detail::ERRNO},
    {ExitReason::KILLED_BY_SIGNAL, "ended by a signal", Detail::SIGNAL},
    {ExitReason::FAILED, "ended with an exit code", Detail::EXIT_CODE},
    {ExitReason::ATTRIBUTE_NOT_HELD, "an attribute that must hold can't be applied; see the line before",
     Detail::ERRNO},
    {ExitReason::UNKNOWN_APP, "no manifest has this name; check the configuration", Detail::NONE},
    {ExitReason::REFUSED, "it may not be started like that; see the line before", Detail::NONE},
    {ExitReason::STOPPING, "the process manager is being stopped", Detail::NONE},
    {ExitReason::NO_RESOURCES, "no process, memory or descriptor is left", Detail::ERRNO},
    {ExitReason::NOT_A_PROGRAM, "the file is not a program that this machine can run", Detail::ERRNO},
}};

std::string DescribeDetail(Detail detail, uint32_t value) {
    const int number = static_cast<int>(value);
    switch (detail) {
        case Detail::ERRNO:
            return std::string(" (") + std::strerror(number) + ")";
        case Detail::SIGNAL:
            return " " + std::to_string(number) + " (" + strsignal(number) + ")";
        case Detail::EXIT_CODE:
            return " " + std::to_string(number);
        case Detail::NONE:
            break;
    }
    return {};
}

}  // namespace

std::string DescribeExit(const AppStateInfo& report) {
    const ReasonRow& row = kReasons[report.reason < kReasons.size() ? report.reason : 0];
    return row.text + DescribeDetail(row.detail, report.value1);
}

void LogReport(const std::string& owner, const AppStateInfo& report) {
    const char* const name = report.appName.c_str();
    switch (static_cast<ReportAppStateType>(report.appState)) {
        case ReportAppStateType::RUNNING_NORMAL_START:
            PROCMGRD_LOG(kLogInfo, "owner %s: application %s runs, pid %u", owner.c_str(), name, report.pid);
            break;
        case ReportAppStateType::RUNNING_NORMAL_RESTART:
            PROCMGRD_LOG(kLogInfo, "owner %s: application %s was restarted, pid %u", owner.c_str(), name, report.pid);
            break;
        case ReportAppStateType::RUNNING_ABNORMAL_TERM_TIMEOUT:
            PROCMGRD_LOG(kLogWarn,
                         "owner %s: application %s (pid %u) did not end within its term_time_out and runs on, because "
                         "is_force_term is false",
                         owner.c_str(), name, report.pid);
            break;
        case ReportAppStateType::TERMINATED_NORMAL_EXIT:
            PROCMGRD_LOG(kLogInfo, "owner %s: application %s (pid %u) is down", owner.c_str(), name, report.pid);
            break;
        case ReportAppStateType::TERMINATED_ABNORMAL_EXIT:
            PROCMGRD_LOG(kLogWarn, "owner %s: application %s (pid %u) failed, reason %u: %s", owner.c_str(), name,
                         report.pid, report.reason, DescribeExit(report).c_str());
            break;
        default:
            break;
    }
}

}  // namespace Procmgrd
