#include "common/grp_owner_log.h"

#include <map>
#include <utility>

namespace ProcMgr {
namespace {

using LevelMap = std::map<GrpOwnerLogLevel, int>;

constexpr int kKmonFallback = 1;
constexpr int kSyslogFallback = LOG_INFO;

constexpr std::pair<GrpOwnerLogLevel, int> kKmonLevels[] = {
    {GrpOwnerLogLevel::GRP_OWNER_LOG_DEBUG, 0},  {GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, 1},
    {GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, 2},   {GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, 3},
    {GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT, 16},
};

constexpr std::pair<GrpOwnerLogLevel, int> kSyslogLevels[] = {
    {GrpOwnerLogLevel::GRP_OWNER_LOG_DEBUG, LOG_DEBUG},  {GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, LOG_INFO},
    {GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, LOG_WARNING}, {GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, LOG_ERR},
    {GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT, LOG_NOTICE},
};

template <size_t N>
const LevelMap& MakeLevelMap(const std::pair<GrpOwnerLogLevel, int> (&pairs)[N]) {
    // Not destroyed, because messages are written while the process exits.
    return *new LevelMap(pairs, pairs + N);
}

int LookUp(const LevelMap& levels, GrpOwnerLogLevel level, int fallback) {
    const auto found = levels.lower_bound(level);
    return found != levels.end() && found->first == level ? found->second : fallback;
}

}  // namespace

int32_t GetKmonLevel(GrpOwnerLogLevel level) {
    static const LevelMap& levels = MakeLevelMap(kKmonLevels);
    return LookUp(levels, level, kKmonFallback);
}

int GetSyslogLevel(GrpOwnerLogLevel level) {
    static const LevelMap& levels = MakeLevelMap(kSyslogLevels);
    return LookUp(levels, level, kSyslogFallback);
}

LogTarget FindLogTarget(GrpOwnerLogLevel level) {
    if (IsSyslogEnable()) {
        return {LogSink::SYSLOG, GetSyslogLevel(level)};
    }
    const int32_t kmonLevel = GetKmonLevel(level);
    const bool isWanted = CheckLogLevel(kLogModuleId, kmonLevel) == 1;
    return {isWanted ? LogSink::PLATFORM_LOG : LogSink::NONE, kmonLevel};
}

}  // namespace ProcMgr
