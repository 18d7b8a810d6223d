#include "tools/ssctl/timeline/trace.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/ssctl/timeline/timeline_texts.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;

/// Threads are numbered from 1, in the order of the rows.
constexpr int kGroup = 1;

class TraceWriter {
public:
    explicit TraceWriter(const Timeline& timeline) : timeline_(timeline) {}

    std::string Write() {
        AddMeta("process_name", 0, {{"name", TimelineName(timeline_)}});
        for (size_t at = 0; at < timeline_.rows.size(); ++at) {
            AddRow(timeline_.rows[at], at + 1);
        }
        for (size_t link = 1; link < timeline_.chain.size(); ++link) {
            AddFlow(link);
        }
        const Json document = {{"displayTimeUnit", "ms"},
                               {"otherData",
                                {{"owner", timeline_.owner},
                                 {"span", SpanName(timeline_.span)},
                                 {"begin", WallTime(timeline_.beginWallUs)}}},
                               {"traceEvents", std::move(events_)}};
        return document.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
    }

private:
    Json Event(const char* phase, const std::string& name, size_t thread, int64_t us) const {
        return {
            {"ph", phase}, {"name", name}, {"pid", kGroup}, {"tid", thread}, {"ts", timeline_.beginMonotonicUs + us}};
    }

    void AddMeta(const std::string& name, size_t thread, Json args) {
        events_.push_back({{"ph", "M"}, {"name", name}, {"pid", kGroup}, {"tid", thread}, {"args", std::move(args)}});
    }

    void AddSlice(const std::string& name, const char* category, size_t thread, int64_t fromUs, int64_t toUs,
                  Json args) {
        Json event = Event("X", name, thread, fromUs);
        event["dur"] = std::max<int64_t>(toUs - fromUs, 0);
        event["cat"] = category;
        event["args"] = std::move(args);
        events_.push_back(std::move(event));
    }

    void AddRow(const TimelineRow& row, size_t thread) {
        AddMeta("thread_name", thread, {{"name", row.name}});
        AddMeta("thread_sort_index", thread, {{"sort_index", thread}});
        if (!row.askedUs) {
            return;
        }
        const Json waitArgs = row.waitedFor.empty() ? Json::object() : Json({{"waited_for", row.waitedFor}});
        AddSlice("waiting", "wait", thread, 0, *row.askedUs, waitArgs);
        const int64_t over = row.upUs.value_or(row.ends.empty() ? timeline_.endUs : row.ends.back().atUs);
        AddSlice(row.name, "start", thread, *row.askedUs, over,
                 {{"state", DescribeState(row)}, {"wave", row.wave}, {"pid", row.pid}, {"tries", row.tries}});
        const int64_t running = row.runningUs.value_or(over);
        const int64_t forked = row.forkedUs.value_or(running);
        AddSlice("to fork", "start", thread, *row.askedUs, std::min(forked, over), Json::object());
        AddSlice("to run", "start", thread, std::min(forked, over), std::min(running, over), Json::object());
        if (row.reports && row.runningUs) {
            AddSlice("to ready", "start", thread, running, over, Json::object());
        }
    }

    void AddFlow(size_t link) {
        const size_t from = timeline_.chain[link - 1];
        const size_t to = timeline_.chain[link];
        AddFlowEnd("s", link, from + 1, *timeline_.rows[from].upUs);
        AddFlowEnd("f", link, to + 1, *timeline_.rows[to].askedUs);
    }

    /// Both bind to the slice around their time, also at its very end.
    void AddFlowEnd(const char* phase, size_t link, size_t thread, int64_t us) {
        Json event = Event(phase, "critical chain", thread, us);
        event["cat"] = "critical";
        event["id"] = link;
        event["bp"] = "e";
        events_.push_back(std::move(event));
    }

    const Timeline& timeline_;
    Json events_ = Json::array();
};

}  // namespace

std::string WriteTrace(const Timeline& timeline) {
    return TraceWriter(timeline).Write();
}

}  // namespace Ssctl
