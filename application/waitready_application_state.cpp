#include "application/waitready_application_state.h"

#include "application/application.h"
#include "application/running_application_state.h"
#include "application/terminated_application_state.h"
#include "application/terminating_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {
namespace {

// The literal reason of the process manager for an exec that failed with EIO.
constexpr unsigned kReasonEio = 1;

}  // namespace

bool WaitReadyApplicationState::Start() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "WaitReadyApplicationState appName:%s Start, it's invalid operation.", GetApplicationName().c_str());
    return false;
}

bool WaitReadyApplicationState::Term() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "WaitReadyApplicationState appName:%s Term",
                  GetApplicationName().c_str());
    Become<TerminatingApplicationState>();
    return true;
}

bool WaitReadyApplicationState::Restart() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "WaitReadyApplicationState appName:%s Restart, it's invalid operation.",
                  GetApplicationName().c_str());
    return false;
}

AppChangeState WaitReadyApplicationState::ReportRunningNormalStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "WaitReadyApplicationState appName:%s ReportRunningNormalStartFromProcMgr",
                  GetApplicationName().c_str());
    return RecieveNormalStartFromProcMgr();
}

AppChangeState WaitReadyApplicationState::ReportRunningAbnormalTermTimeoutFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "WaitReadyApplicationState appName:%s ReportRunningAbnormalTermTimeoutFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState WaitReadyApplicationState::ReportRunningNormalReStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "WaitReadyApplicationState appName:%s ReportRunningNormalReStartFromProcMgr",
                  GetApplicationName().c_str());
    return RecieveNormalStartFromProcMgr();
}

AppChangeState WaitReadyApplicationState::ReportTerminatedNormalFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "WaitReadyApplicationState appName:%s ReportTerminatedNormalFromProcMgr",
                  GetApplicationName().c_str());
    Become<TerminatedApplicationState>();
    return AppChangeState::START_FAILED;
}

AppChangeState WaitReadyApplicationState::ReportTerminatedAbnormalFromProcMgr(unsigned reason) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "WaitReadyApplicationState appName:%s ReportTerminatedAbnormalFromProcMgr",
                  GetApplicationName().c_str());
    Become<TerminatedApplicationState>();
    return reason == kReasonEio ? AppChangeState::START_FAILED_BY_EIO : AppChangeState::START_FAILED;
}

AppChangeState WaitReadyApplicationState::ReportRunningNormalStartFromApp() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "WaitReadyApplicationState appName:%s ReportRunningNormalStartFromApp", GetApplicationName().c_str());
    if (!IsReportingItself()) {
        return AppChangeState::PROCESSING;
    }
    Become<RunningApplicationState>();
    return AppChangeState::SUCCESS;
}

AppChangeState WaitReadyApplicationState::RecieveNormalStartFromProcMgr() {
    if (IsReportingItself()) {
        return AppChangeState::PROCESSING;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "WaitReadyApplicationState appName:%s is running after receiving pm report.",
                  GetApplicationName().c_str());
    Become<RunningApplicationState>();
    return AppChangeState::SUCCESS;
}

bool WaitReadyApplicationState::IsReportingItself() const {
    return application->GetIsRosNode() || application->GetIsReporting();
}

}  // namespace ProcMgr
