#include "platform/posix/log/log_settings.h"

#include <charconv>
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

// What the rotating sink can still handle.
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

bool ReadCount(const char* value, size_t largest, size_t& number) {
    const char* const end = value + strlen(value);
    size_t parsed = 0;
    const auto [stop, error] = std::from_chars(value, end, parsed);
    if (error != std::errc() || stop != end || parsed == 0 || parsed > largest) {
        return false;
    }
    number = parsed;
    return true;
}

void ReadNumber(const char* name, const char* value, size_t largest, size_t& number, LogSettings& settings) {
    if (ReadCount(value, largest, number)) {
        return;
    }
    settings.warnings.push_back(std::string(name) + " is '" + value + "'; use a number from 1 to " +
                                std::to_string(largest) + ". Taking " + std::to_string(number) + ".");
}

bool IsGiven(const char* value) {
    return value != nullptr && *value != '\0';
}

}  // namespace

LogSettings ReadLogSettings(const Environment& environment) {
    LogSettings settings;
    if (const char* level = environment("PROCMGR_LOG_LEVEL"); IsGiven(level)) {
        ReadLevel(level, settings);
    }
    if (const char* file = environment("PROCMGR_LOG_FILE"); IsGiven(file)) {
        settings.file = file;
    }
    if (const char* size = environment("PROCMGR_LOG_FILE_SIZE"); IsGiven(size)) {
        ReadNumber("PROCMGR_LOG_FILE_SIZE", size, size_t{1} << 40U, settings.fileSize, settings);
    }
    if (const char* count = environment("PROCMGR_LOG_FILES"); IsGiven(count)) {
        ReadNumber("PROCMGR_LOG_FILES", count, kMaxFileCount, settings.fileCount, settings);
    }
    return settings;
}

bool IsLevelEnabled(int32_t threshold, int32_t level) {
    if (threshold == kLogLevelOff) {
        return false;
    }
    return level == kLogLevelEvent || level >= threshold;
}

}  // namespace ProcMgr::Posix
