// What a record says about waves, waiting and the critical chain.
#include "tools/ssctl/timeline/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/timeline_kit.h"

using namespace Ssctl;
using testing::ElementsAre;
using testing::Optional;

namespace {

using Lines = std::vector<std::string>;

/// "a 1", "b 2": names and waves, in the order of the rows.
std::vector<std::string> Waves(const Timeline& timeline) {
    std::vector<std::string> waves;
    for (const TimelineRow& row : timeline.rows) {
        waves.push_back(row.name + " " + std::to_string(row.wave));
    }
    return waves;
}

/// The manifests of "a", "b after a", ..., which are all to be started at boot; "a*" reports.
Lines Group(const Lines& apps) {
    Lines lines = {"0 came owner=g pid=1 uid=0"};
    for (std::string app : apps) {
        const size_t after = app.find(" after ");
        const std::string depends = after == std::string::npos ? "" : app.substr(after + 7);
        app.resize(std::min(app.size(), after));
        const bool reports = app.back() == '*';
        app.resize(app.size() - (reports ? 1 : 0));
        lines.push_back("0 manifest app=" + app + " boot=1 reports=" + (reports ? "1" : "0") + " depends=" + depends);
    }
    return lines;
}

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Asked for at one time, running one millisecond later.
Lines Up(const std::string& app, int ms) {
    const std::string at = std::to_string(ms);
    return {at + " asked app=" + app + " request=1 restart=0", at + ".5 forked app=" + app + " pid=7",
            std::to_string(ms + 1) + " running app=" + app + " pid=7"};
}

std::string ProblemOf(const Lines& lines, Span span = Span::BOOT) {
    const auto timeline = MakeTimeline(RecordOf(lines), span);
    EXPECT_FALSE(timeline);
    return timeline.What();
}

}  // namespace

TEST(TimelineOfABoot, TellsWhenEachWasAskedForForkedExecutedAndUp) {
    const Timeline timeline = TimelineOf(kSmallBoot);
    EXPECT_EQ(timeline.owner, "robot_owner");
    EXPECT_EQ(timeline.beginMonotonicUs, 100000000);
    EXPECT_EQ(timeline.beginWallUs, 1772600767890000);
    const TimelineRow& clock = RowOf(timeline, "clock");
    EXPECT_EQ(clock.state, RowState::UP);
    EXPECT_EQ(clock.request, 1U);
    EXPECT_EQ(clock.pid, 101U);
    EXPECT_EQ(clock.tries, 1U);
    EXPECT_THAT(clock.askedUs, Optional(10000));
    EXPECT_THAT(clock.forkedUs, Optional(11000));
    EXPECT_THAT(clock.runningUs, Optional(12500));
    EXPECT_THAT(clock.upUs, Optional(80000)) << "it reports";
    EXPECT_THAT(RowOf(timeline, "lidar").upUs, Optional(100000));
    EXPECT_EQ(timeline.endUs, 100000);
    EXPECT_EQ(LastUpUs(timeline), 100000);
    EXPECT_EQ(CountUp(timeline), 4U);
}

TEST(TimelineOfABoot, HasARowForEachApplicationOfTheBootByWaveAndRequest) {
    const Timeline timeline = TimelineOf(kSmallBoot);
    EXPECT_THAT(Waves(timeline), ElementsAre("clock 1", "power 1", "map 2", "lidar 2"));
    EXPECT_EQ(CountWaves(timeline), 2U);
}

TEST(TimelineOfABoot, NamesTheDependencyThatCameUpLastAsTheOneWaitedFor) {
    const Timeline timeline = TimelineOf(kSmallBoot);
    EXPECT_EQ(RowOf(timeline, "lidar").waitedFor, "clock");
    EXPECT_EQ(RowOf(timeline, "map").waitedFor, "power");
    EXPECT_EQ(RowOf(timeline, "power").waitedFor, "");
    EXPECT_EQ(ChainOf(timeline), "clock lidar");
}

