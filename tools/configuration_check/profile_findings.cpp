#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "config/event_types.h"
#include "config/templates.h"
#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"
#include "configuration_check/kept_json.h"
#include "mail/address.h"
#include "preview/template_trace.h"
#include "text/printable.h"
#include "text/spelling.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";
constexpr std::size_t kLongestQuote = 40;
constexpr std::int32_t kLongVideo = 600;      // seconds
constexpr std::int32_t kLongSilence = 86400;  // seconds

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

constexpr const char* kOtherEncoding = "it has bytes of another encoding";
constexpr const char* kOtherLetters = "readers see other characters there";
constexpr const char* kSaveAsUtf8 = "save the file as UTF-8";

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

struct Profile {
  const TiXmlElement& element;
  const NotifyProfile& kept;
  const bool isVideoKept;
  const bool isStandard;  // how mails are written

  Place At(const char* in) const { return PlaceOf(element, in); }
  Facts Words() const {
    Facts facts = kept;
    facts["name"] = NameOf(element);
    return facts;
  }
};

constexpr const char* kEncode =
    "add <Delivery Standard=\"1\"/> to \"Notify\", or write in letters of ASCII";

constexpr Rule<Profile> kProfileRules[] = {
    {kError, "EventEdge", "never-triggers", "$name never notifies",
     "its EventEdge $EventEdge is none of 0, 1 and 2", "only test messages are sent",
     "write 0 for the start of events, 1 for the end, 2 for both",
     [](const Profile& it) {
       return it.kept.EventEdge < event_edge::kStart || it.kept.EventEdge > event_edge::kBoth;
     }},
    {kWarning, "subject", "empty-text", "$name sends mails without subject", "its subject is empty",
     "mail programs show none, and some filters take it for junk", "write a subject",
     [](const Profile& it) { return Trimmed(it.kept.subject).empty(); }},
    {kWarning, "subject", "subject-lines", "$name has a subject of several lines",
     "a subject is one line of a message's header", "each line break becomes a blank",
     "write the subject in one line",
     [](const Profile& it) { return it.kept.subject.find_first_of("\r\n") != std::string::npos; }},
    {kWarning, "body/", "empty-text", "$name sends mails without text",
     "its \"body\" is empty or not there", "the mail has its subject and its attachments only",
     "write a text into \"body\"", [](const Profile& it) { return Trimmed(it.kept.body).empty(); }},
    {kWarning, "ThrottleSeconds", "limit", "$name has a negative throttle",
     "its ThrottleSeconds is $ThrottleSeconds", "it counts as 0: every event sends a mail",
     "write seconds, or 0 for no throttle",
     [](const Profile& it) { return it.kept.ThrottleSeconds < 0; }},
    {kWarning, "MaxVideoSeconds", "limit", "$name attaches almost no video",
     "its MaxVideoSeconds is $MaxVideoSeconds",
     "the last pictures before the event are attached, two groups of pictures at most",
     "write seconds, as 20, or attach=\"0\"",
     [](const Profile& it) {
       return it.isVideoKept && it.kept.attach && it.kept.MaxVideoSeconds <= 0;
     }},
    {kWarning, "MaxVideoSeconds", "limit", "$name waits long for its video",
     "its MaxVideoSeconds is $MaxVideoSeconds",
     "each mail leaves that many seconds after its event, often in several parts",
     "write seconds, as 20",
     [](const Profile& it) { return it.kept.attach && it.kept.MaxVideoSeconds > kLongVideo; }},
    {kWarning, "ThrottleSeconds", "limit", "$name is silent for long",
     "its ThrottleSeconds is $ThrottleSeconds",
     "behind each mail, events of more than a day send none", "write seconds, as 60",
     [](const Profile& it) { return it.kept.ThrottleSeconds > kLongSilence; }},
    {kWarning, "subject", "subject-letters", "$name has letters beyond ASCII in its subject",
     "they are sent as they are, which not every mail server and mail program understands",
     "some readers see other characters there", kEncode,
     [](const Profile& it) {
       return !it.isStandard && !IsAscii(it.kept.subject) && IsUtf8(it.kept.subject);
     }},
    {kWarning, "body/", "body-letters", "$name has letters beyond ASCII in its text",
     "mails do not say in which encoding they are", "some readers see other characters there",
     kEncode,
     [](const Profile& it) {
       return !it.isStandard && !IsAscii(it.kept.body) && IsUtf8(it.kept.body);
     }},
    {kWarning, "subject", "no-utf8", "the subject of $name is no UTF-8", kOtherEncoding,
     kOtherLetters, kSaveAsUtf8, [](const Profile& it) { return !IsUtf8(it.kept.subject); }},
    {kWarning, "body/", "no-utf8", "the body of $name is no UTF-8", kOtherEncoding, kOtherLetters,
     kSaveAsUtf8, [](const Profile& it) { return !IsUtf8(it.kept.body); }},
    {kWarning, "description", "no-utf8", "the description of $name is no UTF-8", kOtherEncoding,
     "the log shows other characters", kSaveAsUtf8,
     [](const Profile& it) { return !IsUtf8(it.kept.description); }},
};

