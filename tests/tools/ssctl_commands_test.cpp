// Each command from the words to the texts, with scripted answers instead of a group owner.
#include "tools/ssctl/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>

using namespace Ssctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string U32(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

std::string State(const std::string& name, uint32_t pid, uint32_t state) {
    return U32(static_cast<uint32_t>(name.size())) + name + U32(pid) + U32(state);
}

Reply Answer(const std::string& payload) {
    Reply reply;
    reply.delivery = Delivery::ANSWERED;
    reply.result = static_cast<int>(payload.size()) + 8;
    const std::string head = U32(static_cast<uint32_t>(payload.size()));
    std::memcpy(reply.record.data(), head.data(), head.size());
    std::memcpy(reply.record.data() + 12, payload.data(), payload.size());
    return reply;
}

Reply Failure(Delivery delivery, std::string detail = {}) {
    Reply reply;
    reply.delivery = delivery;
    reply.detail = std::move(detail);
    return reply;
}

/// Gives the replies one after the other and keeps the requests.
class Script {
public:
    explicit Script(std::deque<Reply> replies) : replies_(std::move(replies)) {}

    Outcome Run(const CommandLine& line) {
        return RunCommand(line, [this](const Request& request) {
            requests.push_back(request);
            if (replies_.empty()) {
                return Failure(Delivery::FAILED, "the script has no more replies");
            }
            Reply reply = replies_.front();
            replies_.pop_front();
            return reply;
        });
    }

    std::vector<Request> requests;

private:
    std::deque<Reply> replies_;
};

CommandLine Line(const std::string& command) {
    CommandLine line;
    line.command = command;
    line.resource = "grp_owner";
    return line;
}

CommandLine StartLine() {
    CommandLine line = Line("start");
    line.change.start = {"a"};
    return line;
}

void ExpectRequest(const Request& request, RequestKind kind, const std::string& payload, uint32_t timeoutMs,
                   uint32_t waitMs) {
    EXPECT_EQ(request.kind, kind);
    EXPECT_EQ(request.payload, payload);
    EXPECT_EQ(request.timeoutMs, timeoutMs);
    EXPECT_EQ(request.waitMs, waitMs);
}

}  // namespace

TEST(ChangeCommand, SendsOneRequestAndWaitsASecondLongerThanTheOwner) {
    CommandLine line = Line("change");
    line.change.stop = {"a"};
    line.change.start = {"b"};
    line.change.args = {"b=x,y"};
    line.change.paras = {"b:0=p"};
    line.timeoutMs = 7000;
    Script script({Answer("3#1#b#0#a#0#")});
    const Outcome outcome = script.Run(line);
    ASSERT_THAT(script.requests, SizeIs(1));
    ExpectRequest(script.requests[0], RequestKind::CHANGE, "2#a#1#0#0#b#0#2#x#y#1#0#1#p#", 7000, 8000);
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(RenderText(outcome, false),
              "APPLICATION  ACTION  RESULT\n"
              "b            start   SUCCESS\n"
              "a            stop    SUCCESS\n");
}

TEST(ChangeCommand, SendsNothingThatIsMistakenOrDoesNotFit) {
    CommandLine line = StartLine();
    line.change.args = {"b=x"};
    Script script({});
    EXPECT_EQ(RenderComplaint(script.Run(line)),
              "ssctl: 'b=x' is for 'b', which this request neither starts nor restarts.\n"
              "       Nothing was sent.\n");
    line.change.args = {"a=" + std::string(3900, 'x')};
    const Outcome tooLarge = script.Run(line);
    EXPECT_EQ(ExitCodeOf(tooLarge.fault), ExitCode::USAGE);
    EXPECT_EQ(tooLarge.problem, "the request has 3911 bytes; at most 3888 can be sent, so split it into several");
    EXPECT_THAT(script.requests, IsEmpty());
}

TEST(ListCommand, AsksForTheList) {
    Script script({Answer("1#a#b#")});
    const Outcome outcome = script.Run(Line("list"));
    ASSERT_THAT(script.requests, SizeIs(1));
    ExpectRequest(script.requests[0], RequestKind::LIST, "", 5000, 6000);
    EXPECT_EQ(RenderText(outcome, false), "APPLICATION\na\nb\n");
}

TEST(StateCommand, AsksForTheNamedApplications) {
    CommandLine line = Line("state");
    line.names = {"a", "b"};
    line.timeoutMs = 300;
    Script script({Answer("\1" + U32(2) + State("a", 4, 0) + State("b", 0xFFFFFFFF, 1))});
    const Outcome outcome = script.Run(line);
    ASSERT_THAT(script.requests, SizeIs(1));
    ExpectRequest(script.requests[0], RequestKind::STATE, U32(2) + U32(1) + "a" + U32(1) + "b", 300, 1300);
    EXPECT_EQ(RenderText(outcome, false),
              "APPLICATION  PID  STATE\n"
              "a              4  RUNNING\n"
              "b              -  NOT_RUNNING\n");
}

