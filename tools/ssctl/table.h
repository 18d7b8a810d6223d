/// Tables for people: columns that stand under each other, colour only where it is wanted.
#ifndef SSCTL_TABLE_H
#define SSCTL_TABLE_H

#include <string>
#include <vector>

namespace Ssctl {

enum class Tone { PLAIN, GOOD, BAD, BUSY };

struct Cell {
    std::string text;
    Tone tone = Tone::PLAIN;
};

enum class Align { LEFT, RIGHT };

struct Column {
    std::string title;
    Align align = Align::LEFT;
};

/// Every row has as many cells as there are columns.
struct Table {
    std::vector<Column> columns;
    std::vector<std::vector<Cell>> rows;
    bool hasTitles = true;
};

/// A line for the titles, if it has them, and one for each row, two blanks between columns, none at the end of a line.
[[nodiscard]] std::string RenderTable(const Table& table, bool wantsColour);

/// The text without anything that could steer a terminal: control characters and bytes that are no UTF-8 become "\xNN".
[[nodiscard]] std::string Printable(const std::string& text);

}  // namespace Ssctl

#endif
