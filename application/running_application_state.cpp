#include "application/running_application_state.h"

#include "application/application.h"
#include "application/terminated_application_state.h"
#include "application/terminating_application_state.h"
#include "application/waitready_application_state.h"
#include "common/grp_owner_log.h"

namespace ProcMgr {

bool RunningApplicationState::Start() {
    GRP_OWNER_LOG(
        GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
        "RunningApplicationState appName:%s Start, it's duplicate operation, but we return true, should mark the operation success directly",
        GetApplicationName().c_str());
    return true;
}

bool RunningApplicationState::Term() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "RunningApplicationState appName:%s Term",
                  GetApplicationName().c_str());
    Become<TerminatingApplicationState>();
    return true;
}

bool RunningApplicationState::Restart() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "RunningApplicationState appName:%s Restart",
                  GetApplicationName().c_str());
    if (!application->IsOkToRestart()) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RunningApplicationState Application:%s cannot restart.",
                      GetApplicationName().c_str());
        return false;
    }
    Become<WaitReadyApplicationState>();
    return true;
}

AppChangeState RunningApplicationState::ReportRunningNormalStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "RunningApplicationState appName:%s ReportRunningNormalStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState RunningApplicationState::ReportRunningAbnormalTermTimeoutFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "RunningApplicationState appName:%s ReportRunningAbnormalTermTimeoutFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState RunningApplicationState::ReportRunningNormalReStartFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "RunningApplicationState appName:%s ReportRunningNormalReStartFromProcMgr",
                  GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

AppChangeState RunningApplicationState::ReportTerminatedNormalFromProcMgr() {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN,
                  "RunningApplicationState appName:%s ReportTerminatedNormalFromProcMgr", GetApplicationName().c_str());
    Become<TerminatedApplicationState>();
    return AppChangeState::PROCESSING;
}

AppChangeState RunningApplicationState::ReportTerminatedAbnormalFromProcMgr(unsigned reason) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "RunningApplicationState appName:%s ReportTerminatedAbnormalFromProcMgr, reason=%u",
                  GetApplicationName().c_str(), reason);
    Become<TerminatedApplicationState>();
    return AppChangeState::PROCESSING;
}

AppChangeState RunningApplicationState::ReportRunningNormalStartFromApp() {
    GRP_OWNER_LOG(
        GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
        "RunningApplicationState appName:%s ReportRunningNormalStartFromApp. there is something wrong in app cfg, please check is_ros_node(it should be true)",
        GetApplicationName().c_str());
    return AppChangeState::PROCESSING;
}

}  // namespace ProcMgr
