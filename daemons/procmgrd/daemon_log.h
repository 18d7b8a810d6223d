/// The daemon's own log lines: one for each event.
#ifndef PROCMGR_PROCMGRD_DAEMON_LOG_H
#define PROCMGR_PROCMGRD_DAEMON_LOG_H

#include "platform/posix/common_posix/module_log.h"

namespace Procmgrd {

using ProcMgr::kLogDebug;
using ProcMgr::kLogError;
using ProcMgr::kLogEvent;
using ProcMgr::kLogInfo;
using ProcMgr::kLogWarn;

}  // namespace Procmgrd

#define PROCMGRD_LOG(level, ...) MODULE_LOG(::ProcMgr::LogModule::PROCMGRD, level, __VA_ARGS__)

#endif
