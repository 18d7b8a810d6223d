// The timeline as trace events.
#include "tools/ssctl/timeline/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "tests/tools/timeline_kit.h"

using namespace Ssctl;
using Json = nlohmann::json;
using testing::ElementsAre;

namespace {

Json EventsOf(const Timeline& timeline) {
    const Json document = Json::parse(WriteTrace(timeline));
    EXPECT_EQ(document.at("displayTimeUnit"), "ms");
    EXPECT_TRUE(document.at("otherData").is_object());
    EXPECT_TRUE(document.at("traceEvents").is_array());
    return document.at("traceEvents");
}

/// Empty when the event has what its phase needs, otherwise what is wrong.
std::string FaultOf(const Json& event) {
    const std::string phase = event.at("ph");
    if (!event.at("name").is_string() || !event.at("pid").is_number_integer() || !event.at("tid").is_number_integer()) {
        return "name, pid or tid";
    }
    if (phase == "M") {
        const std::map<std::string, std::string> args = {
            {"process_name", "name"}, {"thread_name", "name"}, {"thread_sort_index", "sort_index"}};
        const auto found = args.find(event.at("name"));
        return found != args.end() && event.at("args").contains(found->second) ? "" : "metadata";
    }
    if (!event.at("ts").is_number_integer() || event.at("ts") < 0 || !event.at("cat").is_string()) {
        return "ts or cat";
    }
    if (phase == "X") {
        return event.at("dur").is_number_integer() && event.at("dur") >= 0 && event.at("args").is_object() ? "" : "dur";
    }
    if (phase == "s" || phase == "f") {
        return event.at("id").is_number_integer() && event.at("bp") == "e" ? "" : "id or bp";
    }
    return "phase " + phase;
}

/// "thread name from +duration" of each slice of a thread, relative to the begin.
std::vector<std::string> SlicesOf(const Json& events, int64_t begin, size_t thread) {
    std::vector<std::string> slices;
    for (const Json& event : events) {
        if (event["ph"] == "X" && event["tid"] == thread) {
            slices.push_back(event["name"].get<std::string>() + " " +
                             std::to_string(event["ts"].get<int64_t>() - begin) + " +" +
                             std::to_string(event["dur"].get<int64_t>()));
        }
    }
    return slices;
}

/// Some slice of the thread holds the time.
bool IsInsideASlice(const Json& events, const Json& flow) {
    for (const Json& event : events) {
        if (event["ph"] == "X" && event["tid"] == flow["tid"] && event["ts"] <= flow["ts"] &&
            flow["ts"] <= event["ts"].get<int64_t>() + event["dur"].get<int64_t>()) {
            return true;
        }
    }
    return false;
}

const std::vector<std::string> kFailure = {"0 came owner=g pid=1 uid=0",
                                           "0 manifest app=a boot=1 reports=1 depends=",
                                           "0 manifest app=b boot=1 reports=0 depends=a",
                                           "0 manifest app=c boot=1 reports=0 depends=",
                                           "1 asked app=a request=1 restart=0",
                                           "2 asked app=c request=1 restart=0",
                                           "3 forked app=a pid=5",
                                           "5 exited app=a pid=5 code=1 signal=0",
                                           "9 services state=2"};

}  // namespace

TEST(TimelineTrace, IsValidInEachOfItsEvents) {
    for (const auto& lines : {kSmallBoot, kFailure}) {
        const Json events = EventsOf(TimelineOf(lines));
        EXPECT_GT(events.size(), 4U);
        for (const Json& event : events) {
            EXPECT_EQ(FaultOf(event), "") << event;
        }
    }
}

TEST(TimelineTrace, NamesTheGroupAndAThreadForEachApplication) {
    const Json events = EventsOf(TimelineOf(kSmallBoot));
    std::vector<std::string> names;
    for (const Json& event : events) {
        if (event["ph"] == "M" && event["args"].contains("name")) {
            names.push_back(std::to_string(event["tid"].get<int>()) + " " + event["args"]["name"].get<std::string>());
        }
    }
    EXPECT_THAT(names, ElementsAre("0 Boot of robot_owner", "1 clock", "2 power", "3 map", "4 lidar"));
}

TEST(TimelineTrace, ShowsEachPartOfAStartOnTheClockOfTheKernel) {
    const Timeline timeline = TimelineOf(kSmallBoot);
    const Json events = EventsOf(timeline);
    EXPECT_EQ(timeline.beginMonotonicUs, 100000000);
    EXPECT_THAT(SlicesOf(events, 100000000, 1),
                ElementsAre("waiting 0 +10000", "clock 10000 +70000", "to fork 10000 +1000", "to run 11000 +1500",
                            "to ready 12500 +67500"));
    EXPECT_THAT(SlicesOf(events, 100000000, 4),
                ElementsAre("waiting 0 +81500", "lidar 81500 +18500", "to fork 81500 +500", "to run 82000 +18000"));
}

TEST(TimelineTrace, OfAFailedStartEndsWithIt) {
    const Json events = EventsOf(TimelineOf(kFailure));
    EXPECT_THAT(SlicesOf(events, 100000000, 1),
                ElementsAre("waiting 0 +1000", "a 1000 +4000", "to fork 1000 +2000", "to run 3000 +2000"));
    EXPECT_THAT(SlicesOf(events, 100000000, 2),
                ElementsAre("waiting 0 +2000", "c 2000 +7000", "to fork 2000 +7000", "to run 9000 +0"));
    EXPECT_THAT(SlicesOf(events, 100000000, 3), ElementsAre()) << "nobody asked for it";
}

TEST(TimelineTrace, HasAFlowForEachLinkOfTheCriticalChain) {
    const Json events = EventsOf(TimelineOf(kSmallBoot));
    std::vector<Json> flows;
    for (const Json& event : events) {
        if (event.value("cat", "") == "critical") {
            flows.push_back(event);
            EXPECT_TRUE(IsInsideASlice(events, event)) << event;
        }
    }
    ASSERT_EQ(flows.size(), 2U);
    EXPECT_EQ(flows[0]["ph"], "s");
    EXPECT_EQ(flows[0]["tid"], 1);
    EXPECT_EQ(flows[0]["ts"], 100080000);
    EXPECT_EQ(flows[1]["ph"], "f");
    EXPECT_EQ(flows[1]["tid"], 4);
    EXPECT_EQ(flows[1]["ts"], 100081500);
    EXPECT_EQ(flows[0]["id"], flows[1]["id"]);
    EXPECT_EQ(flows[0]["name"], flows[1]["name"]);
}

TEST(TimelineTrace, KeepsNamesThatAreNoText) {
    const Json events =
        EventsOf(TimelineOf({"0 came owner=g pid=1 uid=0", "0 manifest app=a%FF boot=1 reports=0 depends=",
                             "1 asked app=a%FF request=1 restart=0", "2 running app=a%FF pid=5"}));
    EXPECT_EQ(events.at(1).at("args").at("name"), "a\ufffd");
}
