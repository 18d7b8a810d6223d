#include "tools/ssctl/reports.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <string_view>
#include <utility>

#include "common/enumeration_names.h"
#include "common/enumerations.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;
using ProcMgr::AppInfo;
using ProcMgr::OptionType;

constexpr const char* kUnknown = "UNKNOWN";

struct Action {
    OptionType type;
    const char* name;
};

// The same three in two orders.
constexpr std::array<Action, 3> kOrderOfWork = {
    {{OptionType::TERM, "stop"}, {OptionType::START, "start"}, {OptionType::RESTART, "restart"}}};
constexpr std::array<Action, 3> kOrderOfAnswer = {
    {{OptionType::START, "start"}, {OptionType::TERM, "stop"}, {OptionType::RESTART, "restart"}}};

bool IsAsked(const std::vector<AppInfo>& asked, std::string_view name, OptionType type) {
    return std::any_of(asked.begin(), asked.end(), [&](const AppInfo& app) {
        return app.name == name && app.optionType == static_cast<uint32_t>(type);
    });
}

bool IsNamed(const std::vector<AppInfo>& asked, std::string_view name) {
    return std::any_of(asked.begin(), asked.end(), [&](const AppInfo& app) { return app.name == name; });
}

/// The operations that `lines` lines of the answer about this application are about, in the order of the lines.
std::vector<std::string> ActionsOf(const std::vector<AppInfo>& asked, const std::string& name, size_t lines) {
    const std::string_view key =
        IsNamed(asked, name) ? std::string_view(name) : std::string_view(name).substr(0, name.find('@'));
    std::vector<OptionType> done;
    for (const Action& action : kOrderOfWork) {
        if (done.size() < lines && IsAsked(asked, key, action.type)) {
            done.push_back(action.type);
        }
    }
    std::vector<std::string> actions;
    for (const Action& action : kOrderOfAnswer) {
        if (std::find(done.begin(), done.end(), action.type) != done.end()) {
            actions.emplace_back(action.name);
        }
    }
    actions.resize(lines);
    return actions;
}

std::string ResultName(AppChangeState state) {
    const std::string name = ProcMgr::GetAppState(ProcMgr::ToValue(state));
    return name.empty() ? kUnknown : name;
}

Tone ToneOf(AppChangeState state) {
    return state == AppChangeState::SUCCESS ? Tone::GOOD : Tone::BAD;
}

constexpr int32_t kNotRunning = 1;

struct StateRow {
    const char* name;
    Tone tone;
};

StateRow StateRowOf(int32_t state) {
    constexpr std::array<StateRow, 3> kRows = {
        {{"RUNNING", Tone::GOOD}, {"NOT_RUNNING", Tone::PLAIN}, {"IN_TRANSITION", Tone::BUSY}}};
    const auto at = static_cast<uint32_t>(state);
    return at < kRows.size() ? kRows[at] : StateRow{kUnknown, Tone::BAD};
}

/// A name outside the known ones is shown with its number.
std::string WithNumber(const std::string& name, int64_t number) {
    return name == kUnknown ? name + "(" + std::to_string(number) + ")" : name;
}

std::string Dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

void AddChange(const AppChangeInfo& app, const std::string& action, Outcome& outcome) {
    const std::string result = ResultName(app.state);
    const auto code = static_cast<uint32_t>(app.state);
    outcome.table.rows.push_back(
        {{app.appName}, {Dash(action)}, {WithNumber(result, static_cast<int64_t>(code)), ToneOf(app.state)}});
    outcome.members["applications"].push_back({{"name", app.appName},
                                               {"action", action.empty() ? Json() : Json(action)},
                                               {"result", result},
                                               {"code", code},
                                               {"ok", app.state == AppChangeState::SUCCESS}});
}

void JudgeChange(const ChangeAnswer& answer, Outcome& outcome) {
    const auto failed = std::count_if(answer.apps.begin(), answer.apps.end(),
                                      [](const AppChangeInfo& app) { return app.state != AppChangeState::SUCCESS; });
    if (answer.ok && failed == 0) {
        return;
    }
    outcome.fault = Fault::FAILED;
    if (failed != 0) {
        outcome.problem =
            std::to_string(failed) + " of " + std::to_string(answer.apps.size()) + " operations did not succeed";
        outcome.advice = "See how things stand with 'ssctl state'; the log of the group owner says why.";
        return;
    }
    outcome.problem = "the change was not completed";
    outcome.advice = "See how things stand with 'ssctl state', and allow more time with --timeout.";
}

