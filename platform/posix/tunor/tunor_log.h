/// How the pipe library logs: one record of the platform log, when its level is enabled.
#ifndef PROCMGR_PLATFORM_POSIX_TUNOR_LOG_H
#define PROCMGR_PLATFORM_POSIX_TUNOR_LOG_H

#include <cstdint>

#include "platform/include/platform_log.h"

namespace ProcMgr {

inline constexpr uint32_t kTunorLogModule = 28;
inline constexpr int32_t kTunorInfo = 1;
inline constexpr int32_t kTunorWarn = 2;
inline constexpr int32_t kTunorError = 3;

}  // namespace ProcMgr

/// The format is a string literal; the arguments are evaluated at most once and perhaps never.
#define TUNOR_LOG(level, ...)                                           \
    do {                                                                \
        if (CheckLogLevel(::ProcMgr::kTunorLogModule, level) == 1) {    \
            KmonRecord(::ProcMgr::kTunorLogModule, level, __VA_ARGS__); \
        }                                                               \
    } while (false)

#endif