TEST(StateCommand, WithoutNamesAsksForAllOfTheList) {
    Script script({Answer("1#a#"), Answer("\1" + U32(1) + State("a", 4, 0))});
    const Outcome outcome = script.Run(Line("state"));
    ASSERT_THAT(script.requests, SizeIs(2));
    EXPECT_EQ(script.requests[0].kind, RequestKind::LIST);
    ExpectRequest(script.requests[1], RequestKind::STATE, U32(1) + U32(1) + "a", 5000, 6000);
    EXPECT_EQ(RenderText(outcome, false), "APPLICATION  PID  STATE\na              4  RUNNING\n");
}

TEST(StateCommand, OfAnEmptyGroupAsksNoFurther) {
    Script script({Answer("1#")});
    EXPECT_EQ(RenderText(script.Run(Line("state")), false), "The group has no applications.\n");
    EXPECT_THAT(script.requests, SizeIs(1));
}

TEST(StateCommand, PutsTheAnswersOfSeveralQueriesTogether) {
    CommandLine line = Line("state");
    const std::string longA(2000, 'a');
    const std::string longB(2000, 'b');
    line.names = {longA, longB};
    Script script({Answer("\1" + U32(1) + State(longA, 4, 0)), Answer("\1" + U32(1) + State(longB, 5, 0))});
    const Outcome outcome = script.Run(line);
    EXPECT_THAT(script.requests, SizeIs(2));
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_THAT(outcome.table.rows, SizeIs(2));
}

TEST(StateCommand, StopsAtTheFirstQueryThatFails) {
    CommandLine line = Line("state");
    line.names = {std::string(2000, 'a'), std::string(2000, 'b')};
    Script script({Failure(Delivery::TIMED_OUT)});
    EXPECT_EQ(script.Run(line).fault, Fault::TIMED_OUT);
    EXPECT_THAT(script.requests, SizeIs(1));
}

TEST(VerifyCommand, TellsWhatItTookNoteOf) {
    CommandLine line = Line("verify");
    line.verified = {"b=terminated", "a=running"};
    Script script({Answer("1")});
    const Outcome outcome = script.Run(line);
    ASSERT_THAT(script.requests, SizeIs(1));
    ExpectRequest(script.requests[0], RequestKind::VERIFY, "2#a#0#b#1#", 5000, 6000);
    EXPECT_EQ(RenderText(outcome, false), "The group owner took note of 2 applications.\n");
    EXPECT_EQ(outcome.members.dump(), R"({"applications":[{"name":"a","value":0},{"name":"b","value":1}]})");
}

TEST(VerifyCommand, FailsWhenItIsRefused) {
    CommandLine line = Line("verify");
    line.verified = {"a=1"};
    Script script({Answer("0")});
    const Outcome outcome = script.Run(line);
    EXPECT_EQ(outcome.fault, Fault::REFUSED);
    EXPECT_EQ(RenderText(outcome, false), "");
}

TEST(SetStateCommand, SendsTheNumberOfTheState) {
    CommandLine line = Line("set-state");
    line.systemState = "working";
    line.timeoutMs = 2000;
    Script script({Answer("1#")});
    const Outcome outcome = script.Run(line);
    ASSERT_THAT(script.requests, SizeIs(1));
    ExpectRequest(script.requests[0], RequestKind::SET_STATE, "1#", 2000, 3000);
    EXPECT_EQ(RenderText(outcome, false), "The system state is WORKING (1).\n");
    EXPECT_EQ(outcome.members.dump(), R"({"state":{"name":"WORKING","code":1}})");
}

TEST(SetStateCommand, FailsWhenItIsRefusedOrUnknown) {
    CommandLine line = Line("set-state");
    line.systemState = "-3";
    Script script({Answer("0#")});
    EXPECT_EQ(script.Run(line).problem, "the group owner refused the system state UNKNOWN (-3)");
    line.systemState = "BUSY";
    EXPECT_EQ(script.Run(line).fault, Fault::USAGE);
    EXPECT_THAT(script.requests, SizeIs(1));
}

TEST(PlainCommand, ReloadsDumpsAndStopsAll) {
    struct Row {
        const char* command;
        RequestKind kind;
        uint32_t waitMs;
        const char* done;
        const char* problem;
    };
    const Row rows[] = {
        {"reload", RequestKind::RELOAD, 6000, "The group owner read its manifests again.\n",
         "the group owner did not reload"},
        {"dump", RequestKind::DUMP, 6000, "The group owner wrote what it knows to its log.\n",
         "the group owner wrote no dump"},
        {"stop-all", RequestKind::STOP_ALL, 40000, "Every application is stopped.\n", "not every application stopped"},
    };
    for (const Row& row : rows) {
        Script script({Answer("1"), Answer("0")});
        EXPECT_EQ(RenderText(script.Run(Line(row.command)), false), row.done);
        ExpectRequest(script.requests.at(0), row.kind, "", 5000, row.waitMs);
        const Outcome refused = script.Run(Line(row.command));
        EXPECT_EQ(refused.problem, row.problem);
        EXPECT_EQ(ExitCodeOf(refused.fault), ExitCode::REFUSED);
        EXPECT_EQ(RenderText(refused, false), "");
    }
}

