#include "application/terminating_application_state.h"

#include "application/application.h"
#include "application/running_application_state.h"
#include "application/terminated_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {

bool TerminatingApplicationState::Start() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "TerminatingApplicationState appName:%s Start, it's invalid operation.",
                  GetApplicationName().c_str());
    return false;
}

bool TerminatingApplicationState::Term() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "TerminatingApplicationState appName:%s Term, continuing terminating.", GetApplicationName().c_str());
    return true;
}

bool TerminatingApplicationState::Restart() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                  "TerminatingApplicationState appName:%s Restart, it's invalid operation.",
                  GetApplicationName().c_str());
    return false;
}

AppChangeState TerminatingApplicationState::ReportRunningNormalStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatingApplicationState appName:%s ReportRunningNormalStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatingApplicationState::ReportRunningAbnormalTermTimeoutFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "TerminatingApplicationState appName:%s ReportRunningAbnormalTermTimeoutFromProcMgr",
                  GetApplicationName().c_str());
    Become<RunningApplicationState>();
    return AppChangeState::TERM_FAILED;
}

AppChangeState TerminatingApplicationState::ReportRunningNormalReStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatingApplicationState appName:%s ReportRunningNormalReStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatingApplicationState::ReportTerminatedNormalFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "TerminatingApplicationState appName:%s ReportTerminatedNormalFromProcMgr",
                  GetApplicationName().c_str());
    Become<TerminatedApplicationState>();
    return AppChangeState::SUCCESS;
}

AppChangeState TerminatingApplicationState::ReportTerminatedAbnormalFromProcMgr(unsigned reason) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatingApplicationState appName:%s ReportTerminatedAbnormalFromProcMgr, reason=%u",
                  GetApplicationName().c_str(), reason);
    Become<TerminatedApplicationState>();
    return AppChangeState::SUCCESS;
}

AppChangeState TerminatingApplicationState::ReportRunningNormalStartFromApp() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatingApplicationState appName:%s ReportRunningNormalStartFromApp",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

}  // namespace ProcMgr
