// Tables of a line a row: what is expected, " <= ", and what it is made of.
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
    EXPECT_EQ(function(row.substr(at + 4)), row.substr(0, at)) << row;
  }
}

// A document with a root that can be read.
inline ParsedDocument Parse(const std::string& text) {
  ParsedDocument parsed = ParseDocument(text.data(), text.size());
  if (parsed.document == nullptr) throw std::invalid_argument("the test's document: " + text);
  return parsed;
}

}  // namespace tvx::test
