// The date and time placeholders of a template: "{date}", "{time}", and either with a format of
// the user's, as in {date format="%Y-%m-%d"}.
// Threads: any; nothing is shared.
#pragma once

#include <cstdint>
#include <string>

namespace tvx {

// True when the text holds "{date}", "{time}" or "{date format".
bool ContainsDate(const std::string& text);

// Replaces the date and time tokens of a text that ContainsDate by the time (seconds since 1970) in
// the local zone, and drops every other brace token; leaves any other text as it is. A token is
// read as an XML element, its formats are those of strftime that do not depend on an extension.
void ExpandDates(std::int64_t time, std::string& text);

}  // namespace tvx
