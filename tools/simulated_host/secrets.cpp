#include "simulated_host/secrets.h"

#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "config/xml_children.h"
#include "config/xml_document.h"
#include "web/percent_encode.h"

namespace tvx::tool {
namespace {

constexpr std::array<std::string_view, 6> kNames = {"password", "passwd", "secret",
                                                    "token",    "cookie", "authorization"};

// Options of curl's configuration that say what kind of secret follows.
constexpr std::array<std::string_view, 4> kInputOptions = {"user", "proxy-user", "cookie",
                                                           "header"};

bool IsNameCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

// The name of a secret that ends at a place of the text, in any case.
bool EndsInSecretName(std::string_view text) {
  return std::any_of(kNames.begin(), kNames.end(), [text](std::string_view name) {
    if (text.size() < name.size()) return false;
    const std::string_view end = text.substr(text.size() - name.size());
    return std::equal(end.begin(), end.end(), name.begin(), [](char a, char b) {
      return std::tolower(static_cast<unsigned char>(a)) == b;
    });
  });
}

struct Range {
  std::size_t begin;
  std::size_t end;
};

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
  while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
  return at;
}

// The value behind a name that ends at a place. Empty when none is there.
Range ValueBehind(std::string_view text, std::size_t at) {
  const Range none{at, at};
  // JSON has the name in quotes.
  if (at < text.size() && (text[at] == '"' || text[at] == '\'')) ++at;
  at = SkipBlanks(text, at);
  if (at == text.size() || (text[at] != '=' && text[at] != ':')) return none;
  at = SkipBlanks(text, at + 1);
  if (at == text.size()) return none;
  const char quote = text[at];
  const bool quoted = quote == '"' || quote == '\'';
  const std::size_t begin = quoted ? at + 1 : at;
  const std::size_t end = text.find_first_of(quoted ? std::string_view(&quote, 1) : "\r\n", begin);
  return {begin, std::min(end, text.size())};
}

// The password of a URL, "://user:password@", whose scheme ends at a place. Empty when none is
// there.
Range PasswordOfUrl(std::string_view text, std::size_t at) {
  const Range none{at, at};
  if (text.substr(at, 3) != "://") return none;
  const std::size_t end = text.find_first_of(" \t\r\n\"'<>", at + 3);
  const std::string_view rest = text.substr(0, end);
  const std::size_t path = rest.find('/', at + 3);
  const std::size_t sign = rest.substr(0, path).rfind('@');
  const std::size_t colon = rest.find(':', at + 3);
  if (sign == std::string_view::npos || colon >= sign) return none;
  return {colon + 1, sign};
}

// Where the text itself says that something is secret, in order.
std::vector<Range> FindNamed(std::string_view text) {
  std::vector<Range> found;
  for (std::size_t at = 0; at < text.size(); ++at) {
    Range range{at, at};
    if (text[at] == ':') range = PasswordOfUrl(text, at);
    const bool nameEnds = at > 0 && !IsNameCharacter(text[at]) && IsNameCharacter(text[at - 1]);
    if (range.begin == range.end && nameEnds && EndsInSecretName(text.substr(0, at))) {
      range = ValueBehind(text, at);
    }
    if (range.begin == range.end) continue;
    found.push_back(range);
    at = range.end - 1;
  }
  return found;
}

// As curl's configuration and JSON write it between quotes.
std::string WithBackslashes(const std::string& value) {
  std::string quoted;
  for (const char c : value) {
    if (c == '"' || c == '\\') quoted.push_back('\\');
    quoted.push_back(c);
  }
  return quoted;
}

void CollectValues(const TiXmlElement& element, std::vector<std::string>& values) {
  for (const TiXmlAttribute* it = element.FirstAttribute(); it != nullptr; it = it->Next()) {
    const std::string& value = it->ValueStr();
    if (EndsInSecretName(it->NameTStr())) values.push_back(value);
    for (const Range& range : FindNamed(value)) {
      values.push_back(value.substr(range.begin, range.end - range.begin));
    }
  }
  if (EndsInSecretName(element.ValueStr()) && element.GetText() != nullptr) {
    values.emplace_back(element.GetText());
  }
  for (const TiXmlElement& child : Children(element)) CollectValues(child, values);
}

}  // namespace

void Secrets::Learn(std::string_view document) {
  std::vector<std::string> values;
  const ParsedDocument parsed = ParseDocument(document.data(), document.size());
  if (parsed.Root() != nullptr) {
    CollectValues(*parsed.Root(), values);
  } else {
    for (const Range& range : FindNamed(document)) {
      values.emplace_back(document.substr(range.begin, range.end - range.begin));
    }
  }
  for (const std::string& value : values) {
    Remember(value);
    std::string encoded;
    TiXmlBase::EncodeString(value, &encoded);
    Remember(encoded);
    Remember(PercentEncode(value));
    Remember(WithBackslashes(value));
  }
}

void Secrets::Remember(const std::string& value) {
  if (value.size() >= kShortest) known_.insert(value);
}

std::string Secrets::Hide(std::string_view text) const {
  // By their names first: what is found elsewhere then has nothing left to find in there.
  std::string shown;
  std::size_t at = 0;
  for (const Range& range : FindNamed(text)) {
    shown.append(text.substr(at, range.begin - at)).append(kHidden);
    at = range.end;
  }
  shown.append(text.substr(at));
  for (const std::string& secret : known_) {
    for (std::size_t found = 0; (found = shown.find(secret, found)) != std::string::npos;) {
      shown.replace(found, secret.size(), kHidden);
      found += std::string_view(kHidden).size();
    }
    // A line that was cut may end within one.
    for (std::size_t length = std::min(secret.size(), shown.size()); length-- > kShortest;) {
      if (shown.compare(shown.size() - length, length, secret, 0, length) != 0) continue;
      shown.replace(shown.size() - length, length, kHidden);
      break;
    }
  }
  return shown;
}

std::string Secrets::HideInput(std::string_view input) {
  std::string shown;
  while (!input.empty()) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    const std::string_view line = input.substr(0, end);
    for (const std::string_view option : kInputOptions) {
      const std::size_t value = SkipBlanks(line, option.size());
      if (line.substr(0, option.size()) != option || value == line.size()) continue;
      if (line[value] == '=' || line[value] == ':') shown.append(option).append(" = ");
    }
    if (!line.empty()) shown.append(kHidden);
    shown.push_back('\n');
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  if (!shown.empty()) shown.pop_back();
  return shown;
}

}  // namespace tvx::tool
