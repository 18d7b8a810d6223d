#include "application/terminated_application_state.h"

#include "application/application.h"
#include "application/waitready_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {

bool TerminatedApplicationState::Start() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "TerminatedApplicationState appName:%s Start",
                  GetApplicationName().c_str());
    Become<WaitReadyApplicationState>();
    return true;
}

bool TerminatedApplicationState::Term() {
    GRP_OWNER_LOG(
        GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
        "TerminatedApplicationState appName:%s Term, it's duplicate operation, but we return true, should mark the operation success directly",
        GetApplicationName().c_str());
    return true;
}

bool TerminatedApplicationState::Restart() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "TerminatedApplicationState appName:%s Restart",
                  GetApplicationName().c_str());
    if (!application->IsOkToRestart()) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "TerminatedApplicationState Application:%s cannot restart.", GetApplicationName().c_str());
        return false;
    }
    Become<WaitReadyApplicationState>();
    return true;
}

AppChangeState TerminatedApplicationState::ReportRunningNormalStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportRunningNormalStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatedApplicationState::ReportRunningAbnormalTermTimeoutFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportRunningAbnormalTermTimeoutFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatedApplicationState::ReportRunningNormalReStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportRunningNormalReStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatedApplicationState::ReportTerminatedNormalFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportTerminatedNormalFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatedApplicationState::ReportTerminatedAbnormalFromProcMgr(unsigned reason) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportTerminatedAbnormalFromProcMgr, reason=%u",
                  GetApplicationName().c_str(), reason);
    return AppChangeState::PROCESSING;
}

AppChangeState TerminatedApplicationState::ReportRunningNormalStartFromApp() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "TerminatedApplicationState appName:%s ReportRunningNormalStartFromApp",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

}  // namespace ProcMgr
