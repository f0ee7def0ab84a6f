// The date and time placeholders of a template: "{date}", "{time}", and either with a format of
// the user's, as in {date format="%Y-%m-%d"}.
// Threads: any; nothing is shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace tvx {

enum class TokenFate {
  Replaced,  // by its value, which may be empty
  Dropped,   // a brace token without a text of its own, in a text with a date or a time
  InvalidFormat,
};

// One step of an expansion: `length` bytes from `at` on become `value`. Both count in the text as
// the steps before have left it.
struct Replacement {
  std::size_t at;
  std::size_t length;
  const std::string& value;
  TokenFate fate;
};
using ReplacementObserver = std::function<void(const Replacement&)>;

// Replaces the date and time tokens of a text by the time (seconds since 1970) in the local zone, and
// drops every other brace token, from the front on. A token is read as an XML element, its formats
// are those of strftime that do not depend on an extension.
void ExpandDates(std::int64_t time, std::string& text, const ReplacementObserver& observer = {});

}  // namespace tvx
