/// How the pipe library logs.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_LOG_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_LOG_H

#include "platform/posix/common_posix/module_log.h"

#define TUNOR_LOG(level, ...) MODULE_LOG(::ProcMgr::LogModule::PIPE, level, __VA_ARGS__)

#endif
