#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "config/event_types.h"
#include "config/templates.h"
#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"
#include "configuration_check/kept_json.h"
#include "mail/address.h"
#include "preview/template_trace.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";
constexpr std::size_t kLongestQuote = 40;

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

struct Profile {
  const NotifyProfile& kept;
  const bool hasBody;
  const bool isVideoKept;

  bool IsBodyEmpty() const { return Trimmed(kept.body).empty(); }
};

constexpr Rule<Profile> kProfileRules[] = {
    {Severity::Warning, "EventEdge", "never-triggers", "$name never notifies",
     "its EventEdge $EventEdge is none of 0, 1 and 2", "only test messages are sent",
     "write 0 for the start of events, 1 for the end, 2 for both",
     [](const Profile& it) {
       return it.kept.EventEdge < event_edge::kStart || it.kept.EventEdge > event_edge::kBoth;
     }},
    {Severity::Warning, "subject", "empty-text", "$name sends mails without subject",
     "its subject is empty", "mail programs show none, and some filters take it for junk",
     "write a subject", [](const Profile& it) { return Trimmed(it.kept.subject).empty(); }},
    {Severity::Warning, "subject", "subject-lines", "$name has a subject of several lines",
     "a subject is one line of a message's header", "each line break becomes a blank",
     "write the subject in one line",
     [](const Profile& it) { return it.kept.subject.find_first_of("\r\n") != std::string::npos; }},
    {Severity::Warning, "body/", "empty-text", "$name sends mails without text",
     "it has no \"body\"", "the mail has its subject and its attachments only",
     "write a text into \"body\"",
     [](const Profile& it) { return it.IsBodyEmpty() && !it.hasBody; }},
    {Severity::Warning, "body/", "empty-text", "$name sends mails without text",
     "its \"body\" is empty", "the mail has its subject and its attachments only",
     "write a text into \"body\"",
     [](const Profile& it) { return it.IsBodyEmpty() && it.hasBody; }},
    {Severity::Warning, "ThrottleSeconds", "limit", "$name has a negative throttle",
     "its ThrottleSeconds is $ThrottleSeconds", "it counts as 0: every event sends a mail",
     "write seconds, or 0 for no throttle",
     [](const Profile& it) { return it.kept.ThrottleSeconds < 0; }},
    {Severity::Warning, "MaxVideoSeconds", "limit", "$name attaches almost no video",
     "its MaxVideoSeconds is $MaxVideoSeconds",
     "the last pictures before the event are attached, two groups of pictures at most",
     "write seconds, as 20, or attach=\"0\"",
     [](const Profile& it) {
       return it.isVideoKept && it.kept.attach && it.kept.MaxVideoSeconds <= 0;
     }},
};

struct Address {
  const std::string& text;
  const std::string used;  // empty when there is none in the text

  // Whether the text is the address alone, or the address in brackets behind a display name.
  bool IsWhole() const {
    const std::string trimmed = Trimmed(text);
    if (trimmed == used) return true;
    const std::string bracketed = "<" + used + ">";
    if (trimmed.size() < bracketed.size()) return false;
    const std::size_t at = trimmed.size() - bracketed.size();
    return trimmed.compare(at, std::string::npos, bracketed) == 0 &&
           trimmed.find('@') == at + bracketed.find('@');
  }
};

constexpr Rule<Address> kAddressRules[] = {
    {Severity::Warning, "", "no-address", "$name cannot send any mail",
     "\"$text\" in its \"$list\" is no address",
     "all its messages are dropped, whatever their other addresses",
     "write an address, as \"guard@example.com\"",
     [](const Address& it) { return it.used.empty(); }},
    {Severity::Warning, "", "part-of-address", "$name uses only a part of \"$text\"",
     "each \"$list\" holds one address, of letters of ASCII", "\"$used\" is used",
     "write one address in each element, alone or as \"Name &lt;guard@example.com&gt;\"",
     [](const Address& it) { return !it.used.empty() && !it.IsWhole(); }},
};

struct Token {
  const Piece& piece;
  const std::string nearest;  // the placeholder that is surely meant; may be empty
  const bool isUnclosed;
  const bool hasWebServer;

