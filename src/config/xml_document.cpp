#include "config/xml_document.h"

#include <boost/locale/utf.hpp>
#include <cctype>
#include <cstring>
#include <string_view>
#include <utility>

namespace tvx {
namespace {

// Some editors put it in front of UTF-8; it is no part of the document.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Finds the deepest nesting that the library would recurse to, without recursion. The text is
// terminated. Where the text is no XML the count may be too high, never too low: an end that the
// library might not see as one is not counted as one.
class NestingScan {
 public:
  explicit NestingScan(const char* text) : at_(text) {}

  bool Exceeds(int limit) {
    int depth = 0;
    while ((at_ = std::strchr(at_, '<')) != nullptr) {
      if (Skip("<!--", "-->") || Skip("<![CDATA[", "]]>") || Skip("<?", ">") || Skip("<!", ">")) {
        continue;
      }
      if (at_[1] == '/') {
        --depth;
        ++at_;
        continue;
      }
      ++at_;
      if (!SkipTag() && ++depth > limit) return true;
    }
    return false;
  }

 private:
  // Skips a construct that holds no elements; one that is not closed ends the scan.
  bool Skip(const char* begin, const char* end) {
    if (std::strncmp(at_, begin, std::strlen(begin)) != 0) return false;
    const char* close = std::strstr(at_ + std::strlen(begin), end);
    at_ = close != nullptr ? close : at_ + std::strlen(at_);
    return true;
  }

  // Skips a start tag, quoted values in it included. True when it is empty ("/>"), so not nested.
  bool SkipTag() {
    for (; *at_ != '\0'; ++at_) {
      if (*at_ == '>') return false;
      if (*at_ == '/' && at_[1] == '>') return true;
      if (*at_ == '<') return false;
      if (*at_ != '"' && *at_ != '\'') continue;
      const char* close = std::strchr(at_ + 1, *at_);
      if (close == nullptr) return false;
      at_ = close;
    }
    return false;
  }

  const char* at_;
};

// The library's only switch for this is process-wide, and the plug-in never wants the other
// setting.
void KeepWhiteSpace() {
  static const bool kept = (TiXmlBase::SetCondenseWhiteSpace(false), true);
  static_cast<void>(kept);
}

// Text that is not UTF-8 is read byte by byte, so that it comes through as it is: read as UTF-8, a
// stray 8-bit byte would swallow the reference behind it, and one at the end would take the library
// past the terminator.
TiXmlEncoding EncodingOf(const std::string& text) {
  using Traits = boost::locale::utf::utf_traits<char>;
  for (auto at = text.begin(); at != text.end();) {
    if (static_cast<signed char>(*at) >= 0) {
      ++at;
    } else if (!boost::locale::utf::is_valid_codepoint(Traits::decode(at, text.end()))) {
      return TIXML_ENCODING_LEGACY;
    }
  }
  return TIXML_ENCODING_UTF8;
}

}  // namespace

const TiXmlElement* ParsedDocument::Root() const {
  return document == nullptr ? nullptr : document->FirstChildElement("tDVR");
}

ParsedDocument ParseDocument(const char* text, std::size_t length) {
  ParsedDocument parsed;
  if (text == nullptr || length == 0) return parsed;
  if (length > kMaxDocumentBytes) {
    parsed.outcome = ParseOutcome::TooLarge;
    return parsed;
  }
  const std::string copy(text, length);
  if (NestingScan(copy.c_str()).Exceeds(kMaxNesting)) {
    parsed.outcome = ParseOutcome::TooDeep;
    return parsed;
  }
  KeepWhiteSpace();
  auto document = std::make_unique<TiXmlDocument>();
  document->SetTabSize(0);  // nobody asks for rows and columns here, and counting them costs
  const bool marked = copy.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0;
  document->Parse(copy.c_str() + (marked ? kByteOrderMark.size() : 0), nullptr, EncodingOf(copy));
  if (document->Error()) {
    parsed.outcome = ParseOutcome::Unreadable;
    return parsed;
  }
  parsed.outcome = ParseOutcome::Parsed;
  parsed.document = std::move(document);
  return parsed;
}

const char* RefusalReason(ParseOutcome outcome) {
  switch (outcome) {
    case ParseOutcome::TooLarge:
      return "it is larger than 16 MiB";
    case ParseOutcome::TooDeep:
      return "its elements are nested more than 256 deep";
    default:
      return nullptr;
  }
}

std::optional<std::int32_t> IntAttribute(const TiXmlElement& element, const char* name) {
  int value = 0;
  if (element.QueryIntAttribute(name, &value) != TIXML_SUCCESS) return std::nullopt;
  return value;
}

std::optional<std::uint32_t> PatternAttribute(const TiXmlElement& element, const char* name) {
  const char* text = element.Attribute(name);
  if (text == nullptr) return std::nullopt;
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (std::isdigit(static_cast<unsigned char>(*text)) == 0) return std::nullopt;
  std::uint32_t value = 0;
  for (; std::isdigit(static_cast<unsigned char>(*text)) != 0; ++text) {
    value = value * 10u + static_cast<std::uint32_t>(*text - '0');
  }
  return negative ? 0u - value : value;
}

std::optional<std::string> TextAttribute(const TiXmlElement& element, const char* name) {
  const std::string* text = element.Attribute(std::string(name));
  if (text == nullptr) return std::nullopt;
  return *text;
}

std::unique_ptr<TiXmlDocument> NewDocument() {
  auto document = std::make_unique<TiXmlDocument>();
  document->LinkEndChild(std::make_unique<TiXmlDeclaration>("", "", "").release());
  return document;
}

TiXmlElement& AppendElement(TiXmlNode& parent, const char* name) {
  auto element = std::make_unique<TiXmlElement>(name);
  TiXmlElement& appended = *element;
  parent.LinkEndChild(element.release());
  return appended;
}

std::string PrintDocument(const TiXmlDocument& document) {
  TiXmlPrinter printer;
  document.Accept(&printer);
  return printer.Str();
}

}  // namespace tvx
