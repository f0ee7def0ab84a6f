#include "configuration_check/reading_findings.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>

#include "configuration_check/document_place.h"
#include "host/host_records.h"

namespace tvx::tool {
namespace {

// What a skip costs, by what is skipped.
const char* Effect(const TiXmlElement& element) {
  if (IsServer(element)) {
    return "mail is sent through the other servers only, and it is gone from the file after the "
           "start";
  }
  if (IsProfile(element)) {
    return "events that ask for this profile send no mail, and it is gone from the file after the "
           "start";
  }
  return kRejected;
}

std::string Attribute(const std::string& name) {
  return "the attribute " + Quoted(name);
}

std::string OwnModuleId() {
  return "ID=\"" + std::to_string(kModuleId) + "\"";
}

// Why an element is skipped and how to mend it.
void Explain(const Reading::Skip& skip, Finding& finding) {
  const std::string name = Quoted(skip.name);
  switch (skip.reason) {
    case SkipReason::NoElement:
      finding.code = "missing-element";
      finding.why = skip.name == "to" ? "it has no \"to\" with an address in it"
                                      : "it has no element " + name;
      finding.mend = "add an element " + name;
      if (skip.name == "to") finding.mend = "add a \"to\" with an address";
      if (skip.name != "Notify" && skip.name != "to") finding.mend += ", even an empty one";
      break;
    case SkipReason::NoAttribute:
      finding.code = "missing-attribute";
      finding.why = "it has no attribute " + name;
      finding.mend = "add " + Attribute(skip.name);
      break;
    case SkipReason::NoNumber:
      finding.code = "not-a-number";
      finding.why = "its " + name + " is no number";
      finding.mend = "write a whole number there";
      break;
    case SkipReason::OtherModule:
      finding.code = "other-module";
      finding.why =
          "its attribute \"ID\" is not that of this plug-in, " + std::to_string(kModuleId);
      finding.mend = "write " + OwnModuleId();
      break;
    case SkipReason::HalfCredentials:
      finding.code = "half-credentials";
      finding.why = "its \"Authentication\" has no attribute " + name;
      finding.mend = "give both \"username\" and \"password\", or remove \"Authentication\"";
      break;
    case SkipReason::SeveralElements:
      finding.code = "several-elements";
      finding.why = "it has more than one " + name;
      finding.mend = "leave only one";
      break;
    case SkipReason::NoText:
      finding.code = "empty-address";
      finding.why = "there is no address in it";
      finding.mend = "write an address, or remove the element";
      break;
  }
}

Place PlaceOfSkip(const Reading::Skip& skip) {
  const TiXmlElement& element = *skip.element;
  const char* name = skip.name.c_str();
  switch (skip.reason) {
    case SkipReason::NoNumber:
    case SkipReason::OtherModule:
      return PlaceOf(element, name);
    case SkipReason::HalfCredentials:
      return PlaceOf(*element.FirstChildElement("Authentication"));
    case SkipReason::SeveralElements:
      return PlaceOf(*element.FirstChildElement(name)->NextSiblingElement(name));
    default:
      return PlaceOf(element);
  }
}

// The element that only its letters' case keeps from being the one that is missed.
const TiXmlElement* InOtherCase(const Reading::Skip& skip) {
  if (skip.reason != SkipReason::NoElement) return nullptr;
  auto at = skip.element->FirstChildElement();
  while (at != nullptr && ::strcasecmp(at->Value(), skip.name.c_str()) != 0) {
    at = at->NextSiblingElement();
  }
  return at;
}

// For the block and its lists, without which the file is rejected.
void ExplainMissing(const Reading::Skip& skip, Finding& finding) {
  const TiXmlElement& element = *skip.element;
  if (const TiXmlElement* other = InOtherCase(skip)) {
    finding.place = PlaceOf(*other);
    finding.what = NameOf(*other) + " is not read";
    finding.why = "it is not written " + Quoted(skip.name);
    finding.mend = "write " + Quoted(skip.name);
  } else if (skip.name == "Notify" && element.ValueStr() == skip.name) {
    finding.why = "it is the root itself";
    finding.mend = "put it into a root element, <tDVR>...</tDVR>";
  }
}

Finding SkipFinding(const Reading::Skip& skip) {
  Finding finding;
  finding.place = PlaceOfSkip(skip);
  finding.what = NameOf(*skip.element) + " is skipped";
  finding.instead = Effect(*skip.element);
  Explain(skip, finding);
  if (skip.reason == SkipReason::NoText) finding.instead = "the profile does without it";
  if (finding.instead == kRejected) {
    finding.what = NameOf(*skip.element) + " is not taken";
    ExplainMissing(skip, finding);
  }
  return finding;
}

// How the reader reads a number: as much as there is of one, within 32 bits.
struct NumberText {
  bool isNumber = false;  // something of it is
  bool isWhole = false;   // nothing but blanks around it
  bool isInRange = false;
  long value = 0;
};

NumberText ReadNumber(const char* text) {
  using Limits = std::numeric_limits<std::int32_t>;
  NumberText number;
  char* end = nullptr;
  errno = 0;
  number.value = std::strtol(text, &end, 10);
  number.isNumber = end != text;
  number.isInRange =
      errno != ERANGE && number.value >= Limits::min() && number.value <= Limits::max();
  while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
  number.isWhole = number.isNumber && *end == '\0';
  return number;
}

Finding GivenId(const Reading::Number& number) {
  return {Severity::Warning,
          PlaceOf(*number.element, "ID"),
          "id-given",
          NameOf(*number.element) + " gets the ID " + std::to_string(number.used),
          "its ID is 0",
          "the number that \"autoincrement\" has reached is taken, in use or not",
          "write the ID that the server's events name"};
}

std::string WhyNumber(const NumberText& number, const char* text, const std::string& attribute) {
  if (!number.isNumber) return Quoted(text) + " is no whole number";
  if (!number.isWhole) return Quoted(text) + " does not end where its number ends";
  if (!number.isInRange) return Quoted(text) + " does not fit into 32 bits";
  if (attribute == "attach") return Quoted(text) + " is neither 0 nor 1";
  return Quoted(text) + " is less than the next number to give";
}

void AddNumber(const Reading::Number& number, Findings& findings) {
  const std::string& name = number.attribute;
  const char* text = number.element->Attribute(name.c_str());
  if (text == nullptr) return;
  const NumberText said = ReadNumber(text);
  if (said.isWhole && said.isInRange && said.value == number.used) return;
  if (name == "ID" && said.isWhole && said.value == 0) {
    findings.push_back(GivenId(number));
    return;
  }
  findings.push_back({Severity::Error, PlaceOf(*number.element, name.c_str()), "number",
                      Attribute(name) + " of " + NameOf(*number.element) + " is not taken",
                      WhyNumber(said, text, name), std::to_string(number.used) + " is used",
                      name == "attach"          ? "write 1 to attach video, 0 not to"
                      : name == "autoincrement" ? "write a number of 1 or more"
                                                : "write a whole number and nothing else"});
}

// Profiles that did not outlive the reading.
void AddReplaced(const Reading::Kept& profile, const Reading& reading, const NotifyConfig& kept,
                 Findings& findings) {
  Finding finding{Severity::Error, PlaceOf(*profile.element), "", "", "", "", ""};
  if (kept.profiles.count(profile.id) == 0) {
    finding.code = "profiles-replaced";
    finding.what = NameOf(*profile.element) + " is dropped";
    finding.why = "a later element \"Profiles\" replaces all profiles before it";
    finding.instead = Effect(*profile.element);
    finding.mend = "put all profiles into one \"Profiles\"";
  } else {
    const TiXmlElement& later = reading.ProfileElement(profile.id);
    if (&later == profile.element) return;
    finding.code = "profile-replaced";
    finding.what = NameOf(*profile.element) + " is replaced";
    finding.why = NameOf(later) + " in line " + std::to_string(later.Row()) + " has its ID, " +
                  std::to_string(profile.id);
    finding.instead = "events that ask for this ID use the later profile";
    finding.mend = "give every profile an ID of its own";
  }
  findings.push_back(std::move(finding));
}

}  // namespace

void AddReadingFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings) {
  for (const Reading::Skip& skip : reading.Skipped()) findings.push_back(SkipFinding(skip));
  for (const Reading::Number& number : reading.Numbers()) AddNumber(number, findings);
  for (const Reading::Kept& profile : reading.Profiles()) {
    AddReplaced(profile, reading, kept, findings);
  }
}

}  // namespace tvx::tool
