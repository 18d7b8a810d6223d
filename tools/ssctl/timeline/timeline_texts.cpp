#include "tools/ssctl/timeline/timeline_texts.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "platform/posix/common_posix/rows_in_order.h"

namespace Ssctl {

namespace {

struct StateRow {
    RowState state;
    const char* name;
    const char* text;
};

constexpr std::array<StateRow, 5> kStates = {{{RowState::UP, "up", "up"},
                                              {RowState::STARTING, "starting", "not up"},
                                              {RowState::FAILED, "failed", "failed"},
                                              {RowState::STOPPED, "stopped", "stopped"},
                                              {RowState::NOT_ASKED, "not_asked", "not asked for"}}};

static_assert(ProcMgr::RowsAreInOrder(kStates, &StateRow::state), "a state is the index of its row");

const StateRow& RowOf(RowState state) {
    return kStates[static_cast<size_t>(state)];
}

}  // namespace

std::string Milliseconds(int64_t us) {
    const int64_t tenths = (std::max<int64_t>(us, 0) + 50) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string WallTime(int64_t us) {
    const time_t seconds = us / 1000000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    std::array<char, 16> fraction{};
    static_cast<void>(std::snprintf(fraction.data(), fraction.size(), ".%03d UTC", static_cast<int>(us / 1000 % 1000)));
    return std::string(text.data(), length) + fraction.data();
}

std::string Count(size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string StateName(RowState state) {
    return RowOf(state).name;
}

std::string SpanName(Span span) {
    return span == Span::BOOT ? "boot" : "last";
}

std::string DescribeState(const TimelineRow& row) {
    std::string text = RowOf(row.state).text;
    if (row.tries > 1) {
        text += ", " + std::to_string(row.tries) + " tries";
    }
    if (row.state == RowState::FAILED) {
        return text + ": " + row.ends.back().how;
    }
    const bool hasEnded = row.upUs && !row.ends.empty() && row.ends.back().atUs >= *row.upUs;
    return hasEnded ? text + ", ended: " + row.ends.back().how : text;
}

std::string TimelineName(const Timeline& timeline) {
    return (timeline.span == Span::BOOT ? "Boot of " : "Last start of ") +
           (timeline.owner.empty() ? "an unknown owner" : timeline.owner);
}

std::string Summarize(const Timeline& timeline) {
    return std::to_string(CountUp(timeline)) + " of " + Count(timeline.rows.size(), "application") +
           " came up within " + Milliseconds(LastUpUs(timeline)) + " ms, in " + Count(CountWaves(timeline), "wave");
}

LinkTimes TimesOf(const Timeline& timeline, size_t link) {
    const TimelineRow& row = timeline.rows[timeline.chain[link]];
    const int64_t before = link == 0 ? 0 : *timeline.rows[timeline.chain[link - 1]].upUs;
    const int64_t running = row.runningUs.value_or(*row.upUs);
    const int64_t forked = row.forkedUs.value_or(running);
    return {*row.askedUs - before, forked - *row.askedUs, running - forked, *row.upUs - running};
}

}  // namespace Ssctl
