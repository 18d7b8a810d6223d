/// The examples of docs/protocol.md, so that a test can compare each with what the code writes and reads. A test that
/// uses this has PROTOCOL_PAGE defined as the path of the page.
#ifndef PROCMGR_TESTS_COMMON_PROTOCOL_EXAMPLES_H
#define PROCMGR_TESTS_COMMON_PROTOCOL_EXAMPLES_H

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ProtocolExamples {

/// A row: its label, and what stood in each of the other cells.
struct Row {
    std::string label;
    std::vector<std::string> values;
};

inline bool IsHexPair(const std::string& word) {
    return word.size() == 2 && std::isxdigit(static_cast<unsigned char>(word[0])) != 0 &&
           std::isxdigit(static_cast<unsigned char>(word[1])) != 0;
}

/// Groups of two hexadecimal digits are bytes, anything else is text.
inline std::string Bytes(const std::string& cell) {
    std::istringstream words(cell);
    std::string bytes;
    for (std::string word; words >> word;) {
        if (!IsHexPair(word)) {
            return cell;
        }
        bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

/// The cells of a line of a table.
inline std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    const std::string border = " | ";
    size_t from = 2;
    const size_t end = line.size() - 2;
    while (from <= end) {
        const size_t to = std::min(line.find(border, from), end);
        cells.push_back(line.substr(from, to - from));
        from = to + border.size();
    }
    return cells;
}

inline std::string Unquoted(const std::string& cell) {
    const bool isQuoted = cell.size() >= 2 && cell.front() == '`' && cell.back() == '`';
    return isQuoted ? cell.substr(1, cell.size() - 2) : cell;
}

inline bool IsRow(const std::string& line) {
    return line.size() > 4 && line.compare(0, 2, "| ") == 0 && line.compare(line.size() - 3, 3, "` |") == 0;
}

/// All rows of the "### Examples" under the heading "## `heading`".
inline std::vector<Row> Under(const std::string& heading) {
    std::ifstream page(PROTOCOL_PAGE);
    std::string section;
    std::string part;
    std::vector<Row> rows;
    for (std::string line; std::getline(page, line);) {
        if (line.compare(0, 3, "## ") == 0) {
            section = line.substr(3);
            part.clear();
        } else if (line.compare(0, 4, "### ") == 0) {
            part = line.substr(4);
        } else if (section == heading && part == "Examples" && IsRow(line)) {
            std::vector<std::string> cells = Cells(line);
            Row row{cells.front(), {}};
            for (auto cell = cells.begin() + 1; cell != cells.end(); ++cell) {
                row.values.push_back(Bytes(Unquoted(*cell)));
            }
            rows.push_back(row);
        }
    }
    return rows;
}

}  // namespace ProtocolExamples

#endif