TEST(TimelineOfABoot, OfAChainIsTheChain) {
    const Lines apps = {"e after d", "d after c", "c after b", "b after a", "a"};
    Lines lines = Group(apps);
    for (const auto& [app, ms] :
         std::vector<std::pair<std::string, int>>{{"a", 1}, {"b", 3}, {"c", 5}, {"d", 7}, {"e", 9}}) {
        lines = lines + Up(app, ms);
    }
    const Timeline timeline = TimelineOf(lines);
    EXPECT_EQ(ChainOf(timeline), "a b c d e");
    EXPECT_THAT(Waves(timeline), ElementsAre("a 1", "b 2", "c 3", "d 4", "e 5"));
}

TEST(TimelineOfABoot, OfAWaveIsTheLongestWayToAnApplicationThatWaitsForNothing) {
    const Timeline timeline =
        TimelineOf(Group({"a", "b after a", "c after a,b", "d"}) + Up("a", 1) + Up("d", 1) + Up("b", 3) + Up("c", 5));
    EXPECT_THAT(Waves(timeline), ElementsAre("a 1", "d 1", "b 2", "c 3"));
}

TEST(TimelineOfABoot, TakesTheFirstNameOfDependenciesThatCameUpAtOnce) {
    const Timeline timeline =
        TimelineOf(Group({"right", "left", "top after right,left"}) +
                   Lines{"1 asked app=left request=1 restart=0", "1 asked app=right request=1 restart=0",
                         "2 running app=right pid=1", "2 running app=left pid=2"} +
                   Up("top", 3));
    EXPECT_EQ(RowOf(timeline, "top").waitedFor, "left");
    EXPECT_EQ(ChainOf(timeline), "left top");
}

TEST(TimelineOfABoot, EndsItsChainWithTheLastRowOfThoseThatCameUpLast) {
    const Timeline timeline = TimelineOf(
        Group({"a", "b", "c"}) + Lines{"1 asked app=c request=1 restart=0", "1.5 asked app=b request=1 restart=0",
                                       "1.6 asked app=a request=1 restart=0", "1.7 running app=a pid=1",
                                       "2 running app=b pid=2", "2 running app=c pid=3"});
    EXPECT_EQ(ChainOf(timeline), "b");
}

TEST(TimelineOfABoot, CountsWhatComesUpInTheSameMicrosecondAsBefore) {
    const Timeline timeline =
        TimelineOf(Group({"a", "b after a"}) + Lines{"1 asked app=a request=1 restart=0", "2 running app=a pid=1",
                                                     "2 asked app=b request=2 restart=0", "2 running app=b pid=2"});
    EXPECT_EQ(RowOf(timeline, "b").waitedFor, "a");
    EXPECT_EQ(ChainOf(timeline), "a b");
}

TEST(TimelineOfABoot, FollowsRestartsUntilItCameUp) {
    const Timeline timeline = TimelineOf(
        Group({"a*"}) + Lines{"1 asked app=a request=1 restart=0", "2 forked app=a pid=5", "3 running app=a pid=5",
                              "9 exited app=a pid=5 code=0 signal=11", "10 asked app=a request=2 restart=1",
                              "11 forked app=a pid=6", "12 running app=a pid=6", "20 ready app=a pid=6"});
    const TimelineRow& row = RowOf(timeline, "a");
    EXPECT_EQ(row.state, RowState::UP);
    EXPECT_EQ(row.tries, 2U);
    EXPECT_EQ(row.request, 1U);
    EXPECT_THAT(row.askedUs, Optional(1000));
    EXPECT_THAT(row.forkedUs, Optional(11000));
    EXPECT_THAT(row.upUs, Optional(20000));
    ASSERT_EQ(row.ends.size(), 1U);
    EXPECT_EQ(row.ends[0].how, "signal 11");
    EXPECT_EQ(row.ends[0].atUs, 9000);
    EXPECT_TRUE(row.ends[0].isAbnormal);
}