Outcome RefuseChange() {
    Outcome outcome = Complain(Fault::REFUSED, "the group owner refused the change",
                               "Another change may be running: try again later. The log of the group owner says why.");
    outcome.members["applications"] = Json::array();
    return outcome;
}

}  // namespace

std::vector<std::string> MatchActions(const std::vector<AppInfo>& asked, const std::vector<AppChangeInfo>& answered) {
    std::map<std::string, size_t> lines;
    for (const AppChangeInfo& app : answered) {
        ++lines[app.appName];
    }
    std::map<std::string, size_t> seen;
    std::vector<std::string> actions;
    actions.reserve(answered.size());
    for (const AppChangeInfo& app : answered) {
        actions.push_back(ActionsOf(asked, app.appName, lines[app.appName])[seen[app.appName]++]);
    }
    return actions;
}

Outcome ReportChange(const std::vector<AppInfo>& asked, const ChangeAnswer& answer) {
    if (!answer.ok && answer.apps.empty()) {
        return RefuseChange();
    }
    Outcome outcome;
    outcome.table.columns = {{"APPLICATION"}, {"ACTION"}, {"RESULT"}};
    outcome.members["applications"] = Json::array();
    const std::vector<std::string> actions = MatchActions(asked, answer.apps);
    for (size_t at = 0; at < answer.apps.size(); ++at) {
        AddChange(answer.apps[at], actions[at], outcome);
    }
    JudgeChange(answer, outcome);
    return outcome;
}

Outcome ReportList(const ListAnswer& answer, bool namesOnly) {
    Outcome outcome;
    outcome.members["applications"] = Json::array();
    if (!answer.ok) {
        outcome.fault = Fault::REFUSED;
        outcome.problem = "the group owner gave no list of its applications";
        outcome.advice = "The log of the group owner says why.";
        return outcome;
    }
    if (answer.names.empty() && !namesOnly) {
        outcome.sentence = "The group has no applications.";
        return outcome;
    }
    outcome.table.columns = {{"APPLICATION"}};
    outcome.table.hasTitles = !namesOnly;
    for (const std::string& name : answer.names) {
        outcome.table.rows.push_back({{name}});
        outcome.members["applications"].push_back({{"name", name}});
    }
    return outcome;
}

Outcome ReportState(size_t asked, const StateAnswer& answer) {
    Outcome outcome;
    outcome.table.columns = {{"APPLICATION"}, {"PID", Align::RIGHT}, {"STATE"}};
    outcome.members["applications"] = Json::array();
    for (const AppStatus& app : answer.apps) {
        const StateRow row = StateRowOf(app.state);
        // The owner also tells the process that an application had last.
        const bool hasProcess = app.pid >= 0 && app.state != kNotRunning;
        outcome.table.rows.push_back(
            {{app.appName}, {hasProcess ? std::to_string(app.pid) : "-"}, {WithNumber(row.name, app.state), row.tone}});
        outcome.members["applications"].push_back({{"name", app.appName},
                                                   {"pid", hasProcess ? Json(app.pid) : Json()},
                                                   {"state", row.name},
                                                   {"code", app.state}});
    }
    if (answer.ok && answer.apps.size() == asked) {
        return outcome;
    }
    if (answer.apps.empty()) {
        outcome.table.columns.clear();
    }
    outcome.fault = Fault::FAILED;
    outcome.problem =
        "the states of " + std::to_string(answer.apps.size()) + " of " + std::to_string(asked) + " applications came";
    outcome.advice =
        "The process manager may be slow or gone: try a longer --timeout; the log of the group owner says"
        " more.";
    return outcome;
}

Outcome ReportEvent(uint32_t state) {
    Outcome outcome;
    const std::string name = SystemStateName(state);
    outcome.sentence = WithNumber(name, state);
    outcome.members["event"] = {{"state", state}, {"name", name}};
    return outcome;
}

std::string SystemStateName(int64_t state) {
    const std::string name = ProcMgr::GetSysState(static_cast<uint64_t>(state));
    return name.empty() ? kUnknown : name;
}

}  // namespace Ssctl
