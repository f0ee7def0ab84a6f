// Finds out what an expansion does to each brace token of a text, by watching it.
//
// The texts are expanded once more with marks before every "{" and behind every "}". Marks do not
// touch the tokens between them, so the expansion treats these as ever; what lies between the marks
// that are left tells what became of each token. Nothing here knows the rules of templates.
//
// Threads: any; nothing is shared.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tvx::tool {

enum class Fate {
  Text,      // no token, or half of one
  Replaced,  // by its value, which may be empty
  Left,      // a token that stands as it was
  Dropped,   // a token that is gone
  Invalid,   // a date or time whose format is none
};

// Why a token is dropped that holds another one's beginning.
constexpr const char* kStrayBrace = "its first \"{\" reaches to the next \"}\"";

// A stretch of a template and what it became.
struct Piece {
  Fate fate = Fate::Text;
  std::string before;
  std::string after;
  std::size_t line = 1;    // of the template, from 1
  std::size_t column = 1;  // in characters of UTF-8, from 1
  std::string why;         // for Left and Dropped
};

struct MarkedTexts {
  std::vector<Piece> subject;
  std::vector<Piece> body;
};

// Expands both texts in place; called more than once. withValues asks it to have a value for every
// placeholder, so that a token with an empty value can be told from one that is dropped.
using TextExpander = std::function<void(std::string& subject, std::string& body, bool withValues)>;

// In order, the stretches of both texts. Nothing when the texts cannot be marked: they hold the
// control characters that the marks are made of, or a date's text is so long that marks count.
std::optional<MarkedTexts> MarkPlaceholders(const std::string& subject, const std::string& body,
                                            const TextExpander& expand);

}  // namespace tvx::tool
