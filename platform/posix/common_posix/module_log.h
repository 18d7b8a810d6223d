/// How the parts of the reference platform and the process manager log: one record of the platform log, under the
/// number of the part, when its level is enabled.
#ifndef PROCMGR_PLATFORM_POSIX_MODULE_LOG_H
#define PROCMGR_PLATFORM_POSIX_MODULE_LOG_H

#include <cstdint>

#include "platform/include/platform_log.h"

namespace ProcMgr {

/// The numbers of the parts; 27 is the group-owner library.
enum class LogModule : uint32_t { PIPE = 28, MANIFEST = 29, PROCMGRD = 30, BUS = 31, HEARTBEAT = 32 };

inline constexpr int32_t kLogDebug = 0;
inline constexpr int32_t kLogInfo = 1;
inline constexpr int32_t kLogWarn = 2;
inline constexpr int32_t kLogError = 3;
inline constexpr int32_t kLogEvent = 16;

}  // namespace ProcMgr

/// The format is a string literal; the arguments are evaluated at most once and perhaps never.
#define MODULE_LOG(module, level, ...)                            \
    do {                                                          \
        constexpr auto logModule = static_cast<uint32_t>(module); \
        if (CheckLogLevel(logModule, level) == 1) {               \
            KmonRecord(logModule, level, __VA_ARGS__);            \
        }                                                         \
    } while (false)

#endif
