/// Marks a moment of the boot in a log line.
#ifndef PROCMGR_COMMON_BOOT_TRACE_H
#define PROCMGR_COMMON_BOOT_TRACE_H

#include <cstdint>
#include <string>

namespace ProcMgr {

/// "[1234.567890s][BOOT_TRACE][text]": the seconds since the processor's counter started, and the text. Empty when the
/// counter has no frequency. On a processor without such a counter the seconds of the monotonic clock.
std::string BootStrace(const std::string& text);

/// The same for a given reading: `counter` ticks at `frequency` ticks a second. Whatever the process's locale is, the
/// seconds are written with a point.
std::string BootStraceAt(uint64_t counter, uint64_t frequency, const std::string& text);

}  // namespace ProcMgr

#endif
