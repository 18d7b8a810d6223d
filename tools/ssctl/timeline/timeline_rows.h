/// What became of each application in a span. Pure.
#ifndef SSCTL_TIMELINE_TIMELINE_ROWS_H
#define SSCTL_TIMELINE_TIMELINE_ROWS_H

#include <cstdint>
#include <vector>

#include "tools/ssctl/timeline/span.h"
#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

struct SpanRows {
    std::vector<TimelineRow> rows;  ///< in name order
    int64_t lastUs = 0;             ///< of the last event that was about one of them
};

/// Of the boot those that are to be started at boot, whether somebody asked for them or not; otherwise those that were
/// asked for.
[[nodiscard]] SpanRows MakeRows(const std::vector<ProcMgr::Timeline::Event>& events, Span span,
                                const SpanBounds& bounds);

}  // namespace Ssctl

#endif