TEST(Command, WaitsAsLongAsTheCommandLineSays) {
    CommandLine line = Line("stop-all");
    line.waitMs = 77;
    Script script({Answer("1")});
    EXPECT_EQ(script.Run(line).fault, Fault::NONE);
    EXPECT_EQ(script.requests.at(0).waitMs, 77U);
}

TEST(Command, SaysWhatToDoWhenNobodyServes) {
    Script script({Failure(Delivery::NO_SERVICE, "there is no such service")});
    const Outcome outcome = script.Run(StartLine());
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: no group owner serves 'grp_owner' in /run/procmgr: there is no such service.\n"
              "       Start one with 'grpownerd --resource grp_owner', or choose another with --resource and"
              " --run-dir.\n");
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::NO_SERVICE);
    EXPECT_EQ(RenderText(outcome, false), "");
    EXPECT_EQ(
        RenderDocument({"start", "grp_owner"}, outcome),
        R"({"schema":1,"command":"start","resource":"grp_owner","ok":false,"exit_code":3,"error":)"
        R"({"kind":"no_service","message":"no group owner serves 'grp_owner' in /run/procmgr: there is no such service",)"
        R"("advice":"Start one with 'grpownerd --resource grp_owner', or choose another with --resource and)"
        R"( --run-dir."}})"
        "\n");
}

TEST(Command, SaysWhatToDoWhenTheOwnerWentAway) {
    Script script({Failure(Delivery::LOST)});
    const Outcome outcome = script.Run(StartLine());
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: the group owner behind 'grp_owner' went away.\n"
              "       The request may have been carried out in part: start the owner again, then look with 'ssctl"
              " state'.\n");
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::NO_SERVICE);
}

TEST(Command, SaysWhatToDoWhenNoAnswerComes) {
    Script script({Failure(Delivery::TIMED_OUT)});
    const Outcome outcome = script.Run(StartLine());
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: no answer from 'grp_owner' within 6000 ms.\n"
              "       The request may still be carried out: see with 'ssctl state', and wait longer with --wait.\n");
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::TIMED_OUT);
}

TEST(Command, SaysWhatToDoWhenTheUserMayNot) {
    Script script({Failure(Delivery::DENIED)});
    const Outcome outcome = script.Run(StartLine());
    EXPECT_THAT(RenderComplaint(outcome), HasSubstr("you may not do that with 'grp_owner'"));
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::REFUSED);
}

TEST(Command, IsAMistakeWhenNoServiceCanHaveTheName) {
    Script script({Failure(Delivery::BAD_NAME, "why")});
    EXPECT_EQ(script.Run(StartLine()).fault, Fault::USAGE);
    EXPECT_EQ(Script({}).Run(Line("fly")).fault, Fault::USAGE);
}

TEST(Command, TakesNoAnswerThatItDoesNotUnderstand) {
    Reply refused = Answer("");
    refused.result = static_cast<int>(0xff0f0000U);
    Reply disagreeing = Answer("1");
    disagreeing.result = 100;
    const std::pair<Reply, const char*> replies[] = {
        {refused, "the service refused the request as such, with -15794176"},
        {disagreeing, "the answer's length does not agree with its result"},
        {Answer(""), "the answer is empty; either it did not fit, or the service does not know the request"},
        {Answer("2#1#a#"), "the answer is no change result"},
        {Failure(Delivery::FAILED, "Device on fire"), "the request to 'grp_owner' failed: Device on fire"},
    };
    for (const auto& [reply, problem] : replies) {
        Script script({reply});
        const Outcome outcome = script.Run(StartLine());
        EXPECT_EQ(outcome.problem, problem);
        EXPECT_EQ(outcome.fault, Fault::BAD_ANSWER);
        EXPECT_FALSE(outcome.advice.empty());
    }
}

TEST(DescribeWork, SaysWhatIsWaitedFor) {
    CommandLine line = Line("change");
    line.change.stop = {"a"};
    line.change.start = {"b", "c"};
    line.change.restart = {"d"};
    EXPECT_EQ(DescribeWork(line), "stopping 1, starting 2, restarting 1");
    EXPECT_EQ(DescribeWork(StartLine()), "starting 1");
    EXPECT_EQ(DescribeWork(Line("stop-all")), "stopping everything");
    EXPECT_EQ(DescribeWork(Line("state")), "asking for states");
}
