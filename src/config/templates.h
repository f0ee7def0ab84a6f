// Subject and body templates: placeholders are replaced by facts of the event and of the system.
//
// Threads: any; the process's locale and time zone are read.
// Errors:  none fails a message: unknown tokens stay or are dropped, a bad date format becomes
//          "[invalid format specified]".
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "config/date_template.h"

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

// What stands for one placeholder in a template.
struct Placeholder {
  const char* token;
  bool isBodyOnly;
  // Its value; nothing leaves the token as it is. Null for dates and times, see date_template.h.
  std::optional<std::string> (*value)(const TemplateFacts&, const WebLinkSource&);
};

// All of them, in the order in which they are replaced: a value may hold placeholders that come
// later. Whoever tells of placeholders reads them from here; docs/templates.md describes each.
extern const std::array<Placeholder, 10> kPlaceholders;

// True when the text holds any of the placeholders, matched exactly as written.
bool ContainsPlaceholder(const std::string& text);

// True when it holds one of those that make it lose every token that is none.
bool ContainsDate(const std::string& text);

// Are told of each step in the expansion of their text, for tools that explain a template.
struct TemplateObservers {
  ReplacementObserver subject;
  ReplacementObserver body;
};

// Replaces the placeholders of one message in place. What replaces them holds no control characters
// (a blank for each), nor a full stop at the beginning of a line of the body (a blank before it), so
// that no name can end the mail; the template's own text stays as it is. Each simple one at its first occurrence only,
// dates and times everywhere. A text with a date or time loses every other brace token.
void ExpandTemplates(const TemplateFacts& facts, const WebLinkSource& webLink, std::string& subject,
                     std::string& body, const TemplateObservers& observers = {});

}  // namespace tvx
