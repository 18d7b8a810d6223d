/// How the bus logs.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_LOG_H
#define PROCMGR_PLATFORM_POSIX_VEK_LOG_H

#include "platform/posix/common_posix/module_log.h"

#define VEK_LOG(level, ...) MODULE_LOG(::ProcMgr::LogModule::BUS, level, __VA_ARGS__)

#endif
