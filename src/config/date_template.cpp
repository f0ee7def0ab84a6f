#include "config/date_template.h"

#include <cstring>
#include <ctime>

#include "config/xml_document.h"

namespace tvx {
namespace {

constexpr const char* kConversions = "aAbBcdHIjmMpSUwWxXyYZ%";
constexpr const char* kInvalidFormat = "[invalid format specified]";

bool IsValidFormat(const std::string& format) {
  for (std::size_t at = format.find('%'); at != std::string::npos; at = format.find('%', at + 2)) {
    if (at + 1 == format.size() || format[at + 1] == '\0') return false;
    if (std::strchr(kConversions, format[at + 1]) == nullptr) return false;
  }
  return true;
}

std::string FormatLocalTime(std::int64_t time, const std::string& format) {
  char buffer[80] = {};
  const auto seconds = static_cast<std::time_t>(time);
  std::tm local{};
  ::tzset();  // localtime_r alone need not notice a zone that changed while the host runs
  if (::localtime_r(&seconds, &local) == nullptr) return {};
  // What does not fit leaves the buffer undefined: it becomes nothing.
  if (std::strftime(buffer, sizeof(buffer), format.c_str(), &local) == 0) return {};
  return buffer;
}

// The text for what stands between two braces; nothing for a token that is no date and no time.
std::string ExpandToken(std::int64_t time, const std::string& token) {
  const std::size_t start = token.find_first_not_of(' ');
  if (start == std::string::npos) return {};
  const std::string text = "<?xml ?><" + token.substr(start) + " />";
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  const TiXmlElement* element = parsed.document ? parsed.document->RootElement() : nullptr;
  if (element == nullptr) return {};
  const bool isDate = element->ValueStr() == "date";
  if (!isDate && element->ValueStr() != "time") return {};
  const std::string format = TextAttribute(*element, "format").value_or(isDate ? "%x" : "%X");
  return IsValidFormat(format) ? FormatLocalTime(time, format) : kInvalidFormat;
}

TokenFate FateOf(const std::string& value) {
  if (value.empty()) return TokenFate::Dropped;
  return value == kInvalidFormat ? TokenFate::InvalidFormat : TokenFate::Replaced;
}

}  // namespace

void ExpandDates(std::int64_t time, std::string& text, const ReplacementObserver& observer) {
  std::string expanded;
  std::size_t from = 0;
  for (;;) {
    const std::size_t open = text.find('{', from);
    const std::size_t close = open == std::string::npos ? open : text.find('}', open);
    if (close == std::string::npos) break;
    expanded.append(text, from, open - from);
    const std::string value = ExpandToken(time, text.substr(open + 1, close - open - 1));
    if (observer) observer({expanded.size(), close + 1 - open, value, FateOf(value)});
    expanded += value;
    from = close + 1;
  }
  expanded.append(text, from, std::string::npos);
  text.swap(expanded);
}

}  // namespace tvx
