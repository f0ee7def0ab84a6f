// Is told what the reader of a "Notify" block takes and what it skips, element by element.
//
// For tools that explain a configuration; this class itself is the one that listens to nothing. The
// plug-in uses it, and skips what is malformed without a word.
// Threads: the one that reads. Elements and texts are the document's.
#pragma once

#include <cstdint>

class TiXmlElement;
class TiXmlNode;

namespace tvx {

struct NotifyProfile;
struct SmtpServer;

enum class SkipReason {
  NoElement,        // a child that must be there is not; its name is given
  NoAttribute,      // an attribute that must be there is not
  NoNumber,         // an attribute that must be a number is none
  OtherModule,      // the block's "ID" is not the plug-in's
  HalfCredentials,  // "Authentication" lacks the attribute
  SeveralElements,  // a child that may be there once is there again
  NoText,           // an address without any
};

class NotifyReadObserver {
 public:
  NotifyReadObserver() = default;
  NotifyReadObserver(const NotifyReadObserver&) = delete;
  NotifyReadObserver& operator=(const NotifyReadObserver&) = delete;
  virtual ~NotifyReadObserver() = default;

  // The element is known in its place, and read; it may yet be skipped.
  virtual void Enters(const TiXmlElement& /*element*/) {}

  virtual void TakesText(const TiXmlElement& /*element*/, const char* /*attribute*/) {}

  // The number that is used, whether or not the attribute is there and says so.
  virtual void TakesNumber(const TiXmlElement& /*element*/, const char* /*attribute*/,
                           std::int32_t /*number*/) {}

  // A text element's content: the node that holds it, which in a strange file is no text.
  virtual void TakesContent(const TiXmlNode& /*content*/) {}

  // Nothing of the element counts, whatever was taken before. The name is an attribute's or a
  // child's, or null. One element may be skipped for several reasons.
  virtual void Skips(const TiXmlElement& /*element*/, SkipReason /*reason*/, const char* /*name*/) {
  }

  virtual void Keeps(const TiXmlElement& /*element*/, const SmtpServer& /*server*/) {}

  // It goes under its ID, and replaces what is kept there.
  virtual void Keeps(const TiXmlElement& /*element*/, const NotifyProfile& /*profile*/) {}
};

}  // namespace tvx
