/// The state WaitReady: the process manager was asked to start or restart it. See application_state.h.
#ifndef PROCMGR_APPLICATION_WAITREADY_APPLICATION_STATE_H
#define PROCMGR_APPLICATION_WAITREADY_APPLICATION_STATE_H

#include "application/application_state.h"

namespace ProcMgr {

class WaitReadyApplicationState : public ApplicationState {
public:
    explicit WaitReadyApplicationState(Application* owner) : ApplicationState(AppStateType::WAIT_READY_STATE, owner) {}

    bool Start() override;
    bool Term() override;
    bool Restart() override;
    AppChangeState ReportRunningNormalStartFromProcMgr() override;
    AppChangeState ReportRunningAbnormalTermTimeoutFromProcMgr() override;
    AppChangeState ReportRunningNormalReStartFromProcMgr() override;
    AppChangeState ReportTerminatedNormalFromProcMgr() override;
    AppChangeState ReportTerminatedAbnormalFromProcMgr(unsigned reason) override;
    AppChangeState ReportRunningNormalStartFromApp() override;

    /// What a report of the process manager, that the application was started or restarted, means: it runs, unless it
    /// is one that reports its own readiness.
    AppChangeState RecieveNormalStartFromProcMgr();

private:
    /// A ROS node or a self-reporting application: it counts as running only when it says so.
    bool IsReportingItself() const;
};

}  // namespace ProcMgr

#endif
