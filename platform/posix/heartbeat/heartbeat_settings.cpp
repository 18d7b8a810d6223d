#include "platform/posix/heartbeat/heartbeat_settings.h"

namespace ProcMgr::Posix {
namespace {

constexpr size_t kMaxPeriodMs = 3600000;
constexpr size_t kMaxMisses = 1000;

}  // namespace

HeartBeatSettings ReadHeartBeatSettings(const Environment& environment) {
    HeartBeatSettings settings;
    auto periodMs = static_cast<size_t>(settings.period.count());
    ReadNumber(environment, "PROCMGR_HEARTBEAT_PERIOD_MS", kMaxPeriodMs, periodMs, settings.warnings);
    settings.period = std::chrono::milliseconds(periodMs);
    size_t misses = settings.misses;
    ReadNumber(environment, "PROCMGR_HEARTBEAT_MISSES", kMaxMisses, misses, settings.warnings);
    settings.misses = static_cast<unsigned int>(misses);
    if (const char* const directory = GivenValue(environment, "PROCMGR_RUN_DIR"); directory != nullptr) {
        settings.runDirectory = directory;
    }
    return settings;
}

}  // namespace ProcMgr::Posix