  bool Is(Reason why) const { return piece.why == why; }
  bool IsNone() const { return Is(Reason::Unknown) || Is(Reason::Nested); }
};

constexpr const char* kNotReplaced = "$token is not replaced";

constexpr Rule<Token> kTokenRules[] = {
    {Severity::Warning, "", "date-format", "$token gives no date",
     "its format has a \"%\" before a letter that is not taken, or at its end",
     "\"$value\" is sent in its place",
     "use %Y %m %d %H %M %S, %x, %X and the like, and %% for a percent sign",
     [](const Token& it) { return it.piece.fate == Fate::Invalid; }},
    {Severity::Warning, "", "date-format", kNotReplaced,
     "its format cannot be read, or gives no text or too much of it", "$effect",
     "write it as {date format=\"%Y-%m-%d\"}",
     [](const Token& it) { return it.Is(Reason::NoDateText); }},
    {Severity::Warning, "", "web-address", "$token gives no link", "no web server is configured",
     "\"[No Valid Web Server Address]\" is sent in its place",
     "write the web server's address into \"Web\"",
     [](const Token& it) {
       return !it.hasWebServer && it.piece.fate == Fate::Replaced && it.piece.before == "{weblink}";
     }},
    {Severity::Warning, "", "placeholder", kNotReplaced,
     "its first \"{\" reaches to the next \"}\"", "$effect", "remove the first \"{\", or close it",
     [](const Token& it) { return it.Is(Reason::StrayBrace); }},
    {Severity::Warning, "", "placeholder", kNotReplaced, "only the body can hold a link", "$effect",
     "move it to the body", [](const Token& it) { return it.Is(Reason::BodyOnly); }},
    {Severity::Warning, "", "repeated-placeholder", kNotReplaced,
     "only the first one in a text is replaced", "$effect", "use it once in the text",
     [](const Token& it) { return it.Is(Reason::Repeated); }},
    {Severity::Warning, "", "placeholder", kNotReplaced,
     "placeholders are in small letters, without blanks at their ends", "$effect",
     "write \"$nearest\"", [](const Token& it) { return !it.nearest.empty(); }},
    {Severity::Warning, "", "placeholder", kNotReplaced,
     "it counts only in a text that also has {date}, {time} or {date format=...}", "$effect",
     "write it as {date format=\"...\"}, whose format may show a time too",
     [](const Token& it) { return it.nearest.empty() && it.Is(Reason::NoDateInText); }},
    {Severity::Warning, "", "placeholder", kNotReplaced, "there is no such placeholder", "$effect",
     "remove it, or write one of those that there are",
     [](const Token& it) { return it.nearest.empty() && it.IsNone(); }},
    {Severity::Warning, "", "placeholder", kNotReplaced, "its \"{\" has no \"}\"", "$effect",
     "close it", [](const Token& it) { return it.isUnclosed; }},
};

// A number that is handed out next and is taken already.
constexpr Rule<NotifyConfig> kCounterRules[] = {
    {Severity::Warning, "autoincrement", "autoincrement",
     "new profiles get numbers that are in use",
     "\"autoincrement\" is $next, but there is a profile $last",
     "of two profiles with one number the later one is kept", "write autoincrement=\"$free\"",
     [](const NotifyConfig& kept) {
       const std::int32_t last = kept.profiles.rbegin()->first;
       return kept.nextProfileId <= last && last != std::numeric_limits<std::int32_t>::max();
     }},
};

