#include "config/xml_document.h"

#include <algorithm>
#include <array>
#include <boost/locale/utf.hpp>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "base/input_limits.h"

namespace tvx {
namespace {

// Some editors put it in front of UTF-8; it is no part of the document.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The characters that mean something within a tag; all others are passed over without a look.
constexpr std::array<bool, 256> TagMarks() {
  std::array<bool, 256> marks{};
  for (const char mark : {'\0', '<', '>', '/', '=', '"', '\''}) {
    marks[static_cast<unsigned char>(mark)] = true;
  }
  return marks;
}
constexpr std::array<bool, 256> kTagMarks = TagMarks();

// Looks at the markup before the library does, without recursion, and refuses what it could not
// survive: it recurses once a level, and looks every attribute up among all those before it.
//
// Levels are counted as the library nests, or too high, never too low. Markup that the library
// reads in a way of its own (an end without a start, "<" inside a tag) could hide levels from the
// count, so it is refused as unreadable. Declarations and processing instructions, which say
// nothing to the plug-in and end elsewhere for the library, are blanked out.
class MarkupScan {
 public:
  // The text is terminated and changed in place; the library reads to its first NUL.
  explicit MarkupScan(char* text) : at_(text), end_(text + std::strlen(text)) {}

  ParseOutcome Run() {
    for (;;) {
      char* const next = std::strchr(at_, '<');
      if (next == nullptr) return ParseOutcome::Parsed;
      // A text, which costs an object as an element does, unless it is blank.
      while (at_ != next && std::isspace(static_cast<unsigned char>(*at_)) != 0) ++at_;
      if (at_ != next && ++nodes_ > kMaxNodes) return ParseOutcome::TooManyNodes;
      at_ = next;
      markup_ = next;
      const ParseOutcome outcome = TakeMarkup();
      if (outcome != ParseOutcome::Parsed) return outcome;
    }
  }

  // Of the markup that was refused.
  const char* Place() const { return markup_; }
  // What made it unreadable.
  const char* What() const { return what_; }

 private:
  ParseOutcome Unreadable(const char* what) {
    what_ = what;
    return ParseOutcome::Unreadable;
  }

  ParseOutcome TakeMarkup() {
    switch (const auto first = static_cast<unsigned char>(at_[1])) {
      case '!':
        if (++nodes_ > kMaxNodes) return ParseOutcome::TooManyNodes;
        if (Begins(kComment)) return SkipBehind(kComment, "-->");
        if (Begins(kCdata)) return SkipBehind(kCdata, "]]>");
        return SkipBehind("<!", ">");
      case '?':
        if (++nodes_ > kMaxNodes) return ParseOutcome::TooManyNodes;
        return BlankInstruction();
      case '/':
        return --depth_ < 0 ? Unreadable("an end tag has no start tag") : TakeTag();
      default:
        if (std::isalpha(first) == 0 && first != '_' && first < 127) {
          return Unreadable("a \"<\" begins no tag");
        }
        if (++nodes_ > kMaxNodes) return ParseOutcome::TooManyNodes;
        return ++depth_ > kMaxNesting ? ParseOutcome::TooDeep : TakeTag();
    }
  }

  bool Begins(std::string_view mark) const {
    return std::strncmp(at_, mark.data(), mark.size()) == 0;
  }

  std::string_view Rest(std::ptrdiff_t from) const {
    return {at_ + from, static_cast<std::size_t>(end_ - at_ - from)};
  }

  // Skips behind the end of a construct that begins here with the mark.
  ParseOutcome SkipBehind(std::string_view mark, std::string_view end) {
    at_ += mark.size();
    const std::size_t length = Rest(0).find(end);
    if (length == std::string_view::npos) return Unreadable("a comment or the like has no end");
    at_ += length + end.size();
    return ParseOutcome::Parsed;
  }

  // Leaves the empty "<!   >" of an instruction, and its line ends. One for XML itself may lack its
  // second "?", as long as the library has taken that.
  ParseOutcome BlankInstruction() {
    const bool isForXml =
        Begins("<?xml") &&
        (std::isspace(static_cast<unsigned char>(at_[5])) != 0 || at_[5] == '?' || at_[5] == '>');
    const std::size_t length = Rest(2).find(isForXml ? ">" : "?>");
    if (length == std::string_view::npos) return Unreadable("a declaration has no end");
    at_[1] = '!';
    char* const end = at_ + 2 + length + (isForXml ? 0 : 1);
    for (at_ += 2; at_ != end; ++at_) {
      if (*at_ != '\n' && *at_ != '\r') *at_ = ' ';
    }
    ++at_;
    return ParseOutcome::Parsed;
  }

  // Skips a start or end tag, quoted values in it included. An empty one ("/>") nests nothing.
  ParseOutcome TakeTag() {
    int attributes = 0;
    at_ += 2;
    for (;; ++at_) {
      while (!kTagMarks[static_cast<unsigned char>(*at_)]) ++at_;
      if (*at_ == '\0' || *at_ == '<') return Unreadable("a tag has no \">\"");
      if (*at_ == '>') {
        ++at_;
        return ParseOutcome::Parsed;
      }
      if (*at_ == '/' && at_[1] == '>') {
        --depth_;
        at_ += 2;
        return ParseOutcome::Parsed;
      }
      if (*at_ == '=') {
        if (++attributes > kMaxAttributes) return ParseOutcome::TooManyAttributes;
        if (++nodes_ > kMaxNodes) return ParseOutcome::TooManyNodes;
      }
      if (*at_ != '"' && *at_ != '\'') continue;
      at_ = std::strchr(at_ + 1, *at_);
      if (at_ == nullptr) return Unreadable("the quotes around a value are not closed");
    }
  }

