#include "platform/posix/timeline/timeline_event.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/posix/common_posix/percent_text.h"
#include "platform/posix/common_posix/rows_in_order.h"

namespace ProcMgr::Timeline {
namespace {

constexpr std::string_view kHeader = "procmgr-timeline 1 ";
/// Would end a key or a name of a list.
constexpr std::string_view kSeparators = "=,";

/// A key of a line and the member that it fills; one of the three.
struct KeyRow {
    std::string_view key;
    uint64_t Event::*number = nullptr;
    std::string Event::*text = nullptr;
    std::vector<std::string> Event::*list = nullptr;
};

constexpr KeyRow Number(std::string_view key, uint64_t Event::*member) {
    return {key, member, nullptr, nullptr};
}
constexpr KeyRow Text(std::string_view key, std::string Event::*member) {
    return {key, nullptr, member, nullptr};
}

constexpr KeyRow kApp = Text("app", &Event::app);
constexpr KeyRow kPid = Number("pid", &Event::pid);

struct KindRow {
    EventKind kind;
    const char* name;
    std::array<KeyRow, 4> keys;  ///< in the order of the line
};

constexpr std::array<KindRow, kEventKinds> kKinds = {{
    {EventKind::CAME, "came", {{Text("owner", &Event::owner), kPid, Number("uid", &Event::uid)}}},
    {EventKind::LOADED, "loaded", {{Text("path", &Event::path), Number("good", &Event::good)}}},
    {EventKind::MANIFEST,
     "manifest",
     {{kApp,
       Number("boot", &Event::boot),
       Number("reports", &Event::reports),
       {"depends", nullptr, nullptr, &Event::depends}}}},
    {EventKind::ASKED, "asked", {{kApp, Number("request", &Event::request), Number("restart", &Event::restart)}}},
    {EventKind::FORKED, "forked", {{kApp, kPid}}},
    {EventKind::RUNNING, "running", {{kApp, kPid}}},
    {EventKind::READY, "ready", {{kApp, kPid}}},
    {EventKind::FAILED, "failed", {{kApp, Number("reason", &Event::reason), Number("detail", &Event::detail)}}},
    {EventKind::ENDING, "ending", {{kApp}}},
    {EventKind::EXITED, "exited", {{kApp, kPid, Number("code", &Event::code), Number("signal", &Event::signal)}}},
    {EventKind::SERVICES, "services", {{Number("state", &Event::state)}}},
    {EventKind::LEFT, "left", {}},
}};

static_assert(RowsAreInOrder(kKinds, &KindRow::kind), "a kind is the index of its row");

std::string JoinNames(const std::vector<std::string>& names) {
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ",") + PercentEncode(name, kSeparators);
    }
    return joined;
}

/// No name is empty.
std::vector<std::string> SplitNames(std::string_view joined) {
    std::vector<std::string> names;
    while (!joined.empty()) {
        const size_t comma = std::min(joined.find(','), joined.size());
        if (comma > 0) {
            names.push_back(PercentDecode(joined.substr(0, comma)));
        }
        joined.remove_prefix(std::min(comma + 1, joined.size()));
    }
    return names;
}

std::string ValueOf(const KeyRow& row, const Event& event) {
    if (row.number != nullptr) {
        return std::to_string(event.*row.number);
    }
    return row.text != nullptr ? PercentEncode(event.*row.text, kSeparators) : JoinNames(event.*row.list);
}

/// Whoever adds or subtracts two of these numbers, or makes JSON of them, stays within what can be held.
template <typename Integer>
bool TakeNumber(std::string_view text, Integer& number) {
    constexpr Integer kMost = Integer{1} << 53U;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= 0 && number <= kMost;
}

bool TakeValue(const KeyRow& row, std::string_view value, Event& event) {
    if (row.number != nullptr) {
        return TakeNumber(value, event.*row.number);
    }
    if (row.text != nullptr) {
        event.*row.text = PercentDecode(value);
    } else {
        event.*row.list = SplitNames(value);
    }
    return true;
}

std::string_view TakeWord(std::string_view& line) {
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, blank);
    line.remove_prefix(std::min(blank + 1, line.size()));
    return word;
}

