/// The daemon's own log lines: one for each event, through the platform log.
#ifndef PROCMGR_PROCMGRD_DAEMON_LOG_H
#define PROCMGR_PROCMGRD_DAEMON_LOG_H

#include <cstdint>

#include "platform/include/platform_log.h"

namespace Procmgrd {

inline constexpr uint32_t kDaemonLogModule = 30;

inline constexpr int32_t kLogDebug = 0;
inline constexpr int32_t kLogInfo = 1;
inline constexpr int32_t kLogWarn = 2;
inline constexpr int32_t kLogError = 3;
inline constexpr int32_t kLogEvent = 16;

}  // namespace Procmgrd

#define PROCMGRD_LOG(level, ...)                                          \
    do {                                                                  \
        if (CheckLogLevel(::Procmgrd::kDaemonLogModule, level) == 1) {    \
            KmonRecord(::Procmgrd::kDaemonLogModule, level, __VA_ARGS__); \
        }                                                                 \
    } while (false)

#endif