TEST(TimelineOfABoot, StillCountsAsUpWhatEndsLater) {
    const Timeline timeline = TimelineOf(
        Group({"a"}) + Up("a", 1) +
        Lines{"5 exited app=a pid=7 code=3 signal=0", "6 asked app=a request=2 restart=1", "7 forked app=a pid=8",
              "8 running app=a pid=8", "9 services state=2", "99 exited app=a pid=8 code=3 signal=0"});
    const TimelineRow& row = RowOf(timeline, "a");
    EXPECT_EQ(row.state, RowState::UP);
    EXPECT_THAT(row.upUs, Optional(2000));
    EXPECT_EQ(row.tries, 1U);
    ASSERT_EQ(row.ends.size(), 1U) << "and what ends after the boot is no part of it";
    EXPECT_EQ(row.ends[0].how, "exit code 3");
}

TEST(TimelineOfABoot, CountsNoEndThatSomebodyAskedForAsAbnormal) {
    const Timeline timeline =
        TimelineOf(Group({"a", "b"}) + Up("a", 1) + Up("b", 1) +
                   Lines{"5 ending app=a", "6 exited app=a pid=7 code=0 signal=15", "7 asked app=b request=2 restart=1",
                         "8 exited app=b pid=7 code=0 signal=15", "9 forked app=b pid=9", "10 running app=b pid=9"});
    EXPECT_FALSE(RowOf(timeline, "a").ends.at(0).isAbnormal);
    EXPECT_FALSE(RowOf(timeline, "b").ends.at(0).isAbnormal);
}

TEST(TimelineOfABoot, KeepsFailedStartsAndThoseWhoWaitForThem) {
    const Timeline timeline =
        TimelineOf(Group({"ghost", "user after ghost,other", "other", "lost after nobody"}) + Up("other", 1) +
                   Lines{"2 asked app=ghost request=1 restart=0", "3 forked app=ghost pid=3",
                         "4 failed app=ghost reason=2 detail=2", "5 services state=2"});
    EXPECT_EQ(RowOf(timeline, "ghost").state, RowState::FAILED);
    EXPECT_EQ(RowOf(timeline, "ghost").ends.at(0).how, "reason 2");
    EXPECT_EQ(RowOf(timeline, "user").state, RowState::NOT_ASKED);
    EXPECT_EQ(RowOf(timeline, "user").waitedFor, "ghost");
    EXPECT_EQ(RowOf(timeline, "lost").waitedFor, "nobody");
    EXPECT_EQ(ChainOf(timeline), "other");
    EXPECT_EQ(CountUp(timeline), 1U);
    EXPECT_EQ(timeline.endUs, 4000);
}

TEST(TimelineOfABoot, KnowsWhatNeverCameUpUntilTheBootIsOver) {
    const Timeline timeline = TimelineOf(Group({"slow*", "a"}) + Up("a", 1) +
                                         Lines{"2 asked app=slow request=1 restart=0", "3 forked app=slow pid=3",
                                               "4 running app=slow pid=3", "4500 services state=2"});
    EXPECT_EQ(RowOf(timeline, "slow").state, RowState::STARTING);
    EXPECT_EQ(RowOf(timeline, "slow").upUs, std::nullopt);
    EXPECT_EQ(timeline.endUs, 4500000);
    EXPECT_EQ(ChainOf(timeline), "a");
}

TEST(TimelineOfABoot, StillFollowsWhatWasUnderWayWhenItWasOver) {
    const Timeline timeline =
        TimelineOf(Group({"slow*"}) + Lines{"2 asked app=slow request=1 restart=0", "4 running app=slow pid=3",
                                            "4500 services state=2", "6000 ready app=slow pid=3"});
    EXPECT_THAT(RowOf(timeline, "slow").upUs, Optional(6000000));
    EXPECT_EQ(timeline.endUs, 6000000);
}