/// The value of the key in the rest of a line.
std::optional<std::string_view> FindValue(std::string_view rest, std::string_view key) {
    while (!rest.empty()) {
        const std::string_view word = TakeWord(rest);
        if (word.size() > key.size() && word.substr(0, key.size()) == key && word[key.size()] == '=') {
            return word.substr(key.size() + 1);
        }
    }
    return std::nullopt;
}

/// What is wrong with the keys of the line, or nothing.
std::string TakeKeys(const KindRow& kind, std::string_view rest, Event& event) {
    for (const KeyRow& row : kind.keys) {
        if (row.key.empty()) {
            break;
        }
        const auto value = FindValue(rest, row.key);
        if (!value || !TakeValue(row, *value, event)) {
            return std::string("an event '") + kind.name + "' lacks a good '" + std::string(row.key) + "='";
        }
    }
    return {};
}

/// What is wrong with the line, or nothing; `isKnown` tells whether `event` is filled.
std::string TakeEvent(std::string_view line, Event& event, bool& isKnown) {
    const std::string_view serial = TakeWord(line);
    const std::string_view monotonic = TakeWord(line);
    const std::string_view wall = TakeWord(line);
    const std::string_view name = TakeWord(line);
    if (!TakeNumber(serial, event.serial) || !TakeNumber(monotonic, event.monotonicUs) ||
        !TakeNumber(wall, event.wallUs) || name.empty()) {
        return "it does not begin with a serial, two times and the name of an event";
    }
    const auto* const kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const KindRow& row) { return name == row.name; });
    isKnown = kind != kKinds.end();
    if (!isKnown) {
        return {};
    }
    event.kind = kind->kind;
    return TakeKeys(*kind, line, event);
}

std::string TakeHeader(std::string_view line, RecordPart& part) {
    if (line.substr(0, kHeader.size()) != kHeader) {
        return "it does not begin with '" + std::string(kHeader) +
               "...', so that it is no record, or one of another kind";
    }
    part.bootId = PercentDecode(line.substr(kHeader.size()));
    return {};
}

std::string TakeLine(std::string_view line, RecordPart& part) {
    Event event;
    bool isKnown = false;
    std::string problem = TakeEvent(line, event, isKnown);
    if (!problem.empty()) {
        return problem;
    }
    if (event.serial <= part.lastSerial) {
        return "its serial is not above that of the event before";
    }
    if (event.monotonicUs < part.lastMonotonicUs) {
        return "its time is before that of the event before";
    }
    part.lastSerial = event.serial;
    part.lastMonotonicUs = event.monotonicUs;
    if (isKnown) {
        part.events.push_back(std::move(event));
    }
    return {};
}

}  // namespace

Event EventOf(EventKind kind, std::string app, uint64_t pid) {
    Event event;
    event.kind = kind;
    event.app = std::move(app);
    event.pid = pid;
    return event;
}

const char* EventName(EventKind kind) {
    return kKinds[static_cast<size_t>(kind)].name;
}

std::string WriteHeader(const std::string& bootId) {
    return std::string(kHeader) + PercentEncode(bootId) + "\n";
}

std::string WriteEvent(const Event& event) {
    const KindRow& kind = kKinds[static_cast<size_t>(event.kind)];
    std::string line = std::to_string(event.serial) + " " + std::to_string(event.monotonicUs) + " " +
                       std::to_string(event.wallUs) + " " + kind.name;
    for (const KeyRow& row : kind.keys) {
        if (row.key.empty()) {
            break;
        }
        line.append(" ").append(row.key).append("=").append(ValueOf(row, event));
    }
    return line + "\n";
}

bool ReadPart(std::string_view text, RecordPart& part, RecordFault& fault) {
    RecordPart read;
    RecordFault found{1, text.find('\n') == std::string_view::npos ? "it is empty or ends inside its first line" : ""};
    for (size_t end = text.find('\n'); end != std::string_view::npos && found.text.empty(); end = text.find('\n')) {
        const std::string_view line = text.substr(0, end);
        found.text = found.line == 1 ? TakeHeader(line, read) : TakeLine(line, read);
        found.line += found.text.empty() ? 1 : 0;
        text.remove_prefix(end + 1);
    }
    if (!found.text.empty()) {
        fault = std::move(found);
        return false;
    }
    read.isTorn = !text.empty();
    part = std::move(read);
    return true;
}

}  // namespace ProcMgr::Timeline
