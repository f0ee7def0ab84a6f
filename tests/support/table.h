// Tables of cases, as text: a row a line, however many cells it has.
#pragma once

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace tvx::test {

// The rows of lines that hold a "|", which stands between their cells. Blanks around a cell are none
// of it; "\r", "\n" and "\\" mean what they mean in C++. Cells that are not there are empty.
inline std::vector<std::vector<std::string>> Rows(const std::string& table) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.find('|') == std::string::npos) continue;
    rows.emplace_back();
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, '|');) {
      cell.erase(cell.find_last_not_of(' ') + 1);
      cell.erase(0, cell.find_first_not_of(' '));
      for (std::size_t at = 0; (at = cell.find('\\', at)) != std::string::npos; ++at) {
        const char c = cell[at + 1];
        cell.replace(at, 2, 1, c == 'r' ? '\r' : c == 'n' ? '\n' : c);
      }
      rows.back().push_back(cell);
    }
    rows.back().resize(std::max<std::size_t>(rows.back().size(), 8));
  }
  return rows;
}

}  // namespace tvx::test