struct Address {
  const std::string& profile;
  const Place place;
  const char* list;
  const std::string& text;
  std::string used = text;  // empty when there is none in the text

  Place At(const char*) const { return place; }
  Facts Words() const {
    return {{"name", profile}, {"list", list}, {"text", text}, {"used", used}};
  }
  bool IsSender() const { return std::string_view(list) == "from"; }
  bool IsPart() const { return !used.empty() && !IsWhole(); }
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
    {kError, "", "no-address", "$name cannot send any mail",
     "\"$text\" in its \"$list\" is no address",
     "all its messages are dropped, whatever their other addresses",
     "write an address, as \"guard@example.com\"",
     [](const Address& it) { return it.used.empty(); }},
    {kError, "", "part-of-address", "$name uses only a part of \"$text\"",
     "each \"$list\" holds one address, of letters of ASCII", "the mail goes to \"$used\" only",
     "write one address in each element, alone or as \"Name &lt;guard@example.com&gt;\"",
     [](const Address& it) { return it.IsPart() && !it.IsSender(); }},
    {kWarning, "", "part-of-address", "$name uses only a part of \"$text\"",
     "\"$list\" holds one address, of letters of ASCII", "\"$used\" is used",
     "write one address, alone or as \"Name &lt;guard@example.com&gt;\"",
     [](const Address& it) { return it.IsPart() && it.IsSender(); }},
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

// Those that an administrator may write; a date or time in a format of one's own begins so, too.
std::vector<std::string> Placeholders() {
  std::vector<std::string> tokens;
  for (const Placeholder& it : kPlaceholders) {
    const std::string token = it.token;
    tokens.push_back(token.back() == '}' ? token : token + "=\"...\"}");
  }
  return tokens;
}

std::string ListOfPlaceholders() {
  std::string list;
  for (const std::string& token : Placeholders()) list += (list.empty() ? "" : ", ") + token;
  return list;
}

std::string MeantBy(const std::string& token) {
  const auto inside = [](const std::string& it) { return it.substr(1, it.size() - 2); };
  std::vector<std::string> names;
  for (const std::string& it : Placeholders()) names.push_back(inside(it));
  const std::string nearest = NearestName(inside(token), names);
  return nearest.empty() ? nearest : "{" + nearest + "}";
}

struct Token {
  const std::string& profile;
  const Place place;
  const char* text;  // that holds it
  const bool hasWebServer;
  const Piece& piece;
  const std::string nearest = NearestTo(piece);
  // Which a slip of the pen has kept from being a placeholder; empty: none.
  const std::string meant = IsNone() ? MeantBy(piece.before) : std::string();

  Place At(const char*) const { return place; }
  Facts Words() const {
    const std::string token =
        piece.before.substr(0, IsUnclosed() ? kLongestQuote : std::string::npos);
    const std::string line = piece.line > 1 ? ", line " + std::to_string(piece.line) + "," : "";
    return {
        {"token", Quoted(token) + " in the " + text + " of " + profile + line},
        {"value", piece.after},
        {"nearest", nearest},
        {"meant", meant},
        {"placeholders", ListOfPlaceholders()},
        {"effect", piece.fate == Fate::Dropped
                       ? "it is dropped, as every brace token is in a text with a date or a time"
                       : "it is sent as it stands"}};
  }
  // Whether it looks as if a placeholder began there, and never ended.
  bool IsUnclosed() const {
    const std::size_t word = piece.before.find_first_not_of(' ', 1);
    return piece.fate == Fate::Text && piece.before[0] == '{' && word != std::string::npos &&
           std::isalpha(static_cast<unsigned char>(piece.before[word])) != 0;
  }
  bool Is(Reason why) const { return piece.why == why; }
  bool IsNone() const { return Is(Reason::Unknown) || Is(Reason::Nested); }
};

constexpr const char* kNotReplaced = "$token is not replaced";

constexpr Rule<Token> kTokenRules[] = {
    {kWarning, "", "date-format", "$token gives no date",
     "its format has a \"%\" before a letter that is not taken, or at its end",
     "\"$value\" is sent in its place",
     "use %Y %m %d %H %M %S, %x, %X and the like, and %% for a percent sign",
     [](const Token& it) { return it.piece.fate == Fate::Invalid; }},
    {kWarning, "", "date-format", kNotReplaced,
     "its format cannot be read, or gives no text or too much of it", "$effect",
     "write it as {date format=\"%Y-%m-%d\"}",
     [](const Token& it) { return it.Is(Reason::NoDateText); }},
    {kWarning, "", "web-address", "$token gives no link", "no web server is configured",
     "\"[No Valid Web Server Address]\" is sent in its place",
     "write the web server's address into \"Web\"",
     [](const Token& it) {
       return !it.hasWebServer && it.piece.fate == Fate::Replaced && it.piece.before == "{weblink}";
     }},
    {kWarning, "", "placeholder", kNotReplaced, "its first \"{\" reaches to the next \"}\"",
     "$effect", "remove the first \"{\", or close it",
     [](const Token& it) { return it.Is(Reason::StrayBrace); }},
    {kWarning, "", "placeholder", kNotReplaced, "only the body can hold a link", "$effect",
     "move it to the body", [](const Token& it) { return it.Is(Reason::BodyOnly); }},
    {kWarning, "", "repeated-placeholder", kNotReplaced, "only the first one in a text is replaced",
     "$effect", "use it once in the text", [](const Token& it) { return it.Is(Reason::Repeated); }},
    {kWarning, "", "placeholder", kNotReplaced,
     "placeholders are in small letters, without blanks at their ends", "$effect",
     "write \"$nearest\"", [](const Token& it) { return !it.nearest.empty(); }},
    {kWarning, "", "placeholder", kNotReplaced,
     "it counts only in a text that also has {date}, {time} or {date format=...}", "$effect",
     "write it as {date format=\"...\"}, whose format may show a time too",
     [](const Token& it) { return it.nearest.empty() && it.Is(Reason::NoDateInText); }},
    {kWarning, "", "placeholder", kNotReplaced, "there is no such placeholder", "$effect",
     "write \"$meant\"", [](const Token& it) { return it.nearest.empty() && !it.meant.empty(); }},
    {kWarning, "", "placeholder", kNotReplaced, "there is no such placeholder", "$effect",
     "remove it, or write one of $placeholders",
     [](const Token& it) { return it.nearest.empty() && it.meant.empty() && it.IsNone(); }},
    {kWarning, "", "placeholder", kNotReplaced, "its \"{\" has no \"}\"", "$effect", "close it",
     [](const Token& it) { return it.IsUnclosed(); }},
};

struct Counter {
  const TiXmlElement& list;  // the "Profiles" that counts
  const std::int32_t next;
  const std::int32_t last;  // that is in use