// The placeholder that an unknown token would be in small letters and without blanks at its ends;
// empty when it would be none.
std::string NearestTo(const Piece& piece) {
  if (piece.why != Reason::Unknown && piece.why != Reason::NoDateInText) return {};
  std::string inside = piece.before.substr(1, piece.before.size() - 2);
  inside.erase(0, inside.find_first_not_of(' '));
  inside.erase(inside.find_last_not_of(' ') + 1);
  std::transform(inside.begin(), inside.end(), inside.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::string nearest = "{" + inside + "}";
  return nearest != piece.before && ContainsPlaceholder(nearest) ? nearest : std::string();
}

// Whether it looks as if a placeholder began there, and never ended.
bool IsUnclosed(const Piece& piece) {
  const std::size_t word = piece.before.find_first_not_of(' ', 1);
  return piece.fate == Fate::Text && piece.before[0] == '{' && word != std::string::npos &&
         std::isalpha(static_cast<unsigned char>(piece.before[word])) != 0;
}

// What to find in one profile. element is where it came from.
class ProfileCheck {
 public:
  ProfileCheck(const TiXmlElement& element, const Reading& reading, const NotifyProfile& profile,
               const NotifyConfig& kept, Findings& findings)
      : element_(element),
        reading_(reading),
        profile_(profile),
        kept_(kept),
        findings_(findings),
        name_(NameOf(element)) {}

  void Add() {
    Apply(
        kProfileRules,
        Profile{profile_, element_.FirstChildElement("body") != nullptr,
                kept_.EmailSizeLimitMB != 0},
        [this](const char* at) { return PlaceOf(element_, at); },
        [this] {
          Facts facts = profile_;
          facts["name"] = name_;
          return facts;
        },
        findings_);
    AddAddress(PlaceOf(element_, "from"), "from", profile_.from);
    for (const char* name : {"to", "cc", "bcc"}) {
      for (const TiXmlNode* content : reading_.Contents(element_, name)) {
        AddAddress(PlaceOf(*content->Parent()), name, content->ValueStr());
      }
    }
    AddTemplates();
  }

 private:
  void AddAddress(const Place& place, const char* list, const std::string& text) {
    std::string used = text;
    if (!ValidateAddress(used)) used.clear();
    Apply(
        kAddressRules, Address{text, used}, [&](const char*) { return place; },
        [&]() -> Facts {
          return {{"name", name_}, {"list", list}, {"text", text}, {"used", used}};
        },
        findings_);
  }

  void AddTemplates() {
    std::string subject = profile_.subject;
    std::string body = profile_.body;
    TemplateTrace ofSubject(subject, false);
    TemplateTrace ofBody(body, true);
    TemplateFacts facts;
    facts.eventType = event_type::kVideoMotion;
    ExpandTemplates(facts, [] { return std::string(); }, subject, body,
                    {[&](const Replacement& step) { ofSubject.Take(step); },
                     [&](const Replacement& step) { ofBody.Take(step); }});
    for (const Piece& piece : ofSubject.Result()) AddToken(piece, "subject", "subject");
    for (const Piece& piece : ofBody.Result()) AddToken(piece, "body", "body/");
  }

  void AddToken(const Piece& piece, const char* text, const char* at) {
    const Token thing{piece, NearestTo(piece), IsUnclosed(piece), !kept_.webAddress.empty()};
    const std::string token =
        thing.isUnclosed ? piece.before.substr(0, kLongestQuote) : piece.before;
    const std::string line = piece.line > 1 ? ", line " + std::to_string(piece.line) + "," : "";
    Apply(
        kTokenRules, thing, [&](const char*) { return PlaceOf(element_, at); },
        [&]() -> Facts {
          return {{"token", Quoted(token) + " in the " + text + " of " + name_ + line},
                  {"value", piece.after},
                  {"nearest", thing.nearest},
                  {"effect", piece.fate == Fate::Dropped
                                 ? "it is dropped, as every brace token is in a text with a date "
                                   "or a time"
                                 : "it is sent as it stands"}};
        },
        findings_);
  }

  const TiXmlElement& element_;
  const Reading& reading_;
  const NotifyProfile& profile_;
  const NotifyConfig& kept_;
  Findings& findings_;
  const std::string name_;
};

}  // namespace

void AddProfileFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings) {
  if (kept.profiles.empty()) return;
  const std::int32_t last = kept.profiles.rbegin()->first;
  const TiXmlElement& list = *reading.ProfileElement(last).Parent()->ToElement();
  Apply(
      kCounterRules, kept, [&](const char* at) { return PlaceOf(list, at); },
      [&]() -> Facts {
        return {{"next", kept.nextProfileId}, {"last", last}, {"free", last + 1}};
      },
      findings);
  for (const auto& [id, profile] : kept.profiles) {
    ProfileCheck(reading.ProfileElement(id), reading, profile, kept, findings).Add();
  }
}

}  // namespace tvx::tool
