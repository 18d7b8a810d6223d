/// The one way in which the library writes a message: to syslog when the platform's switch is on, otherwise to the
/// platform log, with the source file and line in front, when that level is enabled.
///
/// `format` is a string literal and `level` an enumerator of GrpOwnerLogLevel. The arguments are evaluated at most once
/// and perhaps never: they must have no effect. Formatting is left to the two sinks.
#ifndef PROCMGR_COMMON_GRP_OWNER_LOG_H
#define PROCMGR_COMMON_GRP_OWNER_LOG_H

#include <syslog.h>

#include <cstddef>
#include <cstdint>

#include "common/enumerations.h"
#include "platform/include/platform_log.h"

namespace ProcMgr {

inline constexpr uint32_t kLogModuleId = 27;

/// Level of the platform log; 1 for a level outside the list.
int32_t GetKmonLevel(GrpOwnerLogLevel level);

/// Priority of syslog; 6 for a level outside the list.
int GetSyslogLevel(GrpOwnerLogLevel level);

/// The part of a path behind its last slash; points into `path`.
constexpr const char* BaseName(const char* path) {
    const char* base = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            base = at + 1;
        }
    }
    return base;
}

}  // namespace ProcMgr

// The format is split from the arguments by counting them, so that the sinks' own format checks see both.
#define GRP_OWNER_LOG_PICK(_0, _1, _2, _3, _4, _5, _6, _7, _8, NAME, ...) NAME
#define GRP_OWNER_LOG_KIND(...) \
    GRP_OWNER_LOG_PICK(__VA_ARGS__, MANY, MANY, MANY, MANY, MANY, MANY, MANY, MANY, ONE, unused)
#define GRP_OWNER_LOG_JOIN(a, b) a##b

#define GRP_OWNER_LOG_SYSLOG_ONE(priority, format) syslog(priority, format)
#define GRP_OWNER_LOG_SYSLOG_MANY(priority, format, ...) syslog(priority, format, __VA_ARGS__)
#define GRP_OWNER_LOG_KMON_ONE(kmonLevel, file, line, format) \
    KmonRecord(::ProcMgr::kLogModuleId, kmonLevel, "[%s:%d]" format, file, line)
#define GRP_OWNER_LOG_KMON_MANY(kmonLevel, file, line, format, ...) \
    KmonRecord(::ProcMgr::kLogModuleId, kmonLevel, "[%s:%d]" format, file, line, __VA_ARGS__)

#define GRP_OWNER_LOG_SYSLOG(kind) GRP_OWNER_LOG_JOIN(GRP_OWNER_LOG_SYSLOG_, kind)
#define GRP_OWNER_LOG_KMON(kind) GRP_OWNER_LOG_JOIN(GRP_OWNER_LOG_KMON_, kind)

#define GRP_OWNER_LOG(level, ...)                                                          \
    do {                                                                                   \
        if (IsSyslogEnable()) {                                                            \
            GRP_OWNER_LOG_SYSLOG(GRP_OWNER_LOG_KIND(__VA_ARGS__))                          \
            (::ProcMgr::GetSyslogLevel(level), __VA_ARGS__);                               \
        } else {                                                                           \
            const int32_t grpOwnerKmonLevel = ::ProcMgr::GetKmonLevel(level);              \
            if (CheckLogLevel(::ProcMgr::kLogModuleId, grpOwnerKmonLevel) == 1) {          \
                static constexpr const char* grpOwnerFile = ::ProcMgr::BaseName(__FILE__); \
                GRP_OWNER_LOG_KMON(GRP_OWNER_LOG_KIND(__VA_ARGS__))                        \
                (grpOwnerKmonLevel, grpOwnerFile, __LINE__, __VA_ARGS__);                  \
            }                                                                              \
        }                                                                                  \
    } while (false)

#endif
