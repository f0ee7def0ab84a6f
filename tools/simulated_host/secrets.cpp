#include "simulated_host/secrets.h"

#include <tinyxml.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <vector>

#include "base/percent_encode.h"
#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx::tool {
namespace {

// How the names of secrets end.
const char* const kName = "(?i:password|passwd|secret|token|cookie|authorization)";

// A secret, where the text itself says that it is one: behind a name and "=" or ":", perhaps in
// quotes, which JSON has around the name, too; and in a URL, "://user:password@".
const boost::regex& NamedSecret() {
  static const boost::regex regex(
      std::string(kName) + R"re(["']?[ \t]*[=:][ \t]*(?:"\K[^"]+|'\K[^']+|\K[^\s"'][^\r\n]*))re"
                           R"re(|://[^:/\s"'<>]*:\K[^/\s"'<>]+(?=@))re");
  return regex;
}

bool EndsInSecretName(const std::string& name) {
  static const boost::regex regex(std::string(kName) + "$");
  return boost::regex_search(name, regex);
}

using Values = std::vector<std::string>;

void CollectNamed(std::string_view text, Values& values) {
  for (boost::cregex_iterator it(text.begin(), text.end(), NamedSecret()), end; it != end; ++it) {
    values.push_back(it->str());
  }
}

void CollectValues(const TiXmlElement& element, Values& values) {
  for (const TiXmlAttribute* it = element.FirstAttribute(); it != nullptr; it = it->Next()) {
    if (EndsInSecretName(it->NameTStr())) values.push_back(it->ValueStr());
    CollectNamed(it->ValueStr(), values);
  }
  if (EndsInSecretName(element.ValueStr()) && element.GetText() != nullptr) {
    values.emplace_back(element.GetText());
  }
  for (const TiXmlElement& child : Children(element)) CollectValues(child, values);
}

// As curl's configuration and JSON write it between quotes.
std::string WithBackslashes(const std::string& value) {
  return boost::regex_replace(value, boost::regex(R"(["\\])"), "\\\\$&");
}

}  // namespace

void Secrets::Learn(std::string_view document) {
  Values values;
  const ParsedDocument parsed = ParseDocument(document.data(), document.size());
  if (parsed.Root() != nullptr) {
    CollectValues(*parsed.Root(), values);
  } else {
    CollectNamed(document, values);
  }
  for (const std::string& value : values) {
    std::string encoded;
    TiXmlBase::EncodeString(value, &encoded);
    for (const std::string& form : {value, encoded, PercentEncode(value), WithBackslashes(value)}) {
      if (form.size() >= kShortest) known_.insert(form);
    }
  }
}

std::string Secrets::Hide(std::string_view text) const {
  // By their names first: what is found elsewhere then has nothing left to find in there.
  std::string shown = boost::regex_replace(std::string(text), NamedSecret(), kHidden);
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
  static const boost::regex line(R"((?:(user|proxy-user|cookie|header)[ \t]*[=:])?[^\n]+)");
  return boost::regex_replace(std::string(input), line, std::string("(?1$1 = )") + kHidden,
                              boost::format_all);
}

}  // namespace tvx::tool
