#include "platform/posix/log/log_settings.h"

#include <cstring>

namespace ProcMgr::Posix {
namespace {

struct LevelName {
    const char* name;
    int32_t threshold;
};

constexpr LevelName kLevelNames[] = {
    {"debug", 0}, {"info", 1}, {"warn", 2}, {"error", 3}, {"event", kLogLevelEvent}, {"off", kLogLevelOff},
};

constexpr size_t kMaxFileSize = size_t{1} << 40U;

// Rotation renames each file once.
constexpr size_t kMaxFileCount = 1000;

void ReadLevel(const char* value, LogSettings& settings) {
    for (const LevelName& known : kLevelNames) {
        if (strcmp(value, known.name) == 0) {
            settings.threshold = known.threshold;
            return;
        }
    }
    settings.warnings.push_back(std::string("PROCMGR_LOG_LEVEL is '") + value +
                                "'; use debug, info, warn, error, event or off. Taking info.");
}

}  // namespace

LogSettings ReadLogSettings(const Environment& environment) {
    LogSettings settings;
    if (const char* const level = GivenValue(environment, "PROCMGR_LOG_LEVEL"); level != nullptr) {
        ReadLevel(level, settings);
    }
    if (const char* const file = GivenValue(environment, "PROCMGR_LOG_FILE"); file != nullptr) {
        settings.file = file;
    }
    ReadNumber(environment, "PROCMGR_LOG_FILE_SIZE", kMaxFileSize, settings.fileSize, settings.warnings);
    ReadNumber(environment, "PROCMGR_LOG_FILES", kMaxFileCount, settings.fileCount, settings.warnings);
    return settings;
}

bool IsLevelEnabled(int32_t threshold, int32_t level) {
    if (threshold == kLogLevelOff) {
        return false;
    }
    return level == kLogLevelEvent || level >= threshold;
}

}  // namespace ProcMgr::Posix
