#include "tools/ssctl/timeline/timeline_report.h"

#include <algorithm>
#include <utility>

#include "tools/ssctl/timeline/timeline_texts.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;

std::string TimeCell(const std::optional<int64_t>& us) {
    return us ? Milliseconds(*us) : "-";
}

std::string Dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

Tone ToneOf(const TimelineRow& row) {
    const bool hasCrashed =
        std::any_of(row.ends.begin(), row.ends.end(), [](const RowEnd& end) { return end.isAbnormal; });
    if (row.state == RowState::UP && !hasCrashed) {
        return Tone::GOOD;
    }
    return row.state == RowState::STARTING ? Tone::BUSY : Tone::BAD;
}

Table MakeTable(const Timeline& timeline) {
    Table table;
    table.columns = {{""},
                     {"WAVE", Align::RIGHT},
                     {"APPLICATION"},
                     {"ASKED", Align::RIGHT},
                     {"UP", Align::RIGHT},
                     {"TOOK", Align::RIGHT},
                     {"STATE"},
                     {"WAITED FOR"}};
    for (size_t at = 0; at < timeline.rows.size(); ++at) {
        const TimelineRow& row = timeline.rows[at];
        const bool isCritical = std::find(timeline.chain.begin(), timeline.chain.end(), at) != timeline.chain.end();
        table.rows.push_back({{isCritical ? "*" : ""},
                              {std::to_string(row.wave)},
                              {row.name},
                              {TimeCell(row.askedUs)},
                              {TimeCell(row.upUs)},
                              {row.upUs ? Milliseconds(*row.upUs - *row.askedUs) : "-"},
                              {DescribeState(row), ToneOf(row)},
                              {Dash(row.waitedFor)}});
    }
    return table;
}

Section MakeChain(const Timeline& timeline) {
    Section section;
    section.sentence = "The critical chain (*), " + Count(timeline.chain.size(), "application") +
                       "; what each took since the one before was up:";
    section.table.columns = {{"APPLICATION"},          {"TO ASK", Align::RIGHT},   {"TO FORK", Align::RIGHT},
                             {"TO RUN", Align::RIGHT}, {"TO READY", Align::RIGHT}, {"UP", Align::RIGHT}};
    for (size_t link = 0; link < timeline.chain.size(); ++link) {
        const TimelineRow& row = timeline.rows[timeline.chain[link]];
        const LinkTimes times = TimesOf(timeline, link);
        section.table.rows.push_back({{row.name},
                                      {Milliseconds(times.waitUs)},
                                      {Milliseconds(times.toForkUs)},
                                      {Milliseconds(times.toRunUs)},
                                      {row.reports ? Milliseconds(times.toReadyUs) : "-"},
                                      {TimeCell(row.upUs)}});
    }
    return section;
}

Section Remark(const Timeline& timeline) {
    Section section;
    section.sentence = "The record lacks " + Count(timeline.missing, "event") +
                       " that are not kept any more; what they told is missing here.";
    return section;
}

Json OrNull(const std::optional<int64_t>& us) {
    return us ? Json(*us) : Json();
}

Json OrNull(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json EndsOf(const TimelineRow& row) {
    Json ends = Json::array();
    for (const RowEnd& end : row.ends) {
        ends.push_back({{"at_us", end.atUs}, {"abnormal", end.isAbnormal}, {"how", end.how}});
    }
    return ends;
}

Json DocumentOf(const TimelineRow& row) {
    return {{"name", row.name},
            {"state", StateName(row.state)},
            {"wave", row.wave},
            {"request", row.request == 0 ? Json() : Json(row.request)},
            {"pid", row.pid == 0 ? Json() : Json(row.pid)},
            {"tries", row.tries},
            {"reports", row.reports},
            {"depends", row.depends},
            {"waited_for", OrNull(row.waitedFor)},
            {"asked_us", OrNull(row.askedUs)},
            {"forked_us", OrNull(row.forkedUs)},
            {"running_us", OrNull(row.runningUs)},
            {"up_us", OrNull(row.upUs)},
            {"ends", EndsOf(row)}};
}

Json ChainOf(const Timeline& timeline) {
    Json chain = Json::array();
    for (size_t link = 0; link < timeline.chain.size(); ++link) {
        const LinkTimes times = TimesOf(timeline, link);
        chain.push_back({{"name", timeline.rows[timeline.chain[link]].name},
                         {"wait_us", times.waitUs},
                         {"to_fork_us", times.toForkUs},
                         {"to_run_us", times.toRunUs},
                         {"to_ready_us", times.toReadyUs}});
    }
    return chain;
}

}  // namespace

Outcome ReportTimeline(const Timeline& timeline) {
    Outcome outcome;
    outcome.sentence = TimelineName(timeline) + " at " + WallTime(timeline.beginWallUs) + ": " + Summarize(timeline) +
                       ". Times in ms.";
    outcome.table = MakeTable(timeline);
    if (!timeline.chain.empty()) {
        outcome.sections.push_back(MakeChain(timeline));
    }
    if (timeline.missing != 0) {
        outcome.sections.push_back(Remark(timeline));
    }
    Json applications = Json::array();
    for (const TimelineRow& row : timeline.rows) {
        applications.push_back(DocumentOf(row));
    }
    outcome.members["timeline"] = {{"owner", timeline.owner},
                                   {"span", SpanName(timeline.span)},
                                   {"begin_wall_us", timeline.beginWallUs},
                                   {"begin_monotonic_us", timeline.beginMonotonicUs},
                                   {"end_us", timeline.endUs},
                                   {"missing_events", timeline.missing},
                                   {"torn", timeline.isTorn},
                                   {"applications", std::move(applications)},
                                   {"critical_chain", ChainOf(timeline)}};
    return outcome;
}

}  // namespace Ssctl
