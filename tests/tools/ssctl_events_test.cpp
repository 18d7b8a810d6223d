#include "tools/ssctl/events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

using namespace Ssctl;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

CommandLine Line(std::optional<uint32_t> count, std::optional<uint32_t> timeoutMs) {
    CommandLine line;
    line.command = "events";
    line.resource = "grp_owner";
    line.eventCount = count;
    line.eventTimeoutMs = timeoutMs;
    return line;
}

/// Follows scripted events; what was shown is kept.
struct Followed {
    Followed(const CommandLine& line, std::deque<EventReply> replies, size_t most = 100) {
        outcome = FollowEvents(
            line, {},
            [&](const Deadline&) {
                EventReply reply = replies.empty() ? EventReply{Delivery::FAILED, {}, "no more"} : replies.front();
                if (!replies.empty()) {
                    replies.pop_front();
                }
                return reply;
            },
            [&](const Outcome& event) {
                shown.push_back(RenderText(event, false));
                return shown.size() < most;
            });
    }

    Outcome outcome;
    std::vector<std::string> shown;
};

EventReply Event(std::string text) {
    return {Delivery::ANSWERED, std::move(text), {}};
}

EventReply Failure(Delivery delivery) {
    return {delivery, {}, {}};
}

}  // namespace

TEST(FollowEvents, ShowsEachEventAndEndsAfterTheWantedNumber) {
    const Followed followed(Line(2, {}), {Event("1"), Event("2"), Event("3")});
    EXPECT_EQ(followed.outcome.fault, Fault::NONE);
    EXPECT_THAT(followed.shown, ElementsAre("WORKING\n", "SUSPEND\n"));
}

TEST(FollowEvents, EndsWhenAnEventCannotBeShown) {
    const Followed followed(Line({}, {}), {Event("1"), Event("2"), Event("3")}, 2);
    EXPECT_EQ(followed.outcome.fault, Fault::NONE);
    EXPECT_THAT(followed.shown, ElementsAre("WORKING\n", "SUSPEND\n"));
}

TEST(FollowEvents, EndsWellAtItsTimeOutWhenNoNumberIsWanted) {
    const Followed followed(Line({}, 500), {Event("1"), Failure(Delivery::TIMED_OUT)});
    EXPECT_EQ(followed.outcome.fault, Fault::NONE);
    EXPECT_THAT(followed.shown, ElementsAre("WORKING\n"));
}

TEST(FollowEvents, FailsAtItsTimeOutWhenEventsAreMissing) {
    const Followed followed(Line(3, 500), {Event("1"), Failure(Delivery::TIMED_OUT)});
    EXPECT_EQ(RenderComplaint(followed.outcome),
              "ssctl: 1 of 3 events came within 500 ms.\n       Wait longer with --timeout.\n");
    EXPECT_EQ(ExitCodeOf(followed.outcome.fault), ExitCode::TIMED_OUT);
}

TEST(FollowEvents, SaysHowToGetAQueueWhenThereIsNone) {
    const Followed followed(Line(1, {}), {Failure(Delivery::NO_SERVICE)});
    EXPECT_EQ(
        RenderComplaint(followed.outcome),
        "ssctl: nobody tells events on 'grp_owner_events' in /run/procmgr.\n"
        "       Start the group owner with 'grpownerd --resource grp_owner --events grp_owner_events', or choose another with --queue"
        " and --run-dir.\n");
    EXPECT_EQ(ExitCodeOf(followed.outcome.fault), ExitCode::NO_SERVICE);
}

TEST(FollowEvents, EndsWhenTheOwnerGoesAway) {
    const Followed followed(Line({}, {}), {Event("0"), Failure(Delivery::LOST)});
    EXPECT_THAT(followed.outcome.problem, HasSubstr("the group owner behind 'grp_owner_events' went away"));
    EXPECT_EQ(ExitCodeOf(followed.outcome.fault), ExitCode::NO_SERVICE);
    EXPECT_THAT(followed.shown, ElementsAre("OFF\n"));
}

TEST(FollowEvents, EndsAtAnEventThatIsNone) {
    const Followed followed(Line({}, {}), {Event("WORKING")});
    EXPECT_EQ(followed.outcome.fault, Fault::BAD_ANSWER);
    EXPECT_EQ(followed.outcome.problem, "the event is no decimal number");
}

TEST(FollowEvents, FailsWhenOpeningTakesTooLong) {
    const Followed followed(Line({}, {}), {Failure(Delivery::TIMED_OUT)});
    EXPECT_EQ(ExitCodeOf(followed.outcome.fault), ExitCode::TIMED_OUT);
}

TEST(QueueName, IsTheResourceAndASuffixUnlessItIsGiven) {
    CommandLine line = Line({}, {});
    EXPECT_EQ(QueueName(line), "grp_owner_events");
    line.queue = "q";
    EXPECT_EQ(QueueName(line), "q");
}
