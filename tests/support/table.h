// Tables of cases, as text.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tvx::test {

// A cell: blanks around it are none of it; "\r", "\n" and "\\" mean what they mean in C++.
inline std::string Cell(std::string text) {
  text = boost::trim_copy_if(text, boost::is_any_of(" "));
  for (std::size_t at = 0; (at = text.find('\\', at)) != std::string::npos; ++at) {
    const char c = text[at + 1];
    text.replace(at, 2, 1, c == 'r' ? '\r' : c == 'n' ? '\n' : c);
  }
  return text;
}

// The rows of lines that hold a "|", which stands between their cells. Cells that are not there are
// empty.
inline std::vector<std::vector<std::string>> Rows(const std::string& table) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.find('|') == std::string::npos) continue;
    rows.emplace_back();
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, '|');) rows.back().push_back(Cell(cell));
    rows.back().resize(std::max<std::size_t>(rows.back().size(), 8));
  }
  return rows;
}

// The lines below "== Suite.Test" in a file of tables, for the test that runs; further tables of it
// have a number behind that.
inline std::string Table(const char* path, int number = 1) {
  const auto& test = *testing::UnitTest::GetInstance()->current_test_info();
  std::string title = std::string("== ") + test.test_suite_name() + "." + test.name();
  if (number > 1) title += " " + std::to_string(number);
  std::ifstream file(path);
  std::string table, line;
  while (std::getline(file, line) && line != title) continue;
  while (std::getline(file, line) && line.rfind("== ", 0) != 0) table += line + "\n";
  EXPECT_FALSE(table.empty()) << title;
  return table;
}

// Expects what stands before "<=" of a function of what stands behind it, or of each of several with
// " & " between them. Blanks around these are none of them. Cases stand on lines of their own, or side
// by side with three blanks between.
template <typename Function>
void ExpectRows(Function function, std::string table) {
  for (std::size_t gap = 0; (gap = table.find("   ", gap)) != std::string::npos;) table[gap] = '\n';
  std::istringstream cases(table);
  for (std::string each; std::getline(cases, each);) {
    const std::size_t at = each.find("<=");
    if (at == std::string::npos) continue;
    for (std::size_t from = at + 2, end = 0; end != std::string::npos; from = end + 3) {
      end = each.find(" & ", from);
      const std::string input = Cell(each.substr(from, end - from));
      EXPECT_EQ(boost::trim_copy_if(std::string(function(input)), boost::is_any_of(" ")),
                Cell(each.substr(0, at)))
          << input;
    }
  }
}

}  // namespace tvx::test
