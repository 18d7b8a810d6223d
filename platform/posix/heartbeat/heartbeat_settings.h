/// How often a heart beats, and when it counts as lost:
///
///     PROCMGR_HEARTBEAT_PERIOD_MS  milliseconds from beat to beat (default 1000)
///     PROCMGR_HEARTBEAT_MISSES     how many beats in a row must stay away (default 3)
///     PROCMGR_RUN_DIR              the run directory (default /run/procmgr)
///
/// Senders and watchers of one system must have the same period.
#ifndef PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_SETTINGS_H
#define PROCMGR_PLATFORM_POSIX_HEARTBEAT_HEARTBEAT_SETTINGS_H

#include <chrono>
#include <string>
#include <vector>

#include "platform/posix/log/environment.h"

namespace ProcMgr::Posix {

struct HeartBeatSettings {
    std::chrono::milliseconds period{1000};
    unsigned int misses = 3;
    std::string runDirectory = "/run/procmgr";
    std::vector<std::string> warnings;  ///< one for each value that is no good; the default stands instead
};

HeartBeatSettings ReadHeartBeatSettings(const Environment& environment);

}  // namespace ProcMgr::Posix

#endif
