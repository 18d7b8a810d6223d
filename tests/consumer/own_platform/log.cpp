// Warnings and errors go to the standard error.
#include <cstdarg>
#include <cstdio>

#include "platform/include/platform_log.h"

bool IsSyslogEnable(void) {
    return false;
}

void EnableSyslogState(void) {
}

int CheckLogLevel(uint32_t /*moduleId*/, int32_t level) {
    return level == 2 || level == 3 ? 1 : 0;
}

void KmonRecord(uint32_t /*moduleId*/, int32_t /*level*/, const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "%s\n", line);
}
