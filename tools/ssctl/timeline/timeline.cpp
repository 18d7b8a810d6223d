#include "tools/ssctl/timeline/timeline.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "tools/ssctl/timeline/span.h"
#include "tools/ssctl/timeline/timeline_rows.h"
#include "tools/ssctl/timeline/waits.h"

namespace Ssctl {

namespace {

using ProcMgr::Timeline::Event;
using ProcMgr::Timeline::EventKind;

std::string OwnerOf(const TimelineRecord& record) {
    const auto came = std::find_if(record.events.begin(), record.events.end(),
                                   [](const Event& event) { return event.kind == EventKind::CAME; });
    return came == record.events.end() ? std::string() : came->owner;
}

void SortRows(std::vector<TimelineRow>& rows) {
    const auto key = [](const TimelineRow& row) {
        return std::make_tuple(row.wave, row.askedUs.value_or(std::numeric_limits<int64_t>::max()),
                               std::cref(row.name));
    };
    std::sort(rows.begin(), rows.end(),
              [&](const TimelineRow& left, const TimelineRow& right) { return key(left) < key(right); });
}

/// Until when something was under way that never came up.
int64_t EndOf(const TimelineRecord& record, const SpanBounds& bounds, const SpanRows& rows) {
    const bool isStarting = std::any_of(rows.rows.begin(), rows.rows.end(),
                                        [](const TimelineRow& row) { return row.state == RowState::STARTING; });
    const bool isTold = bounds.end < record.events.size() && record.events[bounds.end].kind == EventKind::SERVICES;
    if (!isStarting || !isTold) {
        return rows.lastUs;
    }
    return record.events[bounds.end].monotonicUs - record.events[bounds.begin].monotonicUs;
}

}  // namespace

size_t CountUp(const Timeline& timeline) {
    return static_cast<size_t>(std::count_if(timeline.rows.begin(), timeline.rows.end(),
                                             [](const TimelineRow& row) { return row.state == RowState::UP; }));
}

size_t CountWaves(const Timeline& timeline) {
    return timeline.rows.empty() ? 0 : timeline.rows.back().wave;
}

int64_t LastUpUs(const Timeline& timeline) {
    return timeline.chain.empty() ? 0 : *timeline.rows[timeline.chain.back()].upUs;
}

Checked<Timeline> MakeTimeline(const TimelineRecord& record, Span span) {
    const auto bounds = FindSpan(record.events, span);
    if (!bounds) {
        return Problem{bounds.What()};
    }
    SpanRows rows = MakeRows(record.events, span, *bounds);
    if (rows.rows.empty()) {
        return Problem{"no application is to be started at boot"};
    }
    Timeline timeline;
    timeline.owner = OwnerOf(record);
    timeline.span = span;
    timeline.beginMonotonicUs = record.events[bounds->begin].monotonicUs;
    timeline.beginWallUs = record.events[bounds->begin].wallUs;
    timeline.endUs = EndOf(record, *bounds, rows);
    timeline.missing = record.missing;
    timeline.isTorn = record.isTorn;
    timeline.rows = std::move(rows.rows);
    FindWaits(timeline.rows);
    SortRows(timeline.rows);
    timeline.chain = FindChain(timeline.rows);
    timeline.endUs = std::max(timeline.endUs, LastUpUs(timeline));
    return timeline;
}

}  // namespace Ssctl
