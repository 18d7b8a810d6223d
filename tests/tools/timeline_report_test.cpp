// The timeline as a table and as a document.
#include "tools/ssctl/timeline/timeline_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/tools/json_schema.h"
#include "tests/tools/timeline_kit.h"
#include "tools/ssctl/timeline/timeline_texts.h"

using namespace Ssctl;
using testing::HasSubstr;

namespace {

nlohmann::json DocumentOf(const Timeline& timeline) {
    const Outcome outcome = ReportTimeline(timeline);
    nlohmann::json document = nlohmann::json::parse(RenderDocument({"timeline", "", "/run/procmgr/timeline"}, outcome));
    std::ifstream file(SSCTL_SCHEMA_FILE);
    EXPECT_EQ(JsonSchema(nlohmann::json::parse(file)).Check(document), "");
    return document;
}

/// With everything that can go wrong.
const std::vector<std::string> kTroubles = {
    "0 came owner=g pid=1 uid=0",
    "0 manifest app=crash boot=1 reports=1 depends=",
    "0 manifest app=ghost boot=1 reports=0 depends=",
    "0 manifest app=good boot=1 reports=0 depends=",
    "0 manifest app=mute boot=1 reports=1 depends=",
    "0 manifest app=told boot=1 reports=1 depends=",
    "0 manifest app=user boot=1 reports=0 depends=ghost",
    "1 asked app=crash request=1 restart=0",
    "1 asked app=ghost request=1 restart=0",
    "1 asked app=good request=1 restart=0",
    "1 asked app=mute request=1 restart=0",
    "1 asked app=told request=1 restart=0",
    "2 forked app=crash pid=11",
    "3 running app=crash pid=11",
    "4 forked app=ghost pid=12",
    "5 failed app=ghost reason=2 detail=2",
    "6 forked app=good pid=13",
    "7 running app=good pid=13",
    "8 forked app=mute pid=14",
    "9 running app=mute pid=14",
    "10 forked app=told pid=15",
    "11 running app=told pid=15",
    "12 exited app=crash pid=11 code=0 signal=11",
    "13 asked app=crash request=2 restart=1",
    "14 forked app=crash pid=16",
    "15 running app=crash pid=16",
    "20.06 ready app=crash pid=16",
    "21 ending app=told",
    "22 exited app=told pid=15 code=0 signal=15",
    "23 exited app=good pid=13 code=0 signal=0",
    "60 services state=2",
};

}  // namespace

TEST(TimelineTable, TellsWhatCameUpWhenAndWhatItWaitedFor) {
    EXPECT_EQ(
        RenderText(ReportTimeline(TimelineOf(kSmallBoot)), false),
        "Boot of robot_owner at 2026-03-04 05:06:07.890 UTC: 4 of 4 applications came up within 100.0 ms, in 2 waves."
        " Times in ms.\n"
        "   WAVE  APPLICATION  ASKED     UP  TOOK  STATE  WAITED FOR\n"
        "*     1  clock         10.0   80.0  70.0  up     -\n"
        "      1  power         10.0   14.0   4.0  up     -\n"
        "      2  map           15.0   17.3   2.3  up     power\n"
        "*     2  lidar         81.5  100.0  18.5  up     clock\n"
        "\n"
        "The critical chain (*), 2 applications; what each took since the one before was up:\n"
        "APPLICATION  TO ASK  TO FORK  TO RUN  TO READY     UP\n"
        "clock          10.0      1.0     1.5      67.5   80.0\n"
        "lidar           1.5      0.5    18.0         -  100.0\n");
}

TEST(TimelineTable, TellsWhatWentWrong) {
    EXPECT_EQ(RenderText(ReportTimeline(TimelineOf(kTroubles)), false),
              "Boot of g at 2026-03-04 05:06:07.890 UTC: 2 of 6 applications came up within 20.1 ms, in 2 waves."
              " Times in ms.\n"
              "   WAVE  APPLICATION  ASKED    UP  TOOK  STATE                   WAITED FOR\n"
              "*     1  crash          1.0  20.1  19.1  up, 2 tries             -\n"
              "      1  ghost          1.0     -     -  failed: reason 2        -\n"
              "      1  good           1.0   7.0   6.0  up, ended: exit code 0  -\n"
              "      1  mute           1.0     -     -  not up                  -\n"
              "      1  told           1.0     -     -  stopped                 -\n"
              "      2  user             -     -     -  not asked for           ghost\n"
              "\n"
              "The critical chain (*), 1 application; what each took since the one before was up:\n"
              "APPLICATION  TO ASK  TO FORK  TO RUN  TO READY    UP\n"
              "crash           1.0     13.0     1.0       5.1  20.1\n");
}

TEST(TimelineTable, HasColourOnATerminal) {
    const std::string text = RenderText(ReportTimeline(TimelineOf(kTroubles)), true);
    EXPECT_THAT(text, HasSubstr("\x1b[33mnot up\x1b[0m"));
    EXPECT_THAT(text, HasSubstr("\x1b[31mfailed: reason 2\x1b[0m"));
    EXPECT_THAT(text, HasSubstr("\x1b[32mup, ended: exit code 0\x1b[0m"));
}

