#include <strings.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <system_error>

#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"
#include "host/host_records.h"

namespace tvx::tool {
namespace {

constexpr const char* kRejected =
    "the plug-in starts with an empty configuration, sends no mail, and keeps the file as "
    "\"notify.xml.rejected\"";

// What it costs that an element is skipped.
const char* EffectOf(const TiXmlElement& element) {
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

struct Skip {
  const Reading::Skip& skip;
  // The element that only its letters' case keeps from being the block or list that is missed.
  const TiXmlElement* otherCase;

  bool Is(SkipReason reason) const { return skip.reason == reason; }
  bool Misses(const char* name) const {
    return Is(SkipReason::NoElement) && skip.name == name && otherCase == nullptr;
  }
  // Which stands for the block that it should hold.
  bool IsRoot() const { return skip.element->ValueStr() == skip.name; }
};

constexpr Rule<Skip> kSkipRules[] = {
    {Severity::Error, "", "missing-element", "$name is skipped",
     "it has no \"to\" with an address in it", "$effect", "add a \"to\" with an address",
     [](const Skip& it) { return it.Misses("to"); }},
    {Severity::Error, "", "missing-element", "$name is not taken", "it is the root itself",
     "$effect", "put it into a root element, <tDVR>...</tDVR>",
     [](const Skip& it) { return it.Misses("Notify") && it.IsRoot(); }},
    {Severity::Error, "", "missing-element", "$name is not taken", "it has no element \"Notify\"",
     "$effect", "add an element \"Notify\"",
     [](const Skip& it) { return it.Misses("Notify") && !it.IsRoot(); }},
    {Severity::Error, "", "missing-element", "$name is not taken", "it has no element \"$part\"",
     "$effect", "add an element \"$part\", even an empty one",
     [](const Skip& it) { return it.Misses("Servers") || it.Misses("Profiles"); }},
    {Severity::Error, "", "missing-element", "$other is not read", "it is not written \"$part\"",
     "$effect", "write \"$part\"", [](const Skip& it) { return it.otherCase != nullptr; }},
    {Severity::Error, "", "missing-attribute", "$name is skipped", "it has no attribute \"$part\"",
     "$effect", "add the attribute \"$part\"",
     [](const Skip& it) { return it.Is(SkipReason::NoAttribute); }},
    {Severity::Error, "ID", "not-a-number", "$name is skipped", "its \"$part\" is no number",
     "$effect", "write a whole number there",
     [](const Skip& it) { return it.Is(SkipReason::NoNumber); }},
    {Severity::Error, "ID", "other-module", "$name is not taken",
     "its attribute \"ID\" is not that of this plug-in, $module", "$effect", "write ID=\"$module\"",
     [](const Skip& it) { return it.Is(SkipReason::OtherModule); }},
    {Severity::Error, "Authentication/", "half-credentials", "$name is skipped",
     "its \"Authentication\" has no attribute \"$part\"", "$effect",
     "give both \"username\" and \"password\", or remove \"Authentication\"",
     [](const Skip& it) { return it.Is(SkipReason::HalfCredentials); }},
    {Severity::Error, "", "several-elements", "$name is skipped", "it has more than one \"$part\"",
     "$effect", "leave only one",
     [](const Skip& it) { return it.Is(SkipReason::SeveralElements); }},
    {Severity::Error, "", "empty-address", "$name is skipped", "there is no address in it",
     "the profile does without it", "write an address, or remove the element",
     [](const Skip& it) { return it.Is(SkipReason::NoText); }},
};

void AddSkip(const Reading::Skip& skip, Findings& findings) {
  const TiXmlElement& element = *skip.element;
  const char* part = skip.name.c_str();
  const TiXmlElement* other = nullptr;
  if (skip.reason == SkipReason::NoElement && EffectOf(element) == kRejected) {
    other = element.FirstChildElement();
    while (other != nullptr && ::strcasecmp(other->Value(), part) != 0) {
      other = other->NextSiblingElement();
    }
  }
  const TiXmlElement* place = other == nullptr ? &element : other;
  if (skip.reason == SkipReason::SeveralElements) {
    place = element.FirstChildElement(part)->NextSiblingElement(part);
  }
  Apply(
      kSkipRules, Skip{skip, other}, [&](const char* at) { return PlaceOf(*place, at); },
      [&]() -> Facts {
        return {{"name", NameOf(element)},
                {"other", NameOf(*place)},
                {"part", skip.name},
                {"module", kModuleId},
                {"effect", EffectOf(element)}};
      },
      findings);
}

// A number as the reader reads it: as much as there is of one, within 32 bits.
struct Number {
  const std::string& attribute;
  const std::int32_t used;
  bool isNumber = false;  // something of it is
  bool isWhole = false;   // nothing but blanks around it
  bool isInRange = false;
  long value = 0;

  Number(const Reading::Number& number, const char* text)
      : attribute(number.attribute), used(number.used) {
    using Limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    isNumber = end != text;
    isInRange = errno != ERANGE && value >= Limits::min() && value <= Limits::max();
    while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
    isWhole = isNumber && *end == '\0';
  }

  bool IsGivenId() const { return attribute == "ID" && isWhole && value == 0 && used != 0; }
  // Read well, and yet not used.
  bool IsRefused() const { return isWhole && isInRange && value != used && !IsGivenId(); }
};

constexpr const char* kNotTaken = "the attribute \"$attribute\" of $name is not taken";

constexpr Rule<Number> kNumberRules[] = {
    {Severity::Warning, "", "id-given", "$name gets the ID $used", "its ID is 0",
     "the number that \"autoincrement\" has reached is taken, in use or not",
     "write the ID that the server's events name", [](const Number& it) { return it.IsGivenId(); }},
    {Severity::Error, "", "number", kNotTaken, "\"$text\" is no whole number", "$used is used",
     "$fix", [](const Number& it) { return !it.isNumber; }},
    {Severity::Error, "", "number", kNotTaken, "\"$text\" does not end where its number ends",
     "$used is used", "$fix", [](const Number& it) { return it.isNumber && !it.isWhole; }},
    {Severity::Error, "", "number", kNotTaken, "\"$text\" does not fit into 32 bits",
     "$used is used", "$fix", [](const Number& it) { return it.isWhole && !it.isInRange; }},
    {Severity::Error, "", "number", kNotTaken, "\"$text\" is neither 0 nor 1", "$used is used",
     "$fix", [](const Number& it) { return it.IsRefused() && it.attribute == "attach"; }},
    {Severity::Error, "", "number", kNotTaken, "\"$text\" is less than the next number to give",
     "$used is used", "$fix",
     [](const Number& it) { return it.IsRefused() && it.attribute != "attach"; }},
};

void AddNumber(const Reading::Number& number, Findings& findings) {
  const std::string& attribute = number.attribute;
  const char* text = number.element->Attribute(attribute.c_str());
  if (text == nullptr) return;
  Apply(
      kNumberRules, Number(number, text),
      [&](const char*) { return PlaceOf(*number.element, attribute); },
      [&]() -> Facts {
        return {{"name", NameOf(*number.element)},
                {"attribute", attribute},
                {"text", text},
                {"used", number.used},
                {"fix", attribute == "attach"          ? "write 1 to attach video, 0 not to"
                        : attribute == "autoincrement" ? "write a number of 1 or more"
                                                       : "write a whole number and nothing else"}};
      },
      findings);
}

// A profile that was kept when it was read, and the one that now has its ID, if any.
struct Successor {
  const TiXmlElement* profile;
  const TiXmlElement* later;
};

constexpr Rule<Successor> kSuccessorRules[] = {
    {Severity::Error, "", "profiles-replaced", "$name is dropped",
     "a later element \"Profiles\" replaces all profiles before it", "$effect",
     "put all profiles into one \"Profiles\"",
     [](const Successor& it) { return it.later == nullptr; }},
    {Severity::Error, "", "profile-replaced", "$name is replaced",
     "$later in line $line has its ID, $id", "events that ask for this ID use the later profile",
     "give every profile an ID of its own",
     [](const Successor& it) { return it.later != nullptr && it.later != it.profile; }},
};

void AddReplaced(const Reading::Kept& profile, const TiXmlElement* later, Findings& findings) {
  Apply(
      kSuccessorRules, Successor{profile.element, later},
      [&](const char* at) { return PlaceOf(*profile.element, at); },
      [&]() -> Facts {
        return {{"name", NameOf(*profile.element)},
                {"effect", EffectOf(*profile.element)},
                {"later", later == nullptr ? "" : NameOf(*later)},
                {"line", later == nullptr ? 0 : later->Row()},
                {"id", profile.id}};
      },
      findings);
}

struct RejectedFile {
  const ParseFault& fault;
  const bool isUtf16;
};

constexpr Rule<RejectedFile> kRejectedFileRules[] = {
    {Severity::Error, "", "rejected-file", "the file is not taken", "it is UTF-16", kRejected,
     "save it as UTF-8", [](const RejectedFile& it) { return it.isUtf16; }},
    {Severity::Error, "", "rejected-file", "the file is not taken", "$why", kRejected,
     "set the markup right there, or take a copy of the file that was good; within a value write "
     "&quot; for a quotation mark, in a text &lt; for \"<\"",
     [](const RejectedFile& it) { return !it.isUtf16 && it.fault.row > 0; }},
    {Severity::Error, "", "rejected-file", "the file is not taken", "$why", kRejected,
     "take a copy of the file that was good, or write a new one",
     [](const RejectedFile& it) { return !it.isUtf16 && it.fault.row <= 0; }},
};

// With a byte order mark, or with half of its first character empty.
bool IsUtf16(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return false;  // a pipe would block
  std::array<char, 2> begin{};
  std::ifstream file(path, std::ios::binary);
  if (!file.read(begin.data(), begin.size())) return false;
  return begin == std::array{'\xFF', '\xFE'} || begin == std::array{'\xFE', '\xFF'} ||
         (begin[0] == '\0') != (begin[1] == '\0');
}

}  // namespace

void AddReadingFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings) {
  for (const Reading::Skip& skip : reading.Skipped()) AddSkip(skip, findings);
  for (const Reading::Number& number : reading.Numbers()) AddNumber(number, findings);
  for (const Reading::Kept& profile : reading.Profiles()) {
    const bool isThere = kept.profiles.count(profile.id) != 0;
    AddReplaced(profile, isThere ? &reading.ProfileElement(profile.id) : nullptr, findings);
  }
}

void AddRejectedFile(const std::string& path, const ConfigDocument& file, Findings& findings) {
  const RejectedFile thing{file.fault, IsUtf16(path)};
  Apply(
      kRejectedFileRules, thing,
      [&](const char*) {
        return thing.isUtf16 ? Place() : Place{file.fault.row, file.fault.column};
      },
      [&]() -> Facts {
        return {{"why", file.fault.text.empty() ? "it holds no element" : file.fault.text}};
      },
      findings);
}

}  // namespace tvx::tool
