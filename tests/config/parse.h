// A document of a test's own.
#pragma once

#include <stdexcept>
#include <string>

#include "config/xml_document.h"
#include "support/documents.h"
#include "support/table.h"

namespace tvx::test {

// One with a root that can be read.
inline ParsedDocument Parse(const std::string& text) {
  ParsedDocument parsed = ParseDocument(text.data(), text.size());
  if (parsed.document == nullptr) throw std::invalid_argument("the test's document: " + text);
  return parsed;
}

}  // namespace tvx::test
