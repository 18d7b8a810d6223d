/// The one way in which the library writes a message: to syslog when the platform's switch is on, otherwise to the
/// platform log, with the source file and line in front, when that level is enabled.
///
///     GRP_OWNER_LOG(level, format, arguments...)
///
/// `format` is a string literal and `level` an enumerator of GrpOwnerLogLevel. The arguments are evaluated once when
/// the message is written and not at all otherwise: they must have no effect. No name of a structured binding may stand
/// among them, because a lambda of C++17 cannot capture it. Formatting is left to the two sinks.
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

/// What stands before each format, for the platform log; syslog gets what is behind it.
#define GRP_OWNER_LOG_PREFIX "[%s:%d]"

enum class LogSink { NONE, SYSLOG, PLATFORM_LOG };

/// Where a message goes, and its level there.
struct LogTarget {
    LogSink sink;
    int32_t level;
};

/// Where a message of this level goes now; to NONE when the platform log has its level switched off.
LogTarget FindLogTarget(GrpOwnerLogLevel level);

// The macro has the format compared with the arguments; in the function it is a variable.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

/// Writes one message; `prefixed` is its format behind GRP_OWNER_LOG_PREFIX. Called through GRP_OWNER_LOG only. Not
/// inlined: copies at nearly 400 messages would make a sixth of the library.
template <typename... Arguments>
[[gnu::noinline]] void WriteLogLine(LogTarget target, const char* file, int line, const char* prefixed,
                                    Arguments... arguments) {
    if (target.sink == LogSink::SYSLOG) {
        syslog(target.level, prefixed + sizeof(GRP_OWNER_LOG_PREFIX) - 1, arguments...);
        return;
    }
    KmonRecord(kLogModuleId, target.level, prefixed, file, line, arguments...);
}

#pragma GCC diagnostic pop

/// Calls `write` with the target of a message that is wanted; the message's arguments are evaluated in it.
template <typename Write>
void LogWhenWanted(GrpOwnerLogLevel level, Write write) {
    const LogTarget target = FindLogTarget(level);
    if (target.sink != LogSink::NONE) {
        write(target);
    }
}

}  // namespace ProcMgr

// What `if (false)` holds never runs: it lets the compiler compare the format with the arguments.
#define GRP_OWNER_LOG(level, ...)                                                                              \
    do {                                                                                                       \
        static constexpr const char* grpOwnerFile = ::ProcMgr::BaseName(__FILE__);                             \
        if (false) {                                                                                           \
            syslog(0, __VA_ARGS__);                                                                            \
        }                                                                                                      \
        ::ProcMgr::LogWhenWanted(level, [&](::ProcMgr::LogTarget grpOwnerTarget) {                             \
            ::ProcMgr::WriteLogLine(grpOwnerTarget, grpOwnerFile, __LINE__, GRP_OWNER_LOG_PREFIX __VA_ARGS__); \
        });                                                                                                    \
    } while (false)

#endif
