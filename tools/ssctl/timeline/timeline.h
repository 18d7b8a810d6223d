/// What came up when and what it waited for, made of the events that the process manager recorded. Pure.
///
/// Times are microseconds since the begin of the span. An application came up when it ran, or, when its manifest says
/// that it reports, when it said that it is ready: from then on the owner starts what depends on it.
#ifndef SSCTL_TIMELINE_TIMELINE_H
#define SSCTL_TIMELINE_TIMELINE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/posix/timeline/timeline_event.h"
#include "tools/ssctl/checked.h"

namespace Ssctl {

/// Which part of a record is looked at.
enum class Span {
    /// The applications that are to be started at boot, from the connection of the owner until it told that its base
    /// services run, or, if it never does, until something is asked for after a pause.
    BOOT,
    /// All that was asked for since the last pause: a second in which nothing was under way.
    LAST,
};

enum class RowState {
    UP,
    STARTING,   ///< asked for; nothing more is known
    FAILED,     ///< it was not started, or ended before it came up
    STOPPED,    ///< it was ended before it came up
    NOT_ASKED,  ///< it is to be started at boot and nobody asked for it
};

/// An end of a process, or a start that failed.
struct RowEnd {
    int64_t atUs = 0;
    bool isAbnormal = false;
    std::string how;  ///< "exit code 3", "signal 11", "reason 2"
};

struct TimelineRow {
    std::string name;
    RowState state = RowState::NOT_ASKED;
    std::vector<std::string> depends;  ///< directly, in name order
    bool reports = false;
    size_t wave = 1;        ///< one more than the highest of those in the span that it depends on
    std::string waitedFor;  ///< see FindWaits
    uint64_t request = 0;   ///< the number of the first one that asked for it
    uint64_t pid = 0;       ///< of its last process; 0: it had none
    size_t tries = 0;       ///< processes until it came up
    std::vector<RowEnd> ends;

    std::optional<int64_t> askedUs;    ///< first
    std::optional<int64_t> forkedUs;   ///< last before it came up; none when it ran already
    std::optional<int64_t> runningUs;  ///< the program of that process was executed
    std::optional<int64_t> upUs;
};

struct Timeline {
    std::string owner;
    Span span = Span::BOOT;
    int64_t beginMonotonicUs = 0;
    int64_t beginWallUs = 0;
    int64_t endUs = 0;              ///< the last coming up; when something never came up, the end of what is known
    size_t missing = 0;             ///< events of the record that are not kept any more
    bool isTorn = false;            ///< the record ends inside a line
    std::vector<TimelineRow> rows;  ///< by wave, then in the order in which they were asked for
    /// The critical chain: indices of rows, the first one first. Each waited for the one before; the last is the one
    /// that came up last.
    std::vector<size_t> chain;
};

/// The events of one session, in their order.
struct TimelineRecord {
    std::vector<ProcMgr::Timeline::Event> events;
    size_t missing = 0;
    bool isTorn = false;
};

/// A problem when nothing was asked for in the span.
[[nodiscard]] Checked<Timeline> MakeTimeline(const TimelineRecord& record, Span span);

/// How many came up.
[[nodiscard]] size_t CountUp(const Timeline& timeline);
[[nodiscard]] size_t CountWaves(const Timeline& timeline);

/// When the last one came up; 0 when none did.
[[nodiscard]] int64_t LastUpUs(const Timeline& timeline);

}  // namespace Ssctl

#endif
