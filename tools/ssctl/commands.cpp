#include "tools/ssctl/commands.h"

#include <algorithm>
#include <array>
#include <utility>

#include "tools/ssctl/reports.h"
#include "tools/ssctl/timeline/timeline_command.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kLookFirst =
    "The request may still be carried out: see with 'ssctl state', and wait longer with --wait.";

Outcome ComplainOfUsage(const std::string& problem) {
    return Complain(Fault::USAGE, problem, "Nothing was sent.");
}

Outcome ComplainOfAnswer(const std::string& problem) {
    return Complain(Fault::BAD_ANSWER, problem,
                    "Is the resource a group owner's? The log of the group owner may say what it did.");
}

Outcome ComplainOfResult(int result) {
    return ComplainOfAnswer("the service refused the request as such, with " + std::to_string(result));
}

/// An answer's payload, or what to say instead.
struct Asked {
    std::string payload;
    Outcome outcome;
};

Asked AskFor(const CommandLine& line, RequestKind kind, std::string payload, const Ask& ask) {
    const Reply reply = ask({kind, line.timeoutMs, WaitMs(line), std::move(payload)});
    if (reply.delivery != Delivery::ANSWERED) {
        return {{}, ComplainOfDelivery(line, reply)};
    }
    if (reply.result < 0) {
        return {{}, ComplainOfResult(reply.result)};
    }
    auto answer = TakePayload(reply.result, reply.record);
    if (!answer) {
        return {{}, ComplainOfAnswer(answer.What())};
    }
    return {std::move(*answer), {}};
}

/// Asks, reads the answer with `read`, and hands it to `report`.
template <typename Read, typename Report>
Outcome AskAndReport(const CommandLine& line, RequestKind kind, std::string payload, const Ask& ask, Read read,
                     Report report) {
    Asked asked = AskFor(line, kind, std::move(payload), ask);
    if (asked.outcome.fault != Fault::NONE) {
        return std::move(asked.outcome);
    }
    const auto answer = read(asked.payload);
    return answer ? report(*answer) : ComplainOfAnswer(answer.What());
}

Outcome RunChange(const CommandLine& line, const Ask& ask) {
    const auto apps = AssembleChange(line.change);
    if (!apps) {
        return ComplainOfUsage(apps.What());
    }
    auto payload = WriteChange(*apps);
    if (!payload) {
        return ComplainOfUsage(payload.What());
    }
    return AskAndReport(line, RequestKind::CHANGE, std::move(*payload), ask, ReadChange,
                        [&](const ChangeAnswer& answer) { return ReportChange(*apps, answer); });
}

Outcome RunList(const CommandLine& line, const Ask& ask) {
    return AskAndReport(line, RequestKind::LIST, {}, ask, ReadList,
                        [&](const ListAnswer& answer) { return ReportList(answer, line.namesOnly); });
}

/// The answers of all the queries as one, until one fails.
Outcome AskStates(const CommandLine& line, const std::vector<std::string>& names, const Ask& ask) {
    auto batches = WriteStateQueries(names);
    if (!batches) {
        return ComplainOfUsage(batches.What());
    }
    StateAnswer all{true, {}};
    for (StateBatch& batch : *batches) {
        Asked asked = AskFor(line, RequestKind::STATE, std::move(batch.payload), ask);
        if (asked.outcome.fault != Fault::NONE) {
            return std::move(asked.outcome);
        }
        auto answer = ReadState(asked.payload);
        if (!answer) {
            return ComplainOfAnswer(answer.What());
        }
        all.ok = all.ok && answer->ok;
        std::move(answer->apps.begin(), answer->apps.end(), std::back_inserter(all.apps));
    }
    return ReportState(names.size(), all);
}

Outcome RunState(const CommandLine& line, const Ask& ask) {
    const auto named = CheckNames(line.names);
    if (!named) {
        return ComplainOfUsage(named.What());
    }
    if (!line.names.empty()) {
        return AskStates(line, line.names, ask);
    }
    return AskAndReport(line, RequestKind::LIST, {}, ask, ReadList, [&](const ListAnswer& answer) {
        return answer.ok && !answer.names.empty() ? AskStates(line, answer.names, ask) : ReportList(answer, false);
    });
}

Outcome RunVerify(const CommandLine& line, const Ask& ask) {
    const auto apps = AssembleVerification(line.verified);
    if (!apps) {
        return ComplainOfUsage(apps.What());
    }
    auto payload = WriteVerification(*apps);
    if (!payload) {
        return ComplainOfUsage(payload.What());
    }
    return AskAndReport(line, RequestKind::VERIFY, std::move(*payload), ask, ReadFlag, [&](bool ok) {
        Outcome outcome = ok ? Outcome()
                             : Complain(Fault::REFUSED, "the group owner refused the verification",
                                        "The log of the group owner says why.");
        outcome.sentence = ok ? "The group owner took note of " + std::to_string(apps->size()) + " applications." : "";
        outcome.members["applications"] = Json::array();
        for (const auto& [name, value] : *apps) {
            outcome.members["applications"].push_back({{"name", name}, {"value", value}});
        }
        return outcome;
    });
}

