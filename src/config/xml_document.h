// Documents of the host: parsing within limits, reading attributes, printing.
//
// Standard: XML 1.0, as far as TinyXML goes.
// Threads:  any; nothing is shared.
// Limits:   those below. TinyXML recurses once a level, on the host's stack; its time grows with the
//           square of an element's attributes, and its memory with every node, to many times the
//           text.
// Not here: what the documents mean.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tvx {

// Ten thousand cameras need about 8 MB and some 700,000 nodes.
constexpr std::size_t kMaxDocumentBytes = 16u << 20;
constexpr int kMaxNesting = 256;
constexpr int kMaxNodes = 1'000'000;  // elements, attributes, comments and the like
constexpr int kMaxAttributes = 64;    // of one element; the host's have a dozen

enum class ParseOutcome {
  Parsed,
  Empty,     // no bytes, or a null pointer
  TooLarge,  // above kMaxDocumentBytes
  TooDeep,   // nested above kMaxNesting
  TooManyNodes,
  TooManyAttributes,
  Unreadable,  // not XML
};

// Parses length bytes, which need no terminator and are copied. The document is null unless the
// outcome is Parsed. White space in texts is kept, but a text of nothing else reads as none.
struct ParsedDocument {
  ParseOutcome outcome = ParseOutcome::Empty;
  std::unique_ptr<TiXmlDocument> document;

  // The "tDVR" root of a parsed document, else null.
  const TiXmlElement* Root() const;
};
ParsedDocument ParseDocument(const char* text, std::size_t length);

// What to tell an administrator about a document that was refused for its size or shape; null for
// outcomes that are ignored without a word.
const char* RefusalReason(ParseOutcome outcome);

// An attribute that is there and an integer, as the library reads integers.
std::optional<std::int32_t> IntAttribute(const TiXmlElement& element, const char* name);

// An identifier: decimal, signed or unsigned, taken modulo 2^32. The library's own integer query
// would stop at 2147483647.
std::optional<std::uint32_t> PatternAttribute(const TiXmlElement& element, const char* name);

// An attribute's text, or nothing when it is not there.
std::optional<std::string> TextAttribute(const TiXmlElement& element, const char* name);

// A document that begins with an empty declaration, "<?xml ?>".
std::unique_ptr<TiXmlDocument> NewDocument();

// Makes the element last child of its parent, which owns it, and returns it.
TiXmlElement& AppendElement(TiXmlNode& parent, const char* name);

// The document as text, as it is sent to the host.
std::string PrintDocument(const TiXmlDocument& document);

}  // namespace tvx
