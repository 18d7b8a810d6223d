#include "tests/platform/manifest_log_recorder.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "platform/include/platform_log.h"

namespace {

std::mutex mutex;
std::vector<std::string> lines;

}  // namespace

std::vector<std::string> RecordedLines() {
    const std::lock_guard<std::mutex> lock(mutex);
    return lines;
}

int CheckLogLevel(uint32_t /*moduleId*/, int32_t /*level*/) {
    return 1;
}

void KmonRecord(uint32_t moduleId, int32_t level, const char* format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(vsnprintf(text, sizeof text, format, arguments));
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(mutex);
    lines.push_back(std::to_string(moduleId) + " " + std::to_string(level) + " " + text);
}