  Place At(const char* in) const { return PlaceOf(list, in); }
  Facts Words() const { return {{"next", next}, {"last", last}, {"free", last + 1}}; }
};

constexpr Rule<Counter> kCounterRules[] = {
    {kWarning, "autoincrement", "autoincrement", "new profiles get numbers that are in use",
     "\"autoincrement\" is $next, but there is a profile $last",
     "of two profiles with one number the later one is kept", "write autoincrement=\"$free\"",
     [](const Counter& it) {
       return it.next <= it.last && it.last != std::numeric_limits<std::int32_t>::max();
     }},
};

void AddAddress(const std::string& profile, const Place& place, const char* list,
                const std::string& text, Findings& findings) {
  Address address{profile, place, list, text};
  if (!ValidateAddress(address.used)) address.used.clear();
  Apply(kAddressRules, address, findings);
}

void AddTemplates(const TiXmlElement& element, const std::string& name,
                  const NotifyProfile& profile, bool hasWebServer, Findings& findings) {
  std::string subject = profile.subject;
  std::string body = profile.body;
  TemplateTrace ofSubject(subject, false);
  TemplateTrace ofBody(body, true);
  TemplateFacts facts;
  facts.eventType = event_type::kVideoMotion;
  ExpandTemplates(facts, [] { return std::string(); }, subject, body,
                  {[&](const Replacement& step) { ofSubject.Take(step); },
                   [&](const Replacement& step) { ofBody.Take(step); }});
  const auto add = [&](const Pieces& pieces, const char* text, const Place& place) {
    for (const Piece& piece : pieces) {
      Apply(kTokenRules, Token{name, place, text, hasWebServer, piece}, findings);
    }
  };
  add(ofSubject.Result(), "subject", PlaceOf(element, "subject"));
  add(ofBody.Result(), "body", PlaceOf(element, "body/"));
}

}  // namespace

void AddProfileFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings) {
  if (kept.profiles.empty()) return;
  const std::int32_t last = kept.profiles.rbegin()->first;
  const TiXmlElement& list = *reading.ProfileElement(last).Parent()->ToElement();
  Apply(kCounterRules, Counter{list, kept.nextProfileId, last}, findings);
  for (const auto& [id, profile] : kept.profiles) {
    const TiXmlElement& element = reading.ProfileElement(id);
    const std::string name = NameOf(element);
    Apply(kProfileRules,
          Profile{element, profile, kept.EmailSizeLimitMB != 0, kept.delivery.Standard}, findings);
    AddAddress(name, PlaceOf(element, "from"), "from", profile.from, findings);
    for (const char* recipients : {"to", "cc", "bcc"}) {
      for (const TiXmlNode* content : reading.Contents(element, recipients)) {
        AddAddress(name, PlaceOf(*content->Parent()), recipients, content->ValueStr(), findings);
      }
    }
    AddTemplates(element, name, profile, !kept.webAddress.empty(), findings);
  }
}

}  // namespace tvx::tool
