/// What the table, the picture and the trace say alike. Pure.
#ifndef SSCTL_TIMELINE_TIMELINE_TEXTS_H
#define SSCTL_TIMELINE_TIMELINE_TEXTS_H

#include <cstdint>
#include <string>

#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// Milliseconds with one digit behind the point: "412.3".
[[nodiscard]] std::string Milliseconds(int64_t us);

/// "2026-03-04 05:06:07.890 UTC".
[[nodiscard]] std::string WallTime(int64_t us);

/// "1 application", "5 applications".
[[nodiscard]] std::string Count(size_t count, const std::string& what);

/// For scripts: "up", "starting", "failed", "stopped", "not_asked"; "boot", "last".
[[nodiscard]] std::string StateName(RowState state);
[[nodiscard]] std::string SpanName(Span span);

/// "up", "up, 2 tries, ended: signal 11", "failed: exit code 3", "not asked for", ...
[[nodiscard]] std::string DescribeState(const TimelineRow& row);

/// "Boot of robot_owner", "Last start of robot_owner".
[[nodiscard]] std::string TimelineName(const Timeline& timeline);

/// "9 of 10 applications came up within 412.3 ms, in 6 waves".
[[nodiscard]] std::string Summarize(const Timeline& timeline);

/// What a link of the critical chain took, in microseconds: from the coming up of the one before (of the first one:
/// from the begin) until it was asked for, from there to its process, to its program, and to its coming up. Together
/// they are the whole time from the one before to this one.
struct LinkTimes {
    int64_t waitUs = 0;
    int64_t toForkUs = 0;
    int64_t toRunUs = 0;
    int64_t toReadyUs = 0;
};
[[nodiscard]] LinkTimes TimesOf(const Timeline& timeline, size_t link);

}  // namespace Ssctl

#endif
