/// The state Running: it runs. See application_state.h.
#ifndef PROCMGR_APPLICATION_RUNNING_APPLICATION_STATE_H
#define PROCMGR_APPLICATION_RUNNING_APPLICATION_STATE_H

#include "application/application_state.h"

namespace ProcMgr {

class RunningApplicationState : public ApplicationState {
public:
    explicit RunningApplicationState(Application* owner) : ApplicationState(AppStateType::RUNNING_STATE, owner) {}

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
