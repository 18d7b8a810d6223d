/// How the bus logs: one record of the platform log, when its level is enabled.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_LOG_H
#define PROCMGR_PLATFORM_POSIX_VEK_LOG_H

#include <cstdint>

#include "platform/include/platform_log.h"

namespace ProcMgr {

inline constexpr uint32_t kVekLogModule = 29;
inline constexpr int32_t kVekInfo = 1;
inline constexpr int32_t kVekWarn = 2;
inline constexpr int32_t kVekError = 3;

}  // namespace ProcMgr

/// The format is a string literal; the arguments are evaluated at most once and perhaps never.
#define VEK_LOG(level, ...)                                           \
    do {                                                              \
        if (CheckLogLevel(::ProcMgr::kVekLogModule, level) == 1) {    \
            KmonRecord(::ProcMgr::kVekLogModule, level, __VA_ARGS__); \
        }                                                             \
    } while (false)

#endif
