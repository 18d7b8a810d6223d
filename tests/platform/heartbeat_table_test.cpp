#include "platform/posix/heartbeat/heartbeat_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/posix/heartbeat/heartbeat_sending.h"

namespace ProcMgr::Posix {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

// A table of period 1000 ms and 3 misses, at a time that the test sets.
class Watcher {
public:
    HeartBeatTable::Time At(int ms) const { return start_ + milliseconds(ms); }

    void Watch(const std::string& name, int ms) { table_.Watch(name, At(ms)); }

    // "name pid recovered", or "".
    std::string Beat(const std::string& name, unsigned int pid, int ms) {
        const auto notice = table_.Beat(name, pid, At(ms));
        return notice.has_value() ? Text(*notice) : "";
    }

    std::vector<std::string> Tick(int ms) {
        std::vector<std::string> texts;
        for (const HeartBeatTable::Notice& notice : table_.Tick(At(ms))) {
            texts.push_back(Text(notice));
        }
        return texts;
    }

    // Ticks once a period, as the thread does, from `fromMs` to `toMs`; each notice with the time of its tick.
    std::vector<std::string> TickAll(int fromMs, int toMs, int step = 500) {
        std::vector<std::string> texts;
        for (int ms = fromMs; ms <= toMs; ms += step) {
            for (const std::string& text : Tick(ms)) {
                texts.push_back(std::to_string(ms) + " " + text);
            }
        }
        return texts;
    }

    // Milliseconds, -1 for none.
    int NextTick() const {
        const auto next = table_.NextTick();
        return next.has_value() ? static_cast<int>(std::chrono::duration_cast<milliseconds>(*next - start_).count())
                                : -1;
    }

    HeartBeatTable& Table() { return table_; }

private:
    static std::string Text(const HeartBeatTable::Notice& notice) {
        return notice.name + " " + std::to_string(notice.pid) + (notice.isLost ? " lost" : " recovered");
    }

    const HeartBeatTable::Time start_{std::chrono::hours(100)};
    HeartBeatTable table_{milliseconds(1000), 3};
};

TEST(HeartBeatTable, TellsALossOnceAfterThreeMissesAndHalfAPeriod) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_EQ(watcher.Beat("cam", 17, 1000), "");
    EXPECT_THAT(watcher.TickAll(1000, 20000), ElementsAre("4500 cam 17 lost"));
}

TEST(HeartBeatTable, TellsNothingWhileBeatsCome) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    for (int ms = 0; ms <= 60000; ms += 1000) {
        EXPECT_EQ(watcher.Beat("cam", 17, ms), "");
        EXPECT_THAT(watcher.Tick(ms), IsEmpty());
    }
}

TEST(HeartBeatTable, GivesEveryHeartTheWholeTimeAnewWhenItIsPostponed) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Watch("lidar", 0);
    watcher.Beat("lidar", 18, 3400);
    EXPECT_THAT(watcher.TickAll(0, 3400, 100), IsEmpty());
    watcher.Table().Postpone(watcher.At(3450));
    EXPECT_THAT(watcher.TickAll(3500, 20000, 50), ElementsAre("6950 cam 0 lost", "6950 lidar 18 lost"));
}

TEST(HeartBeatTable, DoesNotPostponeALossThatWasTold) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.TickAll(0, 4000), ElementsAre("3500 cam 0 lost"));
    watcher.Table().Postpone(watcher.At(4000));
    EXPECT_THAT(watcher.TickAll(4000, 20000), IsEmpty());
}

TEST(HeartBeatTable, BearsTwoMissesAndALateBeat) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Beat("cam", 17, 1000);
    EXPECT_THAT(watcher.TickAll(1000, 4400, 100), IsEmpty());
    EXPECT_EQ(watcher.Beat("cam", 17, 4499), "");
    EXPECT_THAT(watcher.TickAll(4500, 7900, 100), IsEmpty());
}

TEST(HeartBeatTable, TellsARecoveryOnceAtTheFirstBeatAfterTheLoss) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.TickAll(0, 5000), ElementsAre("3500 cam 0 lost"));
    EXPECT_EQ(watcher.Beat("cam", 18, 5100), "cam 18 recovered");
    EXPECT_EQ(watcher.Beat("cam", 18, 6100), "");
    EXPECT_THAT(watcher.TickAll(6000, 20000), ElementsAre("10000 cam 18 lost"));
}

TEST(HeartBeatTable, TellsOfAHeartThatNeverBeatWithoutAPid) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.TickAll(0, 3499, 499), IsEmpty());
    EXPECT_THAT(watcher.Tick(3500), ElementsAre("cam 0 lost"));
}

TEST(HeartBeatTable, KeepsEachHeartApart) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Watch("lidar", 0);
    watcher.Watch("radar", 0);
    watcher.Beat("lidar", 18, 3000);
    EXPECT_THAT(watcher.TickAll(0, 8000), ElementsAre("3500 cam 0 lost", "3500 radar 0 lost", "6500 lidar 18 lost"));
}

TEST(HeartBeatTable, IgnoresBeatsOfNamesThatAreNotWatched) {
    Watcher watcher;
    EXPECT_EQ(watcher.Beat("cam", 17, 0), "");
    EXPECT_EQ(watcher.NextTick(), -1);
}

TEST(HeartBeatTable, BeginsAnewWhenANameIsWatchedAgain) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.TickAll(0, 4000), ElementsAre("3500 cam 0 lost"));
    watcher.Watch("cam", 4000);
    EXPECT_EQ(watcher.Beat("cam", 18, 4100), "");
    EXPECT_THAT(watcher.TickAll(4000, 9000), ElementsAre("8000 cam 18 lost"));
}

