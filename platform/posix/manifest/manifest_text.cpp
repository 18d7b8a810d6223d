#include "platform/posix/manifest/manifest_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <system_error>

namespace ProcMgr {
namespace {

constexpr size_t kMaxQuotedBytes = 64;

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7f;
}

/// The length of the longest prefix within the limit that does not cut a UTF-8 character.
size_t QuotedLength(const std::string& text) {
    if (text.size() <= kMaxQuotedBytes) {
        return text.size();
    }
    size_t length = kMaxQuotedBytes;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xc0U) == 0x80U) {
        --length;
    }
    return length;
}

std::string CheckName(const std::string& name) {
    if (name.empty()) {
        return "a name is empty; write one";
    }
    if (name.size() > kMaxNameBytes) {
        return "the name " + Quote(name) + " is longer than 255 bytes; shorten it";
    }
    if (name == "." || name == "..") {
        return "the name " + Quote(name) + " stands for a folder; choose another one";
    }
    const bool hasBad = std::any_of(name.begin(), name.end(), [](char character) {
        return character == '#' || character == '/' || IsControl(character);
    });
    return hasBad ? "the name " + Quote(name) + " holds '#', '/' or a control character; remove it" : "";
}

}  // namespace

size_t EditDistance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::string Quote(const std::string& text) {
    std::string out = "'";
    const size_t length = QuotedLength(text);
    for (size_t i = 0; i < length; ++i) {
        if (!IsControl(text[i])) {
            out += text[i];
            continue;
        }
        std::array<char, 5> code{};
        static_cast<void>(std::snprintf(code.data(), code.size(), "\\x%02x",
                                        static_cast<unsigned>(static_cast<unsigned char>(text[i]))));
        out += code.data();
    }
    return out + (length < text.size() ? "...'" : "'");
}

std::string NearestOf(const std::string& text, const std::vector<std::string>& candidates) {
    // A key of a hostile file may be a megabyte long; beyond this length nothing is near anyway.
    const std::string head = text.substr(0, kMaxQuotedBytes);
    std::string nearest;
    size_t best = 0;
    for (const std::string& candidate : candidates) {
        const size_t distance = EditDistance(head, candidate);
        if (nearest.empty() || distance < best) {
            nearest = candidate;
            best = distance;
        }
    }
    return nearest;
}

std::string CannotRead(int error) {
    return "cannot be read: " + std::generic_category().message(error) + "; check path and rights";
}

std::string CheckOwnName(const std::string& name) {
    std::string problem = CheckName(name);
    if (problem.empty() && name.find('@') != std::string::npos) {
        problem = "the name " + Quote(name) + " holds '@', which stands between a template and its instance; remove it";
    }
    return problem;
}

std::string CheckDependencyName(const std::string& name) {
    std::string problem = CheckName(name);
    const size_t at = name.find('@');
    if (problem.empty() && (at == 0 || at + 1 == name.size())) {
        problem = "the name " + Quote(name) + " is neither an application nor template@instance; correct it";
    }
    return problem;
}

std::string ReplaceKeys(const std::string& text, const std::map<std::string, std::string>& matchData,
                        std::string& out) {
    std::string result;
    size_t done = 0;
    for (size_t open = text.find("${"); open != std::string::npos; open = text.find("${", done)) {
        if (open > done && text[open - 1] == '$') {
            result.append(text, done, open - 1 - done).append("${");
            done = open + 2;
            continue;
        }
        const size_t close = text.find('}', open);
        if (close == std::string::npos) {
            return "a '${' is never closed; add '}', or write '$${' for a literal '${'";
        }
        const std::string key = text.substr(open + 2, close - open - 2);
        const auto found = matchData.find(key);
        if (found == matchData.end()) {
            return "there is no replacement data for " + Quote("${" + key + "}") +
                   "; add the key to the replacement data, or write '$${' for a literal '${'";
        }
        result.append(text, done, open - done).append(found->second);
        done = close + 1;
    }
    out = result.append(text, done, std::string::npos);
    return "";
}

}  // namespace ProcMgr
