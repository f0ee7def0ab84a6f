#include "config/templates.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/utf8.h"
#include "config/event_types.h"

namespace tvx {
namespace {

using Value = std::optional<std::string>;
using Facts = const TemplateFacts&;
using Link = const WebLinkSource&;

Value EventTypeValue(std::int32_t eventType) {
  if (eventType == event_type::kTestMessage) return "[Test Event Type]";
  if (eventType <= event_type::kInvalid) return std::nullopt;
  if (IsSystemEvent(eventType) || IsDeviceHealthEvent(eventType)) return "Health";
  return EventTypeName(eventType);
}

Value SourceValue(Facts facts) {
  return IsSystemEvent(facts.eventType) ? EventTypeName(facts.eventType) : facts.sourceName;
}

bool Contains(const std::string& text, const Placeholder& placeholder) {
  return text.find(placeholder.token) != std::string::npos;
}

void Expand(Facts facts, Link webLink, bool isBody, std::string& text,
            const ReplacementObserver& observer) {
  for (const Placeholder& placeholder : kPlaceholders) {
    if (placeholder.value == nullptr || (placeholder.isBodyOnly && !isBody)) continue;
    const std::size_t at = text.find(placeholder.token);
    if (at == std::string::npos) continue;
    Value value = placeholder.value(facts, webLink);
    if (!value) continue;
    *value = OneLine(std::move(*value));
    // Mail servers take a full stop alone on a line for the end of the mail, some also where the
    // lines end in a bare line feed.
    const bool beginsLine = at == 0 || text[at - 1] == '\n';
    if (isBody && beginsLine && value->rfind('.', 0) == 0) value->insert(0, 1, ' ');
    const std::size_t length = std::strlen(placeholder.token);
    if (observer) observer({at, length, *value, TokenFate::Replaced});
    text.replace(at, length, *value);
  }
  // Last, because it removes every token that it does not know.
  if (ContainsDate(text)) ExpandDates(facts.eventTime, text, observer);
}

}  // namespace

constexpr std::array<Placeholder, 10> kPlaceholders = {{
    {"{weblink}", true, [](Facts, Link webLink) -> Value { return webLink(); }},
    {"{event type}", false, [](Facts facts, Link) { return EventTypeValue(facts.eventType); }},
    {"{source}", false, [](Facts facts, Link) { return SourceValue(facts); }},
    {"{system name}", false, [](Facts facts, Link) -> Value { return facts.systemName; }},
    {"{serial}", false, [](Facts facts, Link) -> Value { return facts.serial; }},
    {"{licensed mac}", false, [](Facts facts, Link) -> Value { return facts.macAddress; }},
    {"{event state}", false, [](Facts facts, Link) -> Value { return facts.eventState; }},
    {"{date}", false, nullptr},
    {"{time}", false, nullptr},
    {"{date format", false, nullptr},
}};

bool ContainsPlaceholder(const std::string& text) {
  return std::any_of(kPlaceholders.begin(), kPlaceholders.end(),
                     [&](const Placeholder& placeholder) { return Contains(text, placeholder); });
}

bool ContainsDate(const std::string& text) {
  return std::any_of(kPlaceholders.begin(), kPlaceholders.end(),
                     [&](const Placeholder& placeholder) {
                       return placeholder.value == nullptr && Contains(text, placeholder);
                     });
}

void ExpandTemplates(const TemplateFacts& facts, const WebLinkSource& webLink, std::string& subject,
                     std::string& body, const TemplateObservers& observers) {
  Expand(facts, webLink, false, subject, observers.subject);
  Expand(facts, webLink, true, body, observers.body);
}

}  // namespace tvx
