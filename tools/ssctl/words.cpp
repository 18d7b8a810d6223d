#include "tools/ssctl/words.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <set>
#include <system_error>
#include <utility>

#include "common/enumeration_names.h"
#include "common/enumerations.h"

namespace Ssctl {

namespace {

using ProcMgr::AppInfo;
using ProcMgr::OptionType;
using Texts = std::vector<std::string>;

/// What verify calls the two conditions that it is mostly about.
constexpr uint32_t kVerifiedRunning = 0;
constexpr uint32_t kVerifiedTerminated = 1;

template <typename Number>
bool ParseNumber(const std::string& text, Number& number) {
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

Problem HashProblem(const std::string& text) {
    return {"'" + text + "' holds a '#', which ends a field of a request"};
}

bool HasHash(const std::string& text) {
    return text.find('#') != std::string::npos;
}

/// A text of the form LEFT=RIGHT; `hasRight` tells "b=" from "b".
struct Pair {
    std::string left;
    std::string right;
    bool hasRight = false;
};

Pair SplitPair(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        return {text, {}, false};
    }
    return {text.substr(0, equals), text.substr(equals + 1), true};
}

Checked<std::vector<AppInfo>> MakeApps(const Texts& names, OptionType type, std::vector<AppInfo> apps) {
    std::set<std::string> seen;
    const auto checked = CheckNames(names);
    if (!checked) {
        return Problem{checked.What()};
    }
    for (const std::string& name : names) {
        if (!seen.insert(name).second) {
            return Problem{"'" + name + "' is named twice for the same operation"};
        }
        AppInfo app;
        app.name = name;
        app.optionType = static_cast<uint32_t>(type);
        apps.push_back(std::move(app));
    }
    return apps;
}

/// The entries that an argument or a parameter for `name` belongs to.
std::vector<AppInfo*> Receivers(const std::string& name, std::vector<AppInfo>& apps) {
    std::vector<AppInfo*> receivers;
    for (AppInfo& app : apps) {
        if (app.name == name && app.optionType != static_cast<uint32_t>(OptionType::TERM)) {
            receivers.push_back(&app);
        }
    }
    return receivers;
}

Problem NoReceiver(const std::string& word, const std::string& name) {
    return {"'" + word + "' is for '" + name + "', which this request neither starts nor restarts"};
}

/// Adds what one --args says; the text of the problem, or nothing.
std::string AddArgs(const std::string& word, std::vector<AppInfo>& apps) {
    const Pair pair = SplitPair(word);
    if (!pair.hasRight) {
        return "'" + word + "' is not of the form NAME=VALUE,VALUE";
    }
    const auto values = SplitList(pair.right);
    if (!values) {
        return values.What();
    }
    const std::vector<AppInfo*> receivers = Receivers(pair.left, apps);
    for (AppInfo* app : receivers) {
        app->argv.insert(app->argv.end(), values->begin(), values->end());
    }
    return receivers.empty() ? NoReceiver(word, pair.left).text : std::string();
}

/// Adds what one --para says. "NAME:INDEX" alone is a parameter without values.
std::string AddPara(const std::string& word, std::vector<AppInfo>& apps) {
    const Pair pair = SplitPair(word);
    const size_t colon = pair.left.rfind(':');
    int32_t index = 0;
    if (colon == std::string::npos || !ParseNumber(pair.left.substr(colon + 1), index)) {
        return "'" + word + "' is not of the form NAME:INDEX=VALUE,VALUE";
    }
    const auto values = SplitList(pair.right);
    if (!values) {
        return values.What();
    }
    const std::string name = pair.left.substr(0, colon);
    const std::vector<AppInfo*> receivers = Receivers(name, apps);
    for (AppInfo* app : receivers) {
        Texts& group = app->dynamicPara[index];
        if (pair.hasRight) {
            group.insert(group.end(), values->begin(), values->end());
        }
    }
    return receivers.empty() ? NoReceiver(word, name).text : std::string();
}

template <typename Add>
std::string AddEach(const Texts& words, std::vector<AppInfo>& apps, Add add) {
    for (const std::string& word : words) {
        std::string problem = add(word, apps);
        if (!problem.empty()) {
            return problem;
        }
    }
    return {};
}

std::string UpperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return text;
}

Checked<uint32_t> ParseVerifiedValue(const std::string& word, const Pair& pair) {
    const std::string name = UpperCase(pair.right);
    uint32_t value = 0;
    if (name == "RUNNING") {
        return kVerifiedRunning;
    }
    if (name == "TERMINATED") {
        return kVerifiedTerminated;
    }
    if (!pair.hasRight || !ParseNumber(pair.right, value)) {
        return Problem{"'" + word + "' is not of the form NAME=VALUE with running, terminated or a number below 2^32"};
    }
    return value;
}

}  // namespace

