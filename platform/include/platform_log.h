/// @file
/// The platform log and the switch that sends log lines to syslog instead. Every operation may be called from any
/// thread, before main and while the process exits.
#ifndef PROCMGR_PLATFORM_LOG_H
#define PROCMGR_PLATFORM_LOG_H

#include <stdbool.h>
#include <stdint.h>

#include "platform/include/platform_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// True once EnableSyslogState was called.
PROCMGR_PLATFORM_API bool IsSyslogEnable(void);

/// From now on log lines are to go to syslog, and to syslog only. There is no way back.
PROCMGR_PLATFORM_API void EnableSyslogState(void);

/// Returns 1 when records of `level` (0 debug, 1 information, 2 warning, 3 error, 16 event) of this module are written;
/// any other number when they are not.
PROCMGR_PLATFORM_API int CheckLogLevel(uint32_t moduleId, int32_t level);

/// Writes one record as one line.
PROCMGR_PLATFORM_API void KmonRecord(uint32_t moduleId, int32_t level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
