// Documents of the host: parsing within limits, reading attributes, printing.
//
// Standard: XML 1.0, as far as TinyXML goes.
// Threads:  any; nothing is shared.
// Limits:   size, nodes, nesting and attributes, see base/input_limits.h.
// Not here: what the documents mean.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tvx {

enum class ParseOutcome {
  Parsed,
  Empty,     // no bytes, or a null pointer
  TooLarge,  // above kMaxDocumentBytes
  TooDeep,   // nested above kMaxNesting
  TooManyNodes,
  TooManyAttributes,
  Unreadable,  // not XML
};

// Whether nodes, attributes and faults know their row and column in the text. Counting costs time.
enum class Positions { None, Tracked };

// Why and where a document was refused, for people. Filled only when positions are tracked.
struct ParseFault {
  std::string text;  // a clause, as "one of its tags is not closed"
  int row = 0;       // from 1; 0 is nowhere in particular
  int column = 0;
};

// Parses length bytes, which need no terminator and are copied. The document is null unless the
// outcome is Parsed. White space in texts is kept, but a text of nothing else reads as none.
struct ParsedDocument {
  ParseOutcome outcome = ParseOutcome::Empty;
  std::unique_ptr<TiXmlDocument> document;
  ParseFault fault;

  // The "tDVR" root of a parsed document, else null.
  const TiXmlElement* Root() const;
};
ParsedDocument ParseDocument(const char* text, std::size_t length,
                             Positions positions = Positions::None);

// What ParseDocument would say to this terminated text before it reads it, by its size and shape.
// The text is not kept as it was.
ParseOutcome CheckMarkup(char* text, std::size_t length);

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