Outcome RunSetState(const CommandLine& line, const Ask& ask) {
    const auto state = ParseSystemState(line.systemState);
    if (!state) {
        return ComplainOfUsage(state.What());
    }
    const std::string name = SystemStateName(*state);
    const std::string shown = name + " (" + std::to_string(*state) + ")";
    return AskAndReport(line, RequestKind::SET_STATE, WriteSystemState(*state), ask, ReadFlagField, [&](bool ok) {
        Outcome outcome = ok ? Outcome()
                             : Complain(Fault::REFUSED, "the group owner refused the system state " + shown,
                                        "The process that owns the group decides; its log may say why.");
        outcome.sentence = ok ? "The system state is " + shown + "." : "";
        outcome.members["state"] = {{"name", name}, {"code", *state}};
        return outcome;
    });
}

/// A command without parameters whose answer is yes or no.
struct PlainCommand {
    const char* name;
    RequestKind kind;
    const char* done;
    const char* problem;
    const char* advice;
};

constexpr std::array<PlainCommand, 3> kPlainCommands = {{
    {"reload", RequestKind::RELOAD, "The group owner read its manifests again.", "the group owner did not reload",
     "While a change runs it refuses; otherwise its manifests may be bad ('ssctl check PATH' tells), and its"
     " log says why."},
    {"dump", RequestKind::DUMP, "The group owner wrote what it knows to its log.", "the group owner wrote no dump",
     "The log of the group owner says why."},
    {"stop-all", RequestKind::STOP_ALL, "Every application is stopped.", "not every application stopped",
     "See which with 'ssctl state'; the log of the group owner names them."},
}};

Outcome RunPlain(const CommandLine& line, const Ask& ask) {
    const auto* const command = std::find_if(kPlainCommands.begin(), kPlainCommands.end(),
                                             [&](const PlainCommand& row) { return line.command == row.name; });
    return AskAndReport(line, command->kind, {}, ask, ReadFlag, [&](bool ok) {
        Outcome outcome = ok ? Outcome() : Complain(Fault::REFUSED, command->problem, command->advice);
        outcome.sentence = ok ? command->done : "";
        return outcome;
    });
}

struct CommandRow {
    const char* name;
    Outcome (*run)(const CommandLine&, const Ask&);
    const char* work;  ///< null: a change, which says it itself
};

constexpr std::array<CommandRow, 12> kCommands = {{
    {"list", RunList, "asking for the list"},
    {"state", RunState, "asking for states"},
    {"start", RunChange, nullptr},
    {"stop", RunChange, nullptr},
    {"restart", RunChange, nullptr},
    {"change", RunChange, nullptr},
    {"verify", RunVerify, "verifying"},
    {"set-state", RunSetState, "setting the system state"},
    {kPlainCommands[0].name, RunPlain, "reloading"},
    {kPlainCommands[1].name, RunPlain, "dumping"},
    {kPlainCommands[2].name, RunPlain, "stopping everything"},
    {"timeline", [](const CommandLine& line, const Ask&) { return RunTimeline(line); }, "reading the record"},
}};

const CommandRow* FindCommand(const std::string& name) {
    const auto* const found =
        std::find_if(kCommands.begin(), kCommands.end(), [&](const CommandRow& row) { return name == row.name; });
    return found == kCommands.end() ? nullptr : found;
}

void AddWork(const char* what, size_t count, std::string& work) {
    if (count != 0) {
        work += (work.empty() ? "" : ", ") + std::string(what) + " " + std::to_string(count);
    }
}

}  // namespace

Outcome RunCommand(const CommandLine& line, const Ask& ask) {
    const CommandRow* const command = FindCommand(line.command);
    return command == nullptr ? ComplainOfUsage("there is no command '" + line.command + "'") : command->run(line, ask);
}

std::string DescribeWork(const CommandLine& line) {
    const CommandRow* const command = FindCommand(line.command);
    if (command != nullptr && command->work != nullptr) {
        return command->work;
    }
    std::string work;
    AddWork("stopping", line.change.stop.size(), work);
    AddWork("starting", line.change.start.size(), work);
    AddWork("restarting", line.change.restart.size(), work);
    return work;
}

Outcome ComplainOfDelivery(const CommandLine& line, const Reply& reply) {
    const std::string resource = "'" + line.resource + "'";
    const std::string detail = reply.detail.empty() ? "" : ": " + reply.detail;
    switch (reply.delivery) {
        case Delivery::NO_SERVICE:
            return Complain(Fault::NO_SERVICE, "no group owner serves " + resource + " in " + RunDirName(line) + detail,
                            "Start one with 'grpownerd --resource " + line.resource +
                                "', or choose another with --resource and --run-dir.");
        case Delivery::LOST:
            return Complain(Fault::NO_SERVICE, "the group owner behind " + resource + " went away" + detail,
                            "The request may have been carried out in part: start the owner again, then look with"
                            " 'ssctl state'.");
        case Delivery::DENIED:
            return Complain(
                Fault::DENIED, "you may not do that with " + resource + detail,
                "Run it as the user of the group owner or as root, or have the owner's rule file (its PROCMGR_SS_RULES) grant"
                " it.");
        case Delivery::TIMED_OUT:
            return Complain(Fault::TIMED_OUT,
                            "no answer from " + resource + " within " + std::to_string(WaitMs(line)) + " ms" + detail,
                            kLookFirst);
        case Delivery::BAD_NAME:
            return Complain(Fault::USAGE, "there can be no service " + resource + detail,
                            "Choose another with --resource and --run-dir.");
        default:
            return Complain(Fault::BAD_ANSWER, "the request to " + resource + " failed" + detail,
                            "The log of the group owner may say why.");
    }
}

}  // namespace Ssctl
