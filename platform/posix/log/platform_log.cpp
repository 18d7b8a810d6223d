#include "platform/include/platform_log.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/posix/log/environment.h"
#include "platform/posix/log/log_line.h"
#include "platform/posix/log/log_settings.h"

namespace ProcMgr::Posix {
namespace {

std::atomic<bool> syslogEnabled{false};

// Where the lines go, from the first record or question to the end of the process.
class Log {
public:
    Log() : settings_(ReadLogSettings(ProcessEnvironment)) {
        OpenSink();
        for (const std::string& warning : settings_.warnings) {
            if (IsEnabled(kLogLevelEvent)) {
                Write(kWarn, warning);
            }
        }
    }

    bool IsEnabled(int32_t level) const { return IsLevelEnabled(settings_.threshold, level); }

    void Write(int32_t level, const std::string& text) {
        const std::string line = (isColoured_ ? ColouredLevelText(level) : LevelText(level)) + name_ +
                                 std::to_string(getpid()) + "] " + EscapeControls(text);
        logger_->log(spdlog::level::info, spdlog::string_view_t(line));
    }

private:
    static constexpr int32_t kWarn = 2;

    void OpenSink() {
        spdlog::sink_ptr sink = settings_.file.empty() ? nullptr : OpenFile();
        if (sink == nullptr) {
            sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
            isColoured_ = IsColourTerminal();
        }
        logger_ = std::make_unique<spdlog::logger>("procmgr", std::move(sink));
        logger_->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
        logger_->set_level(spdlog::level::trace);
        // A process that is killed must not take its last lines with it.
        logger_->flush_on(spdlog::level::trace);
    }

    spdlog::sink_ptr OpenFile() {
        try {
            return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(settings_.file, settings_.fileSize,
                                                                          settings_.fileCount);
        } catch (const std::exception& error) {
            settings_.warnings.push_back(std::string("PROCMGR_LOG_FILE can't be used: ") + error.what() +
                                         ". Writing to standard error.");
            return nullptr;
        }
    }

    static bool IsColourTerminal() {
        const char* const terminal = getenv("TERM");
        return isatty(STDERR_FILENO) == 1 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
    }

    LogSettings settings_;
    std::string name_ = " " + EscapeControls(ProcessName()) + "[";
    bool isColoured_ = false;
    std::unique_ptr<spdlog::logger> logger_;
};

// Never destroyed: other threads and destructors write until the very end.
Log& TheLog() {
    static Log& log = *new Log;
    return log;
}

}  // namespace
}  // namespace ProcMgr::Posix

using ProcMgr::Posix::TheLog;

extern "C" bool IsSyslogEnable(void) {
    return ProcMgr::Posix::syslogEnabled.load();
}

extern "C" void EnableSyslogState(void) {
    ProcMgr::Posix::syslogEnabled.store(true);
}

extern "C" int CheckLogLevel(uint32_t /*moduleId*/, int32_t level) {
    // The first question opens the log; the line that follows may be about the caller's errno.
    const int callersErrno = errno;
    int isEnabled = 0;
    try {
        isEnabled = TheLog().IsEnabled(level) ? 1 : 0;
    } catch (...) {
    }
    errno = callersErrno;
    return isEnabled;
}

extern "C" void KmonRecord(uint32_t /*moduleId*/, int32_t level, const char* format, ...) {
    const int callersErrno = errno;
    va_list arguments;
    va_start(arguments, format);
    // A record that there is no memory for is lost; the caller goes on.
    try {
        TheLog().Write(level, ProcMgr::Posix::FormatText(format, arguments));
    } catch (...) {
    }
    va_end(arguments);
    errno = callersErrno;
}
