// What an expansion does to each brace token of a text, put together from the steps that it reports.
// Threads: plain values, their owner's.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config/templates.h"

namespace tvx::tool {

enum class Fate {
  Text,      // no token, or half of one
  Replaced,  // by its value, which may be empty
  Left,      // a token that stands as it was
  Dropped,   // a token that is gone
  Invalid,   // a date or time whose format is none
};

// Why a token is left or dropped. preview_report.cpp has a text for each, in this order.
enum class Reason {
  None,
  Unknown,       // no placeholder
  Repeated,      // not the first of its kind
  BodyOnly,      // in a subject
  NoValue,       // the event has none for it
  Nested,        // around another placeholder, or replaced by a value that has braces itself
  StrayBrace,    // begins with a brace that is not its own
  NoDateInText,  // a form of a date that does not count by itself
  NoDateText,    // its format cannot be read, or gives no text or too much
};

// A stretch of a template and what it became.
struct Piece {
  Fate fate = Fate::Text;
  Reason why = Reason::None;
  std::string before;
  std::string after;
  std::size_t line = 1;    // of the template, from 1
  std::size_t column = 1;  // in characters of UTF-8, from 1
};
using Pieces = std::vector<Piece>;

class TemplateTrace {
 public:
  // Of an expansion of this text, which is copied.
  TemplateTrace(const std::string& text, bool isBody);
  TemplateTrace(const TemplateTrace&) = delete;
  TemplateTrace& operator=(const TemplateTrace&) = delete;

  // The next step. Linear in all steps together, when dates and times come last and in order.
  void Take(const Replacement& step);

  // In order, the stretches of the text.
  Pieces Result() const;

 private:
  // A stretch of the template, as places in it. Text has become nothing else yet.
  struct Stretch {
    std::size_t begin;
    std::size_t end;
    Fate fate;
    std::string value;

    std::size_t Size() const { return fate == Fate::Text ? end - begin : value.size(); }
  };
  void MoveTo(std::size_t at, bool isEnd);
  static void AddText(std::string_view text, Pieces& pieces);

  const std::string text_;
  const bool isBody_;
  std::list<Stretch> stretches_;
  // Where the last step ended, and where that is in the text as it now is.
  std::list<Stretch>::iterator next_;
  std::size_t nextAt_ = 0;
  std::map<std::string, std::size_t> replaced_;  // placeholders, and where in the template
};

}  // namespace tvx::tool
