// Tables of a line a row: what is expected, " <= ", and what it is made of, or several of these with
// " & " between them.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "config/xml_document.h"
#include "support/documents.h"

namespace tvx::test {

template <typename Function>
void ExpectRows(Function function, const std::string& table) {
  std::istringstream rows(table);
  for (std::string row; std::getline(rows, row);) {
    const std::size_t at = row.find(" <= ");
    if (at == std::string::npos) continue;
    for (std::size_t from = at + 4, end = 0; end != std::string::npos; from = end + 3) {
      end = row.find(" & ", from);
      const std::string input = row.substr(from, end - from);
      EXPECT_EQ(function(input), row.substr(0, at)) << input;
    }
  }
}

// A document with a root that can be read.
inline ParsedDocument Parse(const std::string& text) {
  ParsedDocument parsed = ParseDocument(text.data(), text.size());
  if (parsed.document == nullptr) throw std::invalid_argument("the test's document: " + text);
  return parsed;
}

}  // namespace tvx::test