TEST(TimelineTable, WithoutAnythingThatCameUpHasNoChain) {
    const Timeline timeline = TimelineOf({"0 came owner=g pid=1 uid=0", "0 manifest app=a boot=1 reports=0 depends=",
                                          "1 asked app=a request=1 restart=0", "2 failed app=a reason=8 detail=0"});
    EXPECT_EQ(
        RenderText(ReportTimeline(timeline), false),
        "Boot of g at 2026-03-04 05:06:07.890 UTC: 0 of 1 application came up within 0.0 ms, in 1 wave. Times in ms.\n"
        "  WAVE  APPLICATION  ASKED  UP  TOOK  STATE             WAITED FOR\n"
        "     1  a              1.0   -     -  failed: reason 8  -\n");
}

TEST(TimelineTable, SaysWhenEventsAreNotKeptAnyMore) {
    Timeline timeline = TimelineOf(kSmallBoot, Span::LAST);
    timeline.missing = 17;
    const std::string text = RenderText(ReportTimeline(timeline), false);
    EXPECT_THAT(text,
                HasSubstr("Last start of robot_owner at 2026-03-04 05:06:12.890 UTC: 1 of 1 application came up"));
    EXPECT_THAT(
        text, HasSubstr("\nThe record lacks 17 events that are not kept any more; what they told is missing here.\n"));
}

TEST(TimelineDocument, HoldsAllOfIt) {
    EXPECT_EQ(DocumentOf(TimelineOf(kSmallBoot)), nlohmann::json::parse(R"({
"schema": 1, "command": "timeline", "path": "/run/procmgr/timeline", "ok": true, "exit_code": 0,
"timeline": {
  "owner": "robot_owner", "span": "boot", "begin_wall_us": 1772600767890000, "begin_monotonic_us": 100000000,
  "end_us": 100000, "missing_events": 0, "torn": false,
  "applications": [
    {"name": "clock", "state": "up", "wave": 1, "request": 1, "pid": 101, "tries": 1, "reports": true, "depends": [],
     "waited_for": null, "asked_us": 10000, "forked_us": 11000, "running_us": 12500, "up_us": 80000, "ends": []},
    {"name": "power", "state": "up", "wave": 1, "request": 1, "pid": 102, "tries": 1, "reports": false, "depends": [],
     "waited_for": null, "asked_us": 10000, "forked_us": 13000, "running_us": 14000, "up_us": 14000, "ends": []},
    {"name": "map", "state": "up", "wave": 2, "request": 2, "pid": 103, "tries": 1, "reports": false,
     "depends": ["power"], "waited_for": "power", "asked_us": 15000, "forked_us": 16000, "running_us": 17250,
     "up_us": 17250, "ends": []},
    {"name": "lidar", "state": "up", "wave": 2, "request": 3, "pid": 104, "tries": 1, "reports": false,
     "depends": ["clock", "power"], "waited_for": "clock", "asked_us": 81500, "forked_us": 82000, "running_us": 100000,
     "up_us": 100000, "ends": []}],
  "critical_chain": [
    {"name": "clock", "wait_us": 10000, "to_fork_us": 1000, "to_run_us": 1500, "to_ready_us": 67500},
    {"name": "lidar", "wait_us": 1500, "to_fork_us": 500, "to_run_us": 18000, "to_ready_us": 0}]}})"));
}

TEST(TimelineDocument, HasNullForWhatDidNotHappen) {
    const nlohmann::json document = DocumentOf(TimelineOf(kTroubles));
    const nlohmann::json user = document["timeline"]["applications"].at(5);
    EXPECT_EQ(user, nlohmann::json::parse(R"({"name": "user", "state": "not_asked", "wave": 2, "request": null,
        "pid": null, "tries": 0, "reports": false, "depends": ["ghost"], "waited_for": "ghost", "asked_us": null,
        "forked_us": null, "running_us": null, "up_us": null, "ends": []})"));
    EXPECT_EQ(document["timeline"]["applications"].at(0)["ends"],
              nlohmann::json::parse(R"([{"at_us": 12000, "abnormal": true, "how": "signal 11"}])"));
}

TEST(TimelineDocument, LinksOfTheChainTakeTheWholeTimeTogether) {
    for (const auto& lines : {kSmallBoot, kTroubles}) {
        const Timeline timeline = TimelineOf(lines);
        int64_t sum = 0;
        for (size_t link = 0; link < timeline.chain.size(); ++link) {
            const LinkTimes times = TimesOf(timeline, link);
            sum += times.waitUs + times.toForkUs + times.toRunUs + times.toReadyUs;
        }
        EXPECT_EQ(sum, LastUpUs(timeline));
    }
}

TEST(TimelineTexts, RoundMicroseconds) {
    EXPECT_EQ(Milliseconds(0), "0.0");
    EXPECT_EQ(Milliseconds(49), "0.0");
    EXPECT_EQ(Milliseconds(50), "0.1");
    EXPECT_EQ(Milliseconds(999950), "1000.0");
    EXPECT_EQ(Milliseconds(-5), "0.0");
    EXPECT_EQ(WallTime(0), "1970-01-01 00:00:00.000 UTC");
    EXPECT_EQ(Count(1, "wave"), "1 wave");
    EXPECT_EQ(Count(0, "wave"), "0 waves");
}
