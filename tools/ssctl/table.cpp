#include "tools/ssctl/table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace Ssctl {

namespace {

constexpr const char* kReset = "\x1b[0m";
constexpr const char* kBold = "\x1b[1m";

/// One for each Tone.
constexpr std::array<const char*, 4> kColours = {"", "\x1b[32m", "\x1b[31m", "\x1b[33m"};

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// The bytes that a UTF-8 sequence with this first byte has; 0 for a byte that can't begin one.
size_t SequenceLength(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return 2;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        return 3;
    }
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

/// The length of the harmless character in front of the text; 0 when there is none.
size_t HarmlessLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    const size_t length = SequenceLength(first);
    if (length == 0 || length > text.size() || first < 0x20 || first == 0x7F) {
        return 0;
    }
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), IsContinuation)) {
        return 0;
    }
    const auto second = length > 1 ? static_cast<unsigned char>(text[1]) : 0U;
    const bool isControl = first == 0xC2 && second < 0xA0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isNoCharacter = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return isControl || isOverlong || isNoCharacter ? 0 : length;
}

std::string Escape(char byte) {
    constexpr const char* kDigits = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {'\\', 'x', kDigits[value >> 4U], kDigits[value & 0x0FU]};
}

/// Characters, not bytes.
size_t Width(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !IsContinuation(byte); }));
}

struct Painted {
    std::string text;
    const char* colour;
};

std::string Paint(const Painted& painted, bool wantsColour) {
    if (!wantsColour || *painted.colour == '\0') {
        return painted.text;
    }
    return painted.colour + painted.text + kReset;
}

/// A line of the table. Padding stands outside the colour.
std::string RenderLine(const std::vector<Painted>& cells, const Table& table, const std::vector<size_t>& widths,
                       bool wantsColour) {
    std::string line;
    for (size_t at = 0; at < cells.size(); ++at) {
        const std::string padding(widths[at] - Width(cells[at].text), ' ');
        const bool isRight = table.columns[at].align == Align::RIGHT;
        const bool isLast = at + 1 == cells.size();
        line += isRight ? padding : "";
        line += Paint(cells[at], wantsColour);
        line += isRight || isLast ? "" : padding;
        line += isLast ? "\n" : "  ";
    }
    return line;
}

std::vector<Painted> TitleLine(const Table& table) {
    std::vector<Painted> line;
    line.reserve(table.columns.size());
    for (const Column& column : table.columns) {
        line.push_back({column.title, kBold});
    }
    return line;
}

std::vector<Painted> RowLine(const std::vector<Cell>& row) {
    std::vector<Painted> line;
    line.reserve(row.size());
    for (const Cell& cell : row) {
        line.push_back({Printable(cell.text), kColours[static_cast<size_t>(cell.tone)]});
    }
    return line;
}

}  // namespace

std::string Printable(const std::string& text) {
    std::string printable;
    std::string_view rest = text;
    while (!rest.empty()) {
        const size_t length = HarmlessLength(rest);
        printable += length == 0 ? Escape(rest.front()) : std::string(rest.substr(0, length));
        rest.remove_prefix(std::max<size_t>(length, 1));
    }
    return printable;
}

std::string RenderTable(const Table& table, bool wantsColour) {
    std::vector<std::vector<Painted>> lines;
    if (table.hasTitles) {
        lines.push_back(TitleLine(table));
    }
    std::transform(table.rows.begin(), table.rows.end(), std::back_inserter(lines), RowLine);
    std::vector<size_t> widths(table.columns.size());
    for (const std::vector<Painted>& line : lines) {
        for (size_t at = 0; at < line.size(); ++at) {
            widths[at] = std::max(widths[at], Width(line[at].text));
        }
    }
    std::string text;
    for (const std::vector<Painted>& line : lines) {
        text += RenderLine(line, table, widths, wantsColour);
    }
    return text;
}

}  // namespace Ssctl