TEST(HeartBeatTable, TellsNothingOfANameThatIsNotWatchedAnyMore) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Watch("lidar", 0);
    EXPECT_TRUE(watcher.Table().Unwatch("cam"));
    EXPECT_FALSE(watcher.Table().Unwatch("cam"));
    EXPECT_THAT(watcher.TickAll(0, 5000), ElementsAre("3500 lidar 0 lost"));
    EXPECT_TRUE(watcher.Table().Unwatch("lidar"));
    EXPECT_EQ(watcher.Beat("lidar", 18, 5000), "");
}

TEST(HeartBeatTable, ForgetsEverythingWhenCleared) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Table().Clear();
    EXPECT_EQ(watcher.NextTick(), -1);
    EXPECT_THAT(watcher.TickAll(0, 5000), IsEmpty());
    EXPECT_FALSE(watcher.Table().Unwatch("cam"));
}

TEST(HeartBeatTable, GivesEveryHeartTheWholeTimeAnewAfterTheWatcherWasStopped) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    watcher.Watch("lidar", 0);
    EXPECT_THAT(watcher.TickAll(0, 1000), IsEmpty());
    // A minute later: the watcher has been stopped or suspended all the while.
    EXPECT_THAT(watcher.Tick(61000), IsEmpty());
    watcher.Beat("lidar", 18, 61500);
    EXPECT_THAT(watcher.TickAll(62000, 66000), ElementsAre("64500 cam 0 lost", "65000 lidar 18 lost"));
}

TEST(HeartBeatTable, TakesATickThatIsMoreThanHalfAPeriodLateForItsOwnLateness) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.Tick(1000), IsEmpty());
    EXPECT_THAT(watcher.Tick(2499), IsEmpty());
    // 1501 ms after the tick before, and behind the deadline of 3500.
    EXPECT_THAT(watcher.Tick(4000), IsEmpty());
    EXPECT_THAT(watcher.TickAll(5000, 7400, 400), IsEmpty());
    EXPECT_THAT(watcher.Tick(7500), ElementsAre("cam 0 lost"));
}

TEST(HeartBeatTable, TakesATickThatIsHalfAPeriodLateForGood) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.Tick(1000), IsEmpty());
    EXPECT_THAT(watcher.Tick(2500), IsEmpty());
    EXPECT_THAT(watcher.Tick(4000), ElementsAre("cam 0 lost"));
}

TEST(HeartBeatTable, DoesNotForgetALossBecauseTheWatcherWasLate) {
    Watcher watcher;
    watcher.Watch("cam", 0);
    EXPECT_THAT(watcher.TickAll(0, 4000), ElementsAre("3500 cam 0 lost"));
    EXPECT_THAT(watcher.Tick(99000), IsEmpty());
    EXPECT_EQ(watcher.Beat("cam", 17, 99001), "cam 17 recovered");
}

TEST(HeartBeatTable, WantsATickAPeriodAfterTheLastOneOrAtTheNextDeadline) {
    Watcher watcher;
    EXPECT_EQ(watcher.NextTick(), -1);
    watcher.Watch("cam", 200);
    EXPECT_EQ(watcher.NextTick(), 1200);
    watcher.Tick(1200);
    EXPECT_EQ(watcher.NextTick(), 2200);
    watcher.Tick(2200);
    watcher.Tick(3200);
    EXPECT_EQ(watcher.NextTick(), 3700);
    EXPECT_THAT(watcher.Tick(3700), ElementsAre("cam 0 lost"));
    EXPECT_EQ(watcher.NextTick(), -1);
    watcher.Beat("cam", 17, 50000);
    EXPECT_EQ(watcher.NextTick(), 51000);
}

TEST(HeartBeatTable, ServesThousandsOfNames) {
    Watcher watcher;
    for (int i = 0; i < 5000; ++i) {
        watcher.Watch("app" + std::to_string(i), 0);
    }
    for (int ms = 1000; ms <= 5000; ms += 1000) {
        for (int i = 1; i < 5000; ++i) {
            watcher.Beat("app" + std::to_string(i), 17, ms);
        }
        EXPECT_THAT(watcher.Tick(ms), ms == 4000
                                          ? testing::Matcher<std::vector<std::string>>(ElementsAre("app0 0 lost"))
                                          : testing::Matcher<std::vector<std::string>>(IsEmpty()));
    }
}

int NextBeatMs(int plannedMs, int nowMs, bool isQueueFull) {
    const HeartBeatTable::Time start{};
    const auto next =
        NextBeat(start + milliseconds(plannedMs), start + milliseconds(nowMs), milliseconds(1000), isQueueFull);
    return static_cast<int>(std::chrono::duration_cast<milliseconds>(next - start).count());
}

TEST(NextBeat, ComesAPeriodAfterThePlanSoThatBeatsDoNotDrift) {
    EXPECT_EQ(NextBeatMs(5000, 5000, false), 6000);
    EXPECT_EQ(NextBeatMs(5000, 5300, false), 6000);
}

TEST(NextBeat, ComesAPeriodFromNowWhenTheSenderMissedItsPlan) {
    EXPECT_EQ(NextBeatMs(5000, 60300, false), 61300);
}

TEST(NextBeat, ComesSoonWhenTheQueueOfThePeerWasFull) {
    EXPECT_EQ(NextBeatMs(5000, 5000, true), 5125);
}

}  // namespace
}  // namespace ProcMgr::Posix
