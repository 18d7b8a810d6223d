#include "daemons/procmgrd/launch/state_text.h"

#include <cstdint>
#include <optional>
#include <sstream>
#include <string_view>

#include "platform/posix/common_posix/percent_text.h"

namespace ProcMgr {
namespace {

std::string HexOf(uint32_t value, size_t digits) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string hex(digits, '0');
    for (size_t at = digits; at > 0; value >>= 4U) {
        hex[--at] = kDigits[value & 0xFU];
    }
    return hex;
}

std::string Checksum(std::string_view text) {
    uint32_t hash = 2166136261U;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    }
    return HexOf(hash, 8);
}

std::string NumbersOf(const ProcessId& process) {
    return std::to_string(process.pid) + " " + std::to_string(process.startTime);
}

/// The text before the checksum, when that is right.
std::optional<std::string> Unseal(const std::string& line) {
    const size_t end = line.rfind(' ');
    if (end == std::string::npos || Checksum(std::string_view(line).substr(0, end)) != line.substr(end + 1)) {
        return std::nullopt;
    }
    return line.substr(0, end);
}

std::string AfterPrefix(const std::string& field, const std::string& prefix) {
    return field.rfind(prefix, 0) == 0 ? PercentDecode(field.substr(prefix.size())) : std::string();
}

void Replay(const std::string& text, std::map<ProcessId, StateRecord>& records) {
    std::istringstream fields(text);
    std::string kind;
    std::string name;
    std::string owner;
    StateRecord record;
    if (!(fields >> kind >> record.process.pid >> record.process.startTime) || record.process.pid <= 1) {
        return;
    }
    if (kind == "-") {
        records.erase(record.process);
    } else if (kind == "+" && fields >> name >> owner) {
        record.appName = AfterPrefix(name, "name=");
        record.owner = AfterPrefix(owner, "owner=");
        records[record.process] = record;
    }
}

}  // namespace

std::string StateHeader(const std::string& bootId) {
    return "procmgr-state 1 " + bootId + "\n";
}

std::string SealLine(const std::string& text) {
    return text + " " + Checksum(text) + "\n";
}

std::string StartLine(const StateRecord& record) {
    return SealLine("+ " + NumbersOf(record.process) + " name=" + PercentEncode(record.appName) +
                    " owner=" + PercentEncode(record.owner));
}

std::string EndLine(const ProcessId& process) {
    return SealLine("- " + NumbersOf(process));
}

std::map<ProcessId, StateRecord> ReadStateText(const std::string& content, const std::string& bootId) {
    std::map<ProcessId, StateRecord> records;
    std::istringstream file(content);
    std::string line;
    if (!std::getline(file, line) || line + "\n" != StateHeader(bootId)) {
        return records;
    }
    while (std::getline(file, line)) {
        const auto text = Unseal(line);
        if (text && !file.eof()) {
            Replay(*text, records);
        }
    }
    return records;
}

}  // namespace ProcMgr