TEST(TimelineOfABoot, TellsWhatWasEndedBeforeItCameUp) {
    const Timeline timeline =
        TimelineOf(Group({"slow*"}) + Lines{"2 asked app=slow request=1 restart=0", "3 forked app=slow pid=3",
                                            "4 running app=slow pid=3", "5 ending app=slow",
                                            "6 exited app=slow pid=3 code=0 signal=15"});
    EXPECT_EQ(RowOf(timeline, "slow").state, RowState::STOPPED);
    EXPECT_EQ(ChainOf(timeline), "");
    EXPECT_EQ(LastUpUs(timeline), 0);
}

TEST(TimelineOfABoot, GoesOnWhenAStartReplacesOneThatEnds) {
    const Timeline timeline = TimelineOf(
        Group({"slow*"}) + Lines{"2 asked app=slow request=1 restart=0", "3 forked app=slow pid=3",
                                 "4 running app=slow pid=3", "5 ending app=slow",
                                 "6 asked app=slow request=2 restart=0", "7 exited app=slow pid=3 code=0 signal=15",
                                 "8 forked app=slow pid=4", "9 running app=slow pid=4", "10 ready app=slow pid=4"});
    EXPECT_THAT(RowOf(timeline, "slow").upUs, Optional(10000));
    EXPECT_EQ(RowOf(timeline, "slow").pid, 4U);
}

TEST(TimelineOfABoot, KnowsWhatRanAlready) {
    const Timeline timeline =
        TimelineOf(Group({"a"}) + Lines{"2 asked app=a request=1 restart=0", "2.25 running app=a pid=3"});
    const TimelineRow& row = RowOf(timeline, "a");
    EXPECT_EQ(row.state, RowState::UP);
    EXPECT_EQ(row.tries, 0U);
    EXPECT_EQ(row.forkedUs, std::nullopt);
    EXPECT_THAT(row.upUs, Optional(2250));
}

TEST(TimelineOfABoot, EndsWhenSomethingIsAskedForAfterAPauseOfASecond) {
    const Lines boot = Group({"a", "b after a"}) + Up("a", 1);
    const Timeline late = TimelineOf(boot + Up("b", 1002));
    EXPECT_EQ(RowOf(late, "b").state, RowState::NOT_ASKED);
    const Timeline inTime = TimelineOf(boot + Up("b", 1001));
    EXPECT_EQ(RowOf(inTime, "b").state, RowState::UP);
}

TEST(TimelineOfABoot, HasNoPauseWhileSomethingIsUnderWay) {
    const Lines boot = Group({"a*", "b"}) + Lines{"1 asked app=a request=1 restart=0", "2 running app=a pid=3"};
    EXPECT_EQ(RowOf(TimelineOf(boot + Up("b", 60000)), "b").state, RowState::UP);
    EXPECT_EQ(RowOf(TimelineOf(boot + Up("b", 70000)), "b").state, RowState::NOT_ASKED) << "it is stuck";
}

TEST(TimelineOfABoot, BeginsWithTheFirstRequestWhenTheBeginIsNotKept) {
    const Timeline timeline = TimelineOf(Lines{"50 manifest app=a boot=1 reports=0 depends="} + Up("a", 60));
    EXPECT_THAT(RowOf(timeline, "a").askedUs, Optional(0));
    EXPECT_EQ(timeline.owner, "");
}

TEST(TimelineOfABoot, SurvivesACircleOfDependencies) {
    const Timeline timeline = TimelineOf(Group({"a after b", "b after a", "c after a"}) + Up("a", 1) + Up("b", 1));
    EXPECT_EQ(timeline.rows.size(), 3U);
    EXPECT_EQ(ChainOf(timeline), "b");
    const Timeline atOnce =
        TimelineOf(Group({"a after b", "b after a"}) +
                   Lines{"1 running app=a pid=1", "1 asked app=a request=1 restart=0",
                         "1 asked app=b request=1 restart=0", "1 running app=a pid=1", "1 running app=b pid=1"});
    EXPECT_EQ(ChainOf(atOnce), "a b");
}