Checked<Texts> SplitList(const std::string& text) {
    Texts values(1);
    bool isEscaped = false;
    for (const char letter : text) {
        if (isEscaped || (letter != ',' && letter != '\\')) {
            values.back() += letter;
            isEscaped = false;
        } else if (letter == ',') {
            values.emplace_back();
        } else {
            isEscaped = true;
        }
    }
    if (isEscaped) {
        return Problem{"'" + text + "' ends with a backslash that has nothing to take"};
    }
    if (HasHash(text)) {
        return HashProblem(text);
    }
    return values;
}

Checked<Texts> SplitNames(const Texts& lists) {
    Texts names;
    for (const std::string& list : lists) {
        const auto values = SplitList(list);
        if (!values) {
            return Problem{values.What()};
        }
        names.insert(names.end(), values->begin(), values->end());
    }
    return names;
}

Checked<Texts> CheckNames(const Texts& names) {
    for (const std::string& name : names) {
        if (name.empty()) {
            return Problem{"an application's name is empty"};
        }
        if (HasHash(name)) {
            return HashProblem(name);
        }
    }
    return names;
}

Checked<std::vector<AppInfo>> AssembleChange(const ChangeWords& words) {
    const std::pair<const Texts*, OptionType> kinds[] = {
        {&words.stop, OptionType::TERM}, {&words.start, OptionType::START}, {&words.restart, OptionType::RESTART}};
    std::vector<AppInfo> apps;
    for (const auto& [names, type] : kinds) {
        auto more = MakeApps(*names, type, std::move(apps));
        if (!more) {
            return more;
        }
        apps = std::move(*more);
    }
    if (apps.empty()) {
        return Problem{"no application is named; say which to stop, start or restart"};
    }
    std::string problem = AddEach(words.args, apps, AddArgs);
    if (problem.empty()) {
        problem = AddEach(words.paras, apps, AddPara);
    }
    if (!problem.empty()) {
        return Problem{problem};
    }
    return apps;
}

Checked<std::map<std::string, uint32_t>> AssembleVerification(const Texts& words) {
    std::map<std::string, uint32_t> apps;
    for (const std::string& word : words) {
        const Pair pair = SplitPair(word);
        const auto value = ParseVerifiedValue(word, pair);
        if (!value) {
            return Problem{value.What()};
        }
        const auto names = CheckNames({pair.left});
        if (!names) {
            return Problem{names.What()};
        }
        if (!apps.emplace(pair.left, *value).second) {
            return Problem{"'" + pair.left + "' is named twice"};
        }
    }
    return apps;
}

Checked<int> ParseSystemState(const std::string& word) {
    const std::string name = UpperCase(word);
    std::string known;
    for (int state = 0; !ProcMgr::GetSysState(static_cast<uint64_t>(state)).empty(); ++state) {
        const std::string stateName = ProcMgr::GetSysState(static_cast<uint64_t>(state));
        if (name == stateName) {
            return state;
        }
        known += stateName + ", ";
    }
    int number = 0;
    if (!ParseNumber(word, number)) {
        return Problem{"'" + word + "' is no system state; say " + known + "or a number"};
    }
    return number;
}

}  // namespace Ssctl
