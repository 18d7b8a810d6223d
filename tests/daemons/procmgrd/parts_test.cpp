#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "daemons/procmgrd/conductor.h"
#include "daemons/procmgrd/deadline_queue.h"
#include "daemons/procmgrd/event_loop.h"
#include "daemons/procmgrd/launch_reason.h"
#include "daemons/procmgrd/owner_table.h"
#include "daemons/procmgrd/stop_plan.h"

namespace Procmgrd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Queue = DeadlineQueue<std::string>;

Queue::Time At(int ms) {
    return Queue::Time(std::chrono::milliseconds(ms));
}

TEST(DeadlineQueue, GivesWhatIsDueTheEarliestFirst) {
    Queue queue;
    queue.Arm("late", At(30));
    queue.Arm("early", At(10));
    queue.Arm("middle", At(20));
    EXPECT_EQ(queue.Next(), At(10));
    EXPECT_THAT(queue.TakeDue(At(9)), IsEmpty());
    EXPECT_THAT(queue.TakeDue(At(20)), ElementsAre("early", "middle"));
    EXPECT_EQ(queue.Next(), At(30));
}

TEST(DeadlineQueue, ReplacesADeadlineAndForgetsADisarmedOne) {
    Queue queue;
    queue.Arm("a", At(10));
    queue.Arm("a", At(50));
    queue.Arm("b", At(20));
    queue.Disarm("b");
    queue.Disarm("never");
    EXPECT_THAT(queue.TakeDue(At(40)), IsEmpty());
    EXPECT_THAT(queue.TakeDue(At(50)), ElementsAre("a"));
    EXPECT_TRUE(queue.IsEmpty());
}

TEST(StopPlan, EndsDependantsFirst) {
    StopPlan plan;
    plan.Add({"g", "base"}, {"not-running"});
    plan.Add({"g", "left"}, {"base"});
    plan.Add({"g", "right"}, {"base"});
    plan.Add({"other", "left"}, {"base"});
    EXPECT_THAT(plan.Begin(), UnorderedElementsAre(AppKey{"g", "left"}, AppKey{"g", "right"}, AppKey{"other", "left"}));
    EXPECT_THAT(plan.Ended({"g", "left"}), IsEmpty());
    EXPECT_THAT(plan.Ended({"other", "left"}), IsEmpty());
    EXPECT_THAT(plan.Ended({"g", "right"}), ElementsAre(AppKey{"g", "base"}));
    EXPECT_THAT(plan.Ended({"nobody", "x"}), IsEmpty());
}

TEST(OwnerTable, RefusesASecondLiveOneAndAnotherUser) {
    OwnerTable table;
    EXPECT_EQ(table.Admit("group", 5), 0);
    table.Connect("group", {5, 5, {}}, 1);
    EXPECT_EQ(table.Admit("group", 5), EADDRINUSE);
    EXPECT_EQ(table.FindByConnection(1)->name, "group");
    table.Disconnect("group");
    EXPECT_EQ(table.FindByConnection(1), nullptr);
    EXPECT_EQ(table.Admit("group", 5), 0);
    EXPECT_EQ(table.Admit("group", 6), EACCES);
    table.Erase("group");
    EXPECT_EQ(table.Admit("group", 6), 0);
}

TEST(WhyLaunchFailed, GivesEachFailureItsReason) {
    using ProcMgr::LaunchStage;
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, EIO).reason, ExitReason::IO_ERROR);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::UID, EIO).reason, ExitReason::IO_ERROR);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, ENOENT).reason, ExitReason::NOT_FOUND);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, EACCES).reason, ExitReason::NOT_PERMITTED);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, ENOEXEC).reason, ExitReason::NOT_A_PROGRAM);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::FORK, EAGAIN).reason, ExitReason::NO_RESOURCES);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::UID, EPERM).reason, ExitReason::ATTRIBUTE_NOT_HELD);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, ETIMEDOUT).reason, ExitReason::OTHER);
    EXPECT_EQ(WhyLaunchFailed(LaunchStage::EXEC, EIO).detail, static_cast<uint32_t>(EIO));
}

TEST(DescribeExit, SaysWhatHappened) {
    EXPECT_EQ(DescribeExit({"cam", 1, 9, 4, 4}), "ended by a signal 9 (Killed)");
    EXPECT_EQ(DescribeExit({"cam", 1, 3, 4, 5}), "ended with an exit code 3");
    EXPECT_EQ(DescribeExit({"cam", 1, 2, 4, 2}),
              "the program does not exist; check bin_path (No such file or directory)");
    EXPECT_EQ(DescribeExit({"cam", 1, 0, 4, 7}), "no manifest has this name; check the configuration");
}

TEST(EventLoop, DoesNotCallAHandlerThatWasRemovedInTheSameTurn) {
    EventLoop loop;
    ASSERT_TRUE(loop.Open());
    int first[2];
    int second[2];
    ASSERT_EQ(pipe(first), 0);
    ASSERT_EQ(pipe(second), 0);
    int calls = 0;
    const auto removeBoth = [&] {
        ++calls;
        loop.Remove(first[0]);
        loop.Remove(second[0]);
    };
    ASSERT_TRUE(loop.Add(first[0], removeBoth));
    ASSERT_TRUE(loop.Add(second[0], removeBoth));
    ASSERT_EQ(write(first[1], "x", 1), 1);
    ASSERT_EQ(write(second[1], "x", 1), 1);
    EXPECT_TRUE(loop.Turn(false));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(loop.Turn(true));
    EXPECT_EQ(calls, 1);
    for (const int fd : {first[0], first[1], second[0], second[1]}) {
        close(fd);
    }
}

}  // namespace
}  // namespace Procmgrd
