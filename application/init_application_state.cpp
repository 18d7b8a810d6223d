#include "application/init_application_state.h"

#include "application/application.h"
#include "application/running_application_state.h"
#include "application/waitready_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {

bool InitApplicationState::Start() {
    // Two blanks before "Start()" on purpose: whoever reads the logs looks for this text.
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "InitApplicationState appName:%s  Start()",
                  GetApplicationName().c_str());
    Become<WaitReadyApplicationState>();
    return true;
}

bool InitApplicationState::Term() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "InitApplicationState appName:%s Term, return.",
                  GetApplicationName().c_str());
    return true;
}

bool InitApplicationState::Restart() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "InitApplicationState appName:%s Restart()",
                  GetApplicationName().c_str());
    Become<WaitReadyApplicationState>();
    return true;
}

AppChangeState InitApplicationState::ReportRunningNormalStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportRunningNormalStartFromProcMgr", GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState InitApplicationState::ReportRunningAbnormalTermTimeoutFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportRunningAbnormalTermTimeoutFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState InitApplicationState::ReportRunningNormalReStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportRunningNormalReStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState InitApplicationState::ReportTerminatedNormalFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportTerminatedNormalFromProcMgr", GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState InitApplicationState::ReportTerminatedAbnormalFromProcMgr(unsigned reason) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportTerminatedAbnormalFromProcMgr, reason=%u",
                  GetApplicationName().c_str(), reason);
    return AppChangeState::PROCESSING;
}

AppChangeState InitApplicationState::ReportRunningNormalStartFromApp() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "InitApplicationState appName:%s ReportRunningNormalStartFromApp", GetApplicationName().c_str());
    Become<RunningApplicationState>();
    return AppChangeState::SUCCESS;
}

}  // namespace ProcMgr
