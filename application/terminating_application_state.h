/// The state Terminating: the process manager was asked to terminate it. See application_state.h.
#ifndef PROCMGR_APPLICATION_TERMINATING_APPLICATION_STATE_H
#define PROCMGR_APPLICATION_TERMINATING_APPLICATION_STATE_H

#include "application/application_state.h"

namespace ProcMgr {

class TerminatingApplicationState : public ApplicationState {
public:
    explicit TerminatingApplicationState(Application* owner)
        : ApplicationState(AppStateType::TERMINATING_STATE, owner) {}

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
