// Subject and body templates: placeholders are replaced by facts of the event and of the system.
//
// Threads: any; the process's locale and time zone are read.
// Errors:  none fails a message: unknown tokens stay or are dropped, a bad date format becomes
//          "[invalid format specified]".
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tvx {

// What the placeholders stand for, for one notification.
struct TemplateFacts {
  std::int64_t eventTime = 0;  // seconds since 1970
  std::int32_t eventType = 0;  // event_type::kTestMessage marks a test
  std::string sourceName;
  std::string systemName;
  std::string serial;
  std::string macAddress;
  std::string eventState;
};

// Gives the link for "{weblink}", or a bracketed notice why there is none. Asked at most once a
// message, and only when the body has the placeholder, since the answer may cost a connection.
using WebLinkSource = std::function<std::string()>;

// True when the text holds any of the ten placeholders, matched exactly as written.
bool ContainsPlaceholder(const std::string& text);

// Replaces the placeholders of one message in place: each simple one at its first occurrence only,
// dates and times everywhere. A text with a date or time loses every other brace token.
void ExpandTemplates(const TemplateFacts& facts, const WebLinkSource& webLink, std::string& subject,
                     std::string& body);

// Replaces the first "{event type}": a name, "Health" or "[Test Event Type]"; a type of 0 or of no
// meaning leaves it.
void ReplaceEventType(std::int32_t eventType, std::string& text);

}  // namespace tvx