  static constexpr std::string_view kComment = "<!--";
  static constexpr std::string_view kCdata = "<![CDATA[";

  char* at_;
  const char* const end_;
  const char* markup_ = at_;
  const char* what_ = nullptr;
  int depth_ = 0;
  int nodes_ = 0;
};

// The library's only switch for this is process-wide, and the plug-in never wants the other
// setting.
void KeepWhiteSpace() {
  static const bool kept = (TiXmlBase::SetCondenseWhiteSpace(false), true);
  static_cast<void>(kept);
}

// A word at a time: nearly all documents have nothing else, and the host waits for the answer.
bool IsAscii(const std::string& text) {
  std::size_t at = 0;
  std::uint32_t bits = 0;
  for (std::uint32_t word = 0; at + sizeof(word) <= text.size(); at += sizeof(word)) {
    std::memcpy(&word, text.data() + at, sizeof(word));
    bits |= word;
  }
  for (; at < text.size(); ++at) bits |= static_cast<unsigned char>(text[at]);
  return (bits & 0x80808080u) == 0;
}

// Text that is not UTF-8 is read byte by byte, so that it comes through as it is: read as UTF-8, a
// stray 8-bit byte would swallow the reference behind it, and one at the end would take the library
// past the terminator.
TiXmlEncoding EncodingOf(const std::string& text) {
  using Traits = boost::locale::utf::utf_traits<char>;
  if (IsAscii(text)) return TIXML_ENCODING_UTF8;
  for (auto at = text.begin(); at != text.end();) {
    if (!boost::locale::utf::is_valid_codepoint(Traits::decode(at, text.end()))) {
      return TIXML_ENCODING_LEGACY;
    }
  }
  return TIXML_ENCODING_UTF8;
}

// As the library counts: a line ends with CR, LF or both.
ParseFault FaultAt(const std::string& text, const char* place, const char* what) {
  ParseFault fault{what, 1, 1};
  for (const char* at = text.c_str(); at != place; ++at) {
    const bool endsLine = *at == '\n' || (*at == '\r' && at[1] != '\n');
    fault.row += endsLine ? 1 : 0;
    fault.column = endsLine ? 1 : fault.column + 1;
  }
  return fault;
}

ParseFault LibraryFault(const TiXmlDocument& document) {
  std::string what = "the XML library says: ";
  return {what + document.ErrorDesc(), document.ErrorRow(), document.ErrorCol()};
}

}  // namespace

const TiXmlElement* ParsedDocument::Root() const {
  return document == nullptr ? nullptr : document->FirstChildElement("tDVR");
}

ParsedDocument ParseDocument(const char* text, std::size_t length, Positions positions) {
  ParsedDocument parsed;
  if (text == nullptr || length == 0) return parsed;
  if (length > kMaxDocumentBytes) {
    parsed.outcome = ParseOutcome::TooLarge;
    return parsed;
  }
  const bool isTracked = positions == Positions::Tracked;
  std::string copy(text, length);
  MarkupScan scan(copy.data());
  parsed.outcome = scan.Run();
  if (parsed.outcome != ParseOutcome::Parsed) {
    const char* reason = RefusalReason(parsed.outcome);
    if (isTracked) parsed.fault = FaultAt(copy, scan.Place(), reason ? reason : scan.What());
    return parsed;
  }
  KeepWhiteSpace();
  auto document = std::make_unique<TiXmlDocument>();
  document->SetTabSize(isTracked ? 1 : 0);
  const bool marked = copy.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0;
  document->Parse(copy.c_str() + (marked ? kByteOrderMark.size() : 0), nullptr, EncodingOf(copy));
  if (document->Error()) {
    parsed.outcome = ParseOutcome::Unreadable;
    if (isTracked) parsed.fault = LibraryFault(*document);
    return parsed;
  }
  parsed.document = std::move(document);
  return parsed;
}

ParseOutcome CheckMarkup(char* text, std::size_t length) {
  return length > kMaxDocumentBytes ? ParseOutcome::TooLarge : MarkupScan(text).Run();
}

// The texts below name the limits.
static_assert(kMaxDocumentBytes == 16u << 20 && kMaxNesting == 256 && kMaxNodes == 1'000'000 &&
              kMaxAttributes == 64);

const char* RefusalReason(ParseOutcome outcome) {
  switch (outcome) {
    case ParseOutcome::TooLarge:
      return "it is larger than 16 MiB";
    case ParseOutcome::TooDeep:
      return "its elements are nested more than 256 deep";
    case ParseOutcome::TooManyNodes:
      return "it has more than 1000000 elements and attributes";
    case ParseOutcome::TooManyAttributes:
      return "one of its elements has more than 64 attributes";
    default:
      return nullptr;
  }
}

std::optional<std::int32_t> IntAttribute(const TiXmlElement& element, const char* name) {
  // The library's own query scans a format for every number; this reads the same digits.
  const char* text = element.Attribute(name);
  if (text == nullptr) return std::nullopt;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return std::nullopt;
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<long>(value, Limits::min(), Limits::max()));
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
  const char* text = element.Attribute(name);
  if (text == nullptr) return std::nullopt;
  return text;
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
