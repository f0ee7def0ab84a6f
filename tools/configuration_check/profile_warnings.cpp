#include <cstdint>
#include <limits>
#include <string>

#include "configuration_check/document_place.h"
#include "configuration_check/warnings.h"
#include "mail/address.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Whether the text is the address alone, or the address in brackets behind a display name.
bool IsOnlyAddress(const std::string& text, const std::string& address) {
  const std::string trimmed = Trimmed(text);
  if (trimmed == address) return true;
  const std::string bracketed = "<" + address + ">";
  if (trimmed.size() < bracketed.size()) return false;
  const std::size_t at = trimmed.size() - bracketed.size();
  return trimmed.compare(at, std::string::npos, bracketed) == 0 &&
         trimmed.find('@') == at + bracketed.find('@');
}

// The warnings about one profile's element.
class ProfileWarnings {
 public:
  ProfileWarnings(const TiXmlElement& element, const Reading& reading, const NotifyProfile& profile,
                  Findings& findings)
      : element_(element), reading_(reading), profile_(profile), findings_(findings) {}

  void Add(bool isVideoKept) {
    AddEdge();
    AddAddresses();
    AddTexts();
    if (profile_.ThrottleSeconds < 0) {
      Warn("ThrottleSeconds", "limit", "has a negative throttle",
           "its ThrottleSeconds is " + std::to_string(profile_.ThrottleSeconds),
           "it counts as 0: every event sends a mail", "write seconds, or 0 for no throttle");
    }
    if (isVideoKept && profile_.attach && profile_.MaxVideoSeconds <= 0) {
      Warn("MaxVideoSeconds", "limit", "attaches almost no video",
           "its MaxVideoSeconds is " + std::to_string(profile_.MaxVideoSeconds),
           "the last pictures before the event are attached, two groups of pictures at most",
           "write seconds, as 20, or attach=\"0\"");
    }
  }

 private:
  void Warn(const char* attribute, const char* code, const std::string& what,
            const std::string& why, const std::string& instead, const std::string& mend) {
    findings_.push_back({Severity::Warning, PlaceOf(element_, attribute), code,
                         NameOf(element_) + " " + what, why, instead, mend});
  }

  void AddEdge() {
    if (profile_.EventEdge >= event_edge::kStart && profile_.EventEdge <= event_edge::kBoth) return;
    Warn("EventEdge", "never-triggers", "never notifies",
         "its EventEdge " + std::to_string(profile_.EventEdge) + " is none of 0, 1 and 2",
         "only test messages are sent",
         "write 0 for the start of events, 1 for the end, 2 for both");
  }

  void AddAddresses() {
    AddAddress(PlaceOf(element_, "from"), "from", profile_.from);
    for (const char* name : {"to", "cc", "bcc"}) {
      for (const TiXmlNode* content : reading_.Contents(element_, name)) {
        AddAddress(PlaceOf(*content->Parent()), name, content->ValueStr());
      }
    }
  }

  void AddAddress(Place place, const char* name, const std::string& text) {
    std::string address = text;
    if (!ValidateAddress(address)) {
      findings_.push_back({Severity::Warning, place, "no-address",
                           NameOf(element_) + " cannot send any mail",
                           Quoted(text) + " in its " + Quoted(name) + " is no address",
                           "all its messages are dropped, whatever their other addresses",
                           "write an address, as \"guard@example.com\""});
    } else if (!IsOnlyAddress(text, address)) {
      findings_.push_back(
          {Severity::Warning, place, "part-of-address",
           NameOf(element_) + " uses only a part of " + Quoted(text),
           std::string("each ") + Quoted(name) + " holds one address, of letters of ASCII",
           Quoted(address) + " is used",
           "write one address in each element, alone or as \"Name "
           "&lt;guard@example.com&gt;\""});
    }
  }

  void AddTexts() {
    if (Trimmed(profile_.subject).empty()) {
      Warn("subject", "empty-text", "sends mails without subject", "its subject is empty",
           "mail programs show none, and some filters take it for junk", "write a subject");
    }
    if (profile_.subject.find_first_of("\r\n") != std::string::npos) {
      Warn("subject", "subject-lines", "has a subject of several lines",
           "a subject is one line of a message's header", "each line break becomes a blank",
           "write the subject in one line");
    }
    const TiXmlElement* body = element_.FirstChildElement("body");
    if (Trimmed(profile_.body).empty()) {
      findings_.push_back({Severity::Warning, PlaceOf(body == nullptr ? element_ : *body),
                           "empty-text", NameOf(element_) + " sends mails without text",
                           body == nullptr ? "it has no \"body\"" : "its \"body\" is empty",
                           "the mail has its subject and its attachments only",
                           "write a text into \"body\""});
    }
  }

  const TiXmlElement& element_;
  const Reading& reading_;
  const NotifyProfile& profile_;
  Findings& findings_;
};

// A number that is handed out next and is taken already. list is the "Profiles" that counts.
void AddCounter(const TiXmlElement& list, const NotifyConfig& kept, Findings& findings) {
  const std::int32_t last = kept.profiles.rbegin()->first;
  if (kept.nextProfileId > last || last == std::numeric_limits<std::int32_t>::max()) return;
  findings.push_back({Severity::Warning, PlaceOf(list, "autoincrement"), "autoincrement",
                      "new profiles get numbers that are in use",
                      "\"autoincrement\" is " + std::to_string(kept.nextProfileId) +
                          ", but there is a profile " + std::to_string(last),
                      "of two profiles with one number the later one is kept",
                      "write autoincrement=\"" + std::to_string(last + 1) + "\""});
}

}  // namespace

void AddProfileWarnings(const TiXmlElement& block, const Reading& reading, const NotifyConfig& kept,
                        Findings& findings) {
  if (kept.profiles.empty()) {
    findings.push_back({Severity::Warning, PlaceOf(*block.FirstChildElement("Profiles")),
                        "no-profiles", "there is no profile",
                        "no element \"smtp\" in \"Profiles\" is kept", "no event sends a mail",
                        "add an \"smtp\" with \"ID\", \"description\", \"from\", \"subject\" and a "
                        "\"to\" to \"Profiles\""});
    return;
  }
  const std::int32_t any = kept.profiles.begin()->first;
  AddCounter(*reading.ProfileElement(any).Parent()->ToElement(), kept, findings);
  for (const auto& [id, profile] : kept.profiles) {
    const TiXmlElement& element = reading.ProfileElement(id);
    ProfileWarnings(element, reading, profile, findings).Add(kept.EmailSizeLimitMB != 0);
    AddTemplateWarnings(element, reading, profile, kept, findings);
  }
}

}  // namespace tvx::tool
