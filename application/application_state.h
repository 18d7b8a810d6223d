/// The life cycle of one application.
///
/// An Application holds one state object. The object decides what an event means now, installs the next state and gives
/// a result; it knows nothing of the manager above it. Events come from three sides:
///
///  - the manager asks: Start, Term, Restart. True: accepted, it is done or on its way. False: refused, no change.
///  - the process manager reports what became of a process (the operations ...FromProcMgr);
///  - the application reports of itself that it is ready (ReportRunningNormalStartFromApp).
///
/// A report gives what it settles for a waiting change request. PROCESSING settles nothing, also where the state moves,
/// as when a running application ends by itself.
///
///     state        Start          Term           Restart
///     Init         WaitReady T    -           T  WaitReady T
///     WaitReady    -         F    Terminating T  -         F
///     Running      -         T    Terminating T  WaitReady T, or - F when the restart window is used up
///     Terminating  -         F    -           T  -         F
///     Terminated   WaitReady T    -           T  WaitReady T, or - F when the restart window is used up
///
///     report                Init     WaitReady                Running       Terminating      Terminated
///     normal start, restart -  5     Running 0, or - 5 (a)    -          5  -             5  -  5
///     termination timed out -  5     -  5                     -          5  Running       1  -  5
///     normal exit           -  5     Terminated 2             Terminated 5  Terminated    0  -  5
///     abnormal exit         -  5     Terminated 6 (b) or 2    Terminated 5  Terminated    0  -  5
///     own start report      Running  Running 0, or - 5 (c)    -          5  -             5  -  5
///                               0
///
///     -  the state stays       T, F  true, false       digits  AppChangeState
///     (a) stays when the application reports its own readiness (ROS node or self-reporting)
///     (b) when the exec failed with EIO, reason 1
///     (c) stays when it is none that reports its own readiness: the process manager's report counts then
#ifndef PROCMGR_APPLICATION_APPLICATION_STATE_H
#define PROCMGR_APPLICATION_APPLICATION_STATE_H

#include <memory>
#include <string>

#include "common/enumerations.h"

namespace ProcMgr {

class Application;

/// One state. Every operation runs under the lock of its Application that orders all calls into the state, so at most
/// one runs at a time. It logs first what was asked of it.
class ApplicationState {
public:
    virtual ~ApplicationState() = default;

    virtual bool Start() = 0;
    virtual bool Term() = 0;
    virtual bool Restart() = 0;
    virtual AppChangeState ReportRunningNormalStartFromProcMgr() = 0;
    virtual AppChangeState ReportRunningAbnormalTermTimeoutFromProcMgr() = 0;
    virtual AppChangeState ReportRunningNormalReStartFromProcMgr() = 0;
    virtual AppChangeState ReportTerminatedNormalFromProcMgr() = 0;
    virtual AppChangeState ReportTerminatedAbnormalFromProcMgr(unsigned reason) = 0;
    virtual AppChangeState ReportRunningNormalStartFromApp() = 0;

    AppStateType GetType() const { return type; }

    /// A copy of the name of the application.
    std::string GetApplicationName() const;

    ApplicationState(const ApplicationState&) = delete;
    ApplicationState& operator=(const ApplicationState&) = delete;

protected:
    /// `owner` outlives the state object.
    ApplicationState(AppStateType kind, Application* owner) : type(kind), application(owner) {}

    /// Makes Next the state of the application. This object may be gone afterwards: the caller touches no member any
    /// more, it returns its result.
    template <typename Next>
    void Become() {
        Install(application, std::make_shared<Next>(application));
    }

    const AppStateType type;
    Application* const application;

private:
    static void Install(Application* owner, std::shared_ptr<ApplicationState> next);
};

}  // namespace ProcMgr

#endif
