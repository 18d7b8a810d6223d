// The documents are what docs/ssctl.schema.json says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "tests/tools/json_schema.h"
#include "tools/ssctl/commands.h"
#include "tools/ssctl/events.h"
#include "tools/ssctl/reports.h"

using namespace Ssctl;
using nlohmann::json;

namespace {

JsonSchema Schema() {
    std::ifstream file(SSCTL_SCHEMA_FILE);
    return JsonSchema(json::parse(file));
}

CommandLine Line(const std::string& command) {
    CommandLine line;
    line.command = command;
    line.resource = "grp_owner";
    line.change.start = {"a"};
    line.verified = {"a=1"};
    line.systemState = "WORKING";
    line.names = {"a"};
    return line;
}

const std::vector<std::string> kCommands = {"list",   "state",     "start",  "stop", "restart", "change",
                                            "verify", "set-state", "reload", "dump", "stop-all"};

json DocumentOf(const std::string& command, const Reply& reply) {
    const Outcome outcome = RunCommand(Line(command), [&](const Request&) { return reply; });
    return json::parse(RenderDocument({command, "grp_owner"}, outcome));
}

Reply Answer(const std::string& payload) {
    Reply reply;
    reply.delivery = Delivery::ANSWERED;
    reply.result = static_cast<int>(payload.size()) + 8;
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(reply.record.data(), &length, sizeof(length));
    std::memcpy(reply.record.data() + 12, payload.data(), payload.size());
    return reply;
}

/// Answers of which each command finds one that it understands, good and bad.
std::vector<Reply> Answers() {
    const std::string state("\1\1\0\0\0\1\0\0\0a\7\0\0\0\0\0\0\0", 18);
    const std::string badState("\0\1\0\0\0\1\0\0\0a\xFF\xFF\xFF\xFF\x09\0\0\0", 18);
    return {Answer("1"),      Answer("0"),        Answer("1#"),       Answer("0#"),
            Answer("1#a#b#"), Answer("2#1#a#0#"), Answer("2#0#a#2#"), Answer("2#0#x#4294967295#"),
            Answer("1#0#"),   Answer(state),      Answer(badState),   Answer("junk"),
            Answer("")};
}

}  // namespace

TEST(SsctlSchema, HoldsForEveryCommandAndAnswer) {
    const JsonSchema schema = Schema();
    std::set<std::string> good;
    for (const std::string& command : kCommands) {
        for (const Reply& reply : Answers()) {
            const json document = DocumentOf(command, reply);
            EXPECT_EQ(schema.Check(document), "") << document;
            if (document.at("ok") == true) {
                good.insert(command);
            }
        }
    }
    EXPECT_EQ(good.size(), kCommands.size()) << "each command has an answer that it takes as a success";
}

TEST(SsctlSchema, HoldsForEveryCommandThatGetsNoAnswer) {
    const JsonSchema schema = Schema();
    for (const std::string& command : kCommands) {
        for (const Delivery delivery : {Delivery::NO_SERVICE, Delivery::LOST, Delivery::DENIED, Delivery::TIMED_OUT,
                                        Delivery::BAD_NAME, Delivery::FAILED}) {
            Reply reply;
            reply.delivery = delivery;
            const json document = DocumentOf(command, reply);
            EXPECT_EQ(schema.Check(document), "") << document;
            EXPECT_EQ(document.at("ok"), false);
        }
    }
}

TEST(SsctlSchema, HoldsForMistakes) {
    CommandLine line = Line("start");
    line.change.args = {"b=x"};
    const Outcome outcome = RunCommand(line, [](const Request&) { return Reply(); });
    const json document = json::parse(RenderDocument({"start", "r"}, outcome));
    EXPECT_EQ(document.at("error").at("kind"), "usage");
    EXPECT_EQ(Schema().Check(document), "") << document;
}

TEST(SsctlSchema, HoldsForEventsAndForTheirEnd) {
    const JsonSchema schema = Schema();
    for (const uint32_t state : {0U, 4U, 4294967295U}) {
        EXPECT_EQ(schema.Check(json::parse(RenderDocument({"events", "q"}, ReportEvent(state)))), "");
    }
    CommandLine line = Line("events");
    const Outcome end = FollowEvents(
        line, {},
        [](const Deadline&) {
            return EventReply{Delivery::LOST, {}, {}};
        },
        [](const Outcome&) { return true; });
    EXPECT_EQ(schema.Check(json::parse(RenderDocument({"events", "q"}, end))), "");
}

TEST(SsctlSchema, RefusesWhatIsNoDocument) {
    const JsonSchema schema = Schema();
    const json good = DocumentOf("start", Answer("2#1#a#0#"));
    ASSERT_EQ(schema.Check(good), "");
    std::vector<json> bad;
    for (const auto& [name, member] : good.items()) {
        if (name != "applications") {
            json less = good;
            less.erase(name);
            bad.push_back(less);
        }
    }
    const auto change = [&](const char* pointer, const json& value) {
        json other = good;
        other[json::json_pointer(pointer)] = value;
        bad.push_back(other);
    };
    change("/schema", 2);
    change("/command", "fly");
    change("/command", "list");
    change("/ok", false);
    change("/exit_code", 1);
    change("/more", 1);
    change("/error", json::object());
    change("/applications/0/more", 1);
    change("/applications/0/code", -1);
    change("/applications/0/result", "GOOD");
    change("/applications/0/action", "fly");
    for (const json& document : bad) {
        EXPECT_NE(schema.Check(document), "") << document;
    }
}
