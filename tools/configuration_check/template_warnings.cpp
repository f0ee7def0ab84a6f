#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "config/date_template.h"
#include "config/event_types.h"
#include "config/templates.h"
#include "configuration_check/document_place.h"
#include "configuration_check/warnings.h"
#include "preview/placeholder_marks.h"

namespace tvx::tool {
namespace {

constexpr std::size_t kLongestQuote = 40;

void Expand(std::string& subject, std::string& body, bool withValues) {
  std::string value = withValues ? "value" : "";
  TemplateFacts facts;
  facts.eventType = event_type::kVideoMotion;
  facts.sourceName = value;
  facts.systemName = value;
  facts.serial = value;
  facts.macAddress = value;
  facts.eventState = value;
  ExpandTemplates(
      facts, [&value] { return value; }, subject, body);
}

// Whether the token stands for a date or a time, in a text where dates are expanded.
bool IsDate(const std::string& token) {
  std::string text = "{date format=\"\"}" + token;
  ExpandDates(0, text);
  return !text.empty();
}

// The placeholder that the token would be in small letters and without blanks at its ends; empty
// when it would be none.
std::string Nearest(const std::string& token) {
  std::string inside = token.substr(1, token.size() - 2);
  inside.erase(0, inside.find_first_not_of(' '));
  inside.erase(inside.find_last_not_of(' ') + 1);
  std::transform(inside.begin(), inside.end(), inside.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::string nearest = "{" + inside + "}";
  return nearest != token && ContainsPlaceholder(nearest) ? nearest : std::string();
}

// The warnings about one text of a profile.
class TextWarnings {
 public:
  TextWarnings(std::string profile, const char* name, Place place, Findings& findings)
      : profile_(std::move(profile)), name_(name), place_(place), findings_(findings) {}

  void Add(const Piece& piece) {
    line_ = piece.line;
    switch (piece.fate) {
      case Fate::Invalid:
        Warn("date-format", piece.before, "gives no date",
             "its format has a \"%\" before a letter that is not taken, or at its end",
             Quoted(piece.after) + " is sent in its place",
             "use %Y %m %d %H %M %S, %x, %X and the like, and %% for a percent sign");
        break;
      case Fate::Left:
        AddUnreplaced(piece, "it is sent as it stands");
        break;
      case Fate::Dropped:
        AddUnreplaced(piece,
                      "it is dropped, as every brace token is in a text with a date or a time");
        break;
      case Fate::Text:
        AddUnclosed(piece.before);
        break;
      case Fate::Replaced:
        break;
    }
  }

  void AddMissingWebServer() {
    Warn("web-address", "{weblink}", "gives no link", "no web server is configured",
         "\"[No Valid Web Server Address]\" is sent in its place",
         "write the web server's address into \"Web\"");
  }

 private:
  void Warn(const char* code, const std::string& token, const char* what, const std::string& why,
            const std::string& instead, const std::string& mend) {
    findings_.push_back({Severity::Warning, place_, code,
                         Quoted(token) + " in the " + name_ + " of " + profile_ +
                             (line_ > 1 ? ", line " + std::to_string(line_) + ", " : " ") + what,
                         why, instead, mend});
  }

  void AddUnreplaced(const Piece& piece, const char* instead) {
    const std::string& token = piece.before;
    const auto warn = [&](const char* code, const char* why, const std::string& mend) {
      Warn(code, token, "is not replaced", why, instead, mend);
    };
    const std::string nearest = Nearest(token);
    if (piece.why == kStrayBrace) {
      warn("placeholder", kStrayBrace, "remove the first \"{\", or close it");
    } else if (token == "{weblink}" && std::strcmp(name_, "subject") == 0) {
      warn("placeholder", "only the body can hold a link", "move it to the body");
    } else if (ContainsDate(token)) {
      warn("date-format", "its format cannot be read, or gives no text or too much of it",
           "write it as {date format=\"%Y-%m-%d\"}");
    } else if (ContainsPlaceholder(token)) {
      warn("repeated-placeholder", "only the first one in a text is replaced",
           "use it once in the text");
    } else if (!nearest.empty()) {
      warn("placeholder", "placeholders are in small letters, without blanks at their ends",
           "write " + Quoted(nearest));
    } else if (IsDate(token)) {
      warn("placeholder",
           "it counts only in a text that also has {date}, {time} or {date format=...}",
           "write \"date\" for \"time\": its format may show a time");
    } else {
      warn("placeholder", "there is no such placeholder",
           "remove it, or write one of those that there are");
    }
  }

  // Text with a brace that looks as if a placeholder began there.
  void AddUnclosed(const std::string& text) {
    const std::size_t open = text.find('{');
    if (open == std::string::npos) return;
    const std::size_t word = text.find_first_not_of(' ', open + 1);
    if (word == std::string::npos || std::isalpha(static_cast<unsigned char>(text[word])) == 0) {
      return;
    }
    Warn("placeholder", text.substr(open, kLongestQuote), "is not replaced",
         "its \"{\" has no \"}\"", "it is sent as it stands", "close it");
  }

  const std::string profile_;
  const char* name_;
  const Place place_;
  Findings& findings_;
  std::size_t line_ = 1;  // of the text, whose lines need not be the file's
};

bool IsLink(const Piece& piece) {
  return piece.fate == Fate::Replaced && piece.before == "{weblink}";
}

}  // namespace

void AddTemplateWarnings(const TiXmlElement& element, const Reading& reading,
                         const NotifyProfile& profile, const NotifyConfig& kept,
                         Findings& findings) {
  const auto marked = MarkPlaceholders(profile.subject, profile.body, Expand);
  if (!marked) return;
  TextWarnings subject(NameOf(element), "subject", PlaceOf(element, "subject"), findings);
  for (const Piece& piece : marked->subject) subject.Add(piece);
  const std::vector<const TiXmlNode*> bodies = reading.Contents(element, "body");
  if (bodies.empty()) return;
  TextWarnings body(NameOf(element), "body", PlaceOf(*bodies[0]->Parent()), findings);
  for (const Piece& piece : marked->body) {
    body.Add(piece);
    if (kept.webAddress.empty() && IsLink(piece)) body.AddMissingWebServer();
  }
}

}  // namespace tvx::tool
