/// What the environment says about the platform log:
///
///     PROCMGR_LOG_LEVEL      debug, info (default), warn, error, event or off: the least level that is written
///     PROCMGR_LOG_FILE       the file to write to; not set or empty: standard error
///     PROCMGR_LOG_FILE_SIZE  bytes after which the file is rotated (default 1048576)
///     PROCMGR_LOG_FILES      how many rotated files are kept beside it (default 5)
///
/// Processes that write at the same time need a file each.
#ifndef PROCMGR_PLATFORM_POSIX_LOG_LOG_SETTINGS_H
#define PROCMGR_PLATFORM_POSIX_LOG_LOG_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/posix/log/environment.h"

namespace ProcMgr::Posix {

inline constexpr int32_t kLogLevelEvent = 16;

/// Above every level.
inline constexpr int32_t kLogLevelOff = INT32_MAX;

struct LogSettings {
    int32_t threshold = 1;
    std::string file;
    size_t fileSize = size_t{1} << 20U;
    size_t fileCount = 5;
    std::vector<std::string> warnings;  ///< one for each value that is no good; the default stands instead
};

LogSettings ReadLogSettings(const Environment& environment);

/// True when records of `level` are written under `threshold`. Events are, unless everything is off.
bool IsLevelEnabled(int32_t threshold, int32_t level);

}  // namespace ProcMgr::Posix

#endif
