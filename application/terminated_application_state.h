/// The state Terminated: it ended. See application_state.h.
#ifndef PROCMGR_APPLICATION_TERMINATED_APPLICATION_STATE_H
#define PROCMGR_APPLICATION_TERMINATED_APPLICATION_STATE_H

#include "application/application_state.h"

namespace ProcMgr {

class TerminatedApplicationState : public ApplicationState {
public:
    explicit TerminatedApplicationState(Application* owner) : ApplicationState(AppStateType::TERMINATED_STATE, owner) {}

    bool Start() override;
    bool Term() override;
    bool Restart() override;
    AppChangeState ReportRunningNormalStartFromProcMgr() override;
    AppChangeState ReportRunningAbnormalTermTimeoutFromProcMgr() override;
    AppChangeState ReportRunningNormalReStartFromProcMgr() override;
    AppChangeState ReportTerminatedNormalFromProcMgr() override;
    AppChangeState ReportTerminatedAbnormalFromProcMgr(unsigned reason) override;
    AppChangeState ReportRunningNormalStartFromApp() override;
};

}  // namespace ProcMgr

#endif