TEST(TimelineOfABoot, IsNoneWithoutARequestOrWithoutBootApplications) {
    EXPECT_EQ(ProblemOf({}), "the owner has not asked for any start yet");
    EXPECT_EQ(ProblemOf(Group({"a"})), "the owner has not asked for any start yet");
    EXPECT_EQ(ProblemOf(Lines{"0 manifest app=a boot=0 reports=0 depends="} + Up("a", 1)),
              "no application is to be started at boot");
}

TEST(TimelineOfTheLastStart, HasAllThatWasAskedForSinceTheLastPause) {
    const Timeline timeline = TimelineOf(kSmallBoot, Span::LAST);
    EXPECT_THAT(Waves(timeline), ElementsAre("nav 1")) << "lidar ran before";
    EXPECT_THAT(RowOf(timeline, "nav").askedUs, Optional(0));
    EXPECT_THAT(RowOf(timeline, "nav").upUs, Optional(3000));
    EXPECT_EQ(timeline.beginWallUs, 1772600767890000 + 5000000);
}

TEST(TimelineOfTheLastStart, IsTheBootWhenThereWasNoOther) {
    EXPECT_THAT(Waves(TimelineOf(Group({"a", "b after a"}) + Up("a", 1) + Up("b", 3), Span::LAST)),
                ElementsAre("a 1", "b 2"));
}

TEST(TimelineOfTheLastStart, TakesTheDependenciesOfAnInstanceFromItsTemplate) {
    const Timeline timeline = TimelineOf(
        Lines{"0 manifest app=cam boot=0 reports=1 depends=clock", "0 manifest app=clock boot=0 reports=0 depends="} +
            Up("clock", 1) + Up("cam@left", 3) + Lines{"9 ready app=cam@left pid=7"},
        Span::LAST);
    EXPECT_THAT(Waves(timeline), ElementsAre("clock 1", "cam@left 2"));
    EXPECT_THAT(RowOf(timeline, "cam@left").upUs, Optional(8000));
}

TEST(TimelineOfTheLastStart, OfARestartIgnoresTheEndOfThePredecessor) {
    const Timeline timeline =
        TimelineOf(Group({"a"}) + Up("a", 1) +
                       Lines{"5000 asked app=a request=2 restart=1", "5010 exited app=a pid=7 code=1 signal=0",
                             "5011 forked app=a pid=8", "5012 running app=a pid=8"},
                   Span::LAST);
    const TimelineRow& row = RowOf(timeline, "a");
    EXPECT_EQ(row.state, RowState::UP);
    EXPECT_TRUE(row.ends.empty());
    EXPECT_THAT(row.upUs, Optional(12000));
}

TEST(TimelineOfTheLastStart, FollowsWavesOverSlowApplications) {
    const Timeline timeline = TimelineOf(
        Group({"a", "b*", "c after b"}) + Up("a", 1) +
            Lines{"5000 asked app=b request=2 restart=0", "5001 running app=b pid=8", "9000 ready app=b pid=8"} +
            Up("c", 9001),
        Span::LAST);
    EXPECT_THAT(Waves(timeline), ElementsAre("b 1", "c 2"));
    EXPECT_EQ(ChainOf(timeline), "b c");
}

TEST(TimelineOfALargeGroup, IsMadeInAMoment) {
    Lines apps;
    for (int at = 0; at < 3000; ++at) {
        const std::string name = "a" + std::to_string(at);
        apps.push_back(at == 0 ? name : name + " after a" + std::to_string(at - 1));
    }
    Lines lines = Group(apps);
    for (int at = 0; at < 3000; ++at) {
        const Lines up = Up("a" + std::to_string(at), 2 * at);
        lines.insert(lines.end(), up.begin(), up.end());
    }
    const Timeline timeline = TimelineOf(lines);
    EXPECT_EQ(CountWaves(timeline), 3000U);
    EXPECT_EQ(timeline.chain.size(), 3000U);
}
