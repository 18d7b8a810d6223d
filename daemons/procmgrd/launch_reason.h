/// What a failed start means to an owner. Pure.
#ifndef PROCMGR_PROCMGRD_LAUNCH_REASON_H
#define PROCMGR_PROCMGRD_LAUNCH_REASON_H

#include "daemons/procmgrd/launch/launcher.h"
#include "daemons/procmgrd/supervisor.h"

namespace Procmgrd {

ExitNote WhyLaunchFailed(ProcMgr::LaunchStage stage, int error);

}  // namespace Procmgrd

#endif
