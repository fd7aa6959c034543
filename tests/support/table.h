#pragma once

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

/** The rows of a table in text, and their cells between bars. */
inline std::vector<std::vector<std::string>> rowsOf(const std::string& table) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(table);
    for (std::string line, cell; std::getline(lines, line);) {
        std::vector<std::string> cells;
        for (std::istringstream row(line + "|"); std::getline(row, cell, '|');) {
            const std::size_t start = std::min(cell.find_first_not_of(' '), cell.size());
            cells.push_back(cell.substr(start, cell.find_last_not_of(' ') + 1 - start));
        }
        if (cells.size() > 2) {
            rows.push_back(cells);
        }
    }
    return rows;
}
