#include "tests/tools/timeline_kit.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Ssctl;

const std::vector<std::string> kSmallBoot = {
    "0 came owner=robot_owner pid=4711 uid=0",
    "2 loaded path=/etc/robot good=1",
    "2 manifest app=clock boot=1 reports=1 depends=",
    "2 manifest app=lidar boot=1 reports=0 depends=clock,power",
    "2 manifest app=map boot=1 reports=0 depends=power",
    "2 manifest app=nav boot=0 reports=0 depends=lidar",
    "2 manifest app=power boot=1 reports=0 depends=",
    "10 asked app=clock request=1 restart=0",
    "10 asked app=power request=1 restart=0",
    "11 forked app=clock pid=101",
    "12.5 running app=clock pid=101",
    "13 forked app=power pid=102",
    "14 running app=power pid=102",
    "15 asked app=map request=2 restart=0",
    "16 forked app=map pid=103",
    "17.25 running app=map pid=103",
    "80 ready app=clock pid=101",
    "81.5 asked app=lidar request=3 restart=0",
    "82 forked app=lidar pid=104",
    "100 running app=lidar pid=104",
    "101 services state=2",
    "5000 asked app=nav request=4 restart=0",
    "5001 forked app=nav pid=105",
    "5003 running app=nav pid=105",
};

namespace {

double TimeOf(const std::string& line) {
    return std::stod(line.substr(0, line.find(' ')));
}

}  // namespace

std::string RecordText(std::vector<std::string> lines, uint64_t firstSerial) {
    std::stable_sort(lines.begin(), lines.end(),
                     [](const std::string& left, const std::string& right) { return TimeOf(left) < TimeOf(right); });
    std::string text = "procmgr-timeline 1 boot-id\n";
    for (const std::string& line : lines) {
        const auto us = static_cast<int64_t>(TimeOf(line) * 1000 + 0.5);
        text += std::to_string(firstSerial++) + " " + std::to_string(100000000 + us) + " " +
                std::to_string(1772600767890000 + us) + line.substr(line.find(' ')) + "\n";
    }
    return text;
}

TimelineRecord RecordOf(const std::vector<std::string>& lines) {
    ProcMgr::Timeline::RecordPart part;
    ProcMgr::Timeline::RecordFault fault;
    EXPECT_TRUE(ReadPart(RecordText(lines), part, fault)) << fault.line << ": " << fault.text;
    TimelineRecord record;
    record.events = std::move(part.events);
    return record;
}

Timeline TimelineOf(const std::vector<std::string>& lines, Span span) {
    const auto timeline = MakeTimeline(RecordOf(lines), span);
    EXPECT_TRUE(timeline) << timeline.What();
    return timeline ? *timeline : Timeline();
}

const TimelineRow& RowOf(const Timeline& timeline, const std::string& name) {
    static const TimelineRow kNone;
    const auto found = std::find_if(timeline.rows.begin(), timeline.rows.end(),
                                    [&](const TimelineRow& row) { return row.name == name; });
    EXPECT_NE(found, timeline.rows.end()) << name;
    return found == timeline.rows.end() ? kNone : *found;
}

std::string ChainOf(const Timeline& timeline) {
    std::string names;
    for (const size_t at : timeline.chain) {
        names += (names.empty() ? "" : " ") + timeline.rows[at].name;
    }
    return names;
}
