/// The text of one log line. Everything that a record says stays on the line that says who wrote it.
#ifndef PROCMGR_PLATFORM_POSIX_LOG_LOG_LINE_H
#define PROCMGR_PLATFORM_POSIX_LOG_LOG_LINE_H

#include <cstdarg>
#include <cstdint>
#include <string>

namespace ProcMgr::Posix {

/// "debug", "info", "warn", "error" or "event"; other levels by their number.
std::string LevelText(int32_t level);

/// As LevelText, in the level's colour for a terminal.
std::string ColouredLevelText(int32_t level);

/// `text` with its control characters written out: "\n", "\r", "\t", and "\x1b" for others.
std::string EscapeControls(const std::string& text);

/// The formatted text, whatever its length; the bare format when it can't be formatted.
std::string FormatText(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

}  // namespace ProcMgr::Posix

#endif
