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

  Place At(const char* in) const {
    if (otherCase != nullptr) return PlaceOf(*otherCase);
    const char* part = skip.name.c_str();
    if (!Is(SkipReason::SeveralElements)) return PlaceOf(*skip.element, in);
    return PlaceOf(*skip.element->FirstChildElement(part)->NextSiblingElement(part));
  }
  Facts Words() const {
    return {{"name", NameOf(*skip.element)},
            {"other", otherCase == nullptr ? "" : NameOf(*otherCase)},
            {"part", skip.name},
            {"module", kModuleId},
            {"effect", EffectOf(*skip.element)}};
  }
  bool Is(SkipReason reason) const { return skip.reason == reason; }
  bool Misses(const char* name) const {
    return Is(SkipReason::NoElement) && skip.name == name && otherCase == nullptr;
  }
  // Which stands for the block that it should hold.
  bool IsRoot() const { return skip.element->ValueStr() == skip.name; }
};

constexpr Rule<Skip> kSkipRules[] = {
    {kError, "", "missing-element", "$name is skipped", "it has no \"to\" with an address in it",
     "$effect", "add a \"to\" with an address", [](const Skip& it) { return it.Misses("to"); }},
    {kError, "", "missing-element", "$name is not taken", "it is the root itself", "$effect",
     "put it into a root element, <tDVR>...</tDVR>",
     [](const Skip& it) { return it.Misses("Notify") && it.IsRoot(); }},
    {kError, "", "missing-element", "$name is not taken", "it has no element \"Notify\"", "$effect",
     "add an element \"Notify\"",
     [](const Skip& it) { return it.Misses("Notify") && !it.IsRoot(); }},
    {kError, "", "missing-element", "$name is not taken", "it has no element \"$part\"", "$effect",
     "add an element \"$part\", even an empty one",
     [](const Skip& it) { return it.Misses("Servers") || it.Misses("Profiles"); }},
    {kError, "", "missing-element", "$other is not read", "it is not written \"$part\"", "$effect",
     "write \"$part\"", [](const Skip& it) { return it.otherCase != nullptr; }},
    {kError, "", "missing-attribute", "$name is skipped", "it has no attribute \"$part\"",
     "$effect", "add the attribute \"$part\"",
     [](const Skip& it) { return it.Is(SkipReason::NoAttribute); }},
    {kError, "ID", "not-a-number", "$name is skipped", "its \"$part\" is no number", "$effect",
     "write a whole number there", [](const Skip& it) { return it.Is(SkipReason::NoNumber); }},
    {kError, "ID", "other-module", "$name is not taken",
     "its attribute \"ID\" is not that of this plug-in, $module", "$effect", "write ID=\"$module\"",
     [](const Skip& it) { return it.Is(SkipReason::OtherModule); }},
    {kError, "Authentication/", "half-credentials", "$name is skipped",
     "its \"Authentication\" has no attribute \"$part\"", "$effect",
     "give both \"username\" and \"password\", or remove \"Authentication\"",
     [](const Skip& it) { return it.Is(SkipReason::HalfCredentials); }},
    {kError, "", "several-elements", "$name is skipped", "it has more than one \"$part\"",
     "$effect", "leave only one",
     [](const Skip& it) { return it.Is(SkipReason::SeveralElements); }},
    {kError, "", "empty-address", "$name is skipped", "there is no address in it",
     "the profile does without it", "write an address, or remove the element",
     [](const Skip& it) { return it.Is(SkipReason::NoText); }},
};

const TiXmlElement* FindOtherCase(const Reading::Skip& skip) {
  if (skip.reason != SkipReason::NoElement || EffectOf(*skip.element) != kRejected) return nullptr;
  const TiXmlElement* other = skip.element->FirstChildElement();
  while (other != nullptr && ::strcasecmp(other->Value(), skip.name.c_str()) != 0) {
    other = other->NextSiblingElement();
  }
  return other;
}

// A number as the reader reads it: as much as there is of one, within 32 bits.
struct Number {
  const Reading::Number& number;
  const char* text;
  bool isNumber = false;  // something of it is
  bool isWhole = false;   // nothing but blanks around it
  bool isInRange = false;
  long value = 0;

  // REQUIRES: the attribute is there.
  explicit Number(const Reading::Number& read)
      : number(read), text(read.element->Attribute(read.attribute.c_str())) {
    using Limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    isNumber = end != text;
    isInRange = errno != ERANGE && value >= Limits::min() && value <= Limits::max();
    while (std::isspace(static_cast<unsigned char>(*end)) != 0) ++end;
    isWhole = isNumber && *end == '\0';
  }

  Place At(const char*) const { return PlaceOf(*number.element, number.attribute); }
  Facts Words() const {
    return {{"name", NameOf(*number.element)},
            {"attribute", number.attribute},
            {"text", text},
            {"used", number.used},
            {"fix", Is("attach")          ? "write 1 to attach video, 0 not to"
                    : Is("autoincrement") ? "write a number of 1 or more"
                                          : "write a whole number and nothing else"}};
  }
  bool Is(const char* attribute) const { return number.attribute == attribute; }
  bool IsGivenId() const { return Is("ID") && isWhole && value == 0 && number.used != 0; }
  // Read well, and yet not used.
  bool IsRefused() const { return isWhole && isInRange && value != number.used && !IsGivenId(); }
};

constexpr const char* kNotTaken = "the attribute \"$attribute\" of $name is not taken";

constexpr Rule<Number> kNumberRules[] = {
    {kWarning, "", "id-given", "$name gets the ID $used", "its ID is 0",
     "the number that \"autoincrement\" has reached is taken, in use or not",
     "write the ID that the server's events name", [](const Number& it) { return it.IsGivenId(); }},
    {kError, "", "number", kNotTaken, "\"$text\" is no whole number", "$used is used", "$fix",
     [](const Number& it) { return !it.isNumber; }},
    {kError, "", "number", kNotTaken, "\"$text\" does not end where its number ends",
     "$used is used", "$fix", [](const Number& it) { return it.isNumber && !it.isWhole; }},
    {kError, "", "number", kNotTaken, "\"$text\" does not fit into 32 bits", "$used is used",
     "$fix", [](const Number& it) { return it.isWhole && !it.isInRange; }},
    {kError, "", "number", kNotTaken, "\"$text\" is neither 0 nor 1", "$used is used", "$fix",
     [](const Number& it) { return it.IsRefused() && it.Is("attach"); }},
    {kError, "", "number", kNotTaken, "\"$text\" is less than the next number to give",
     "$used is used", "$fix", [](const Number& it) { return it.IsRefused() && !it.Is("attach"); }},
};

// A profile that was kept when it was read, and the one that now has its ID, if any.
struct Successor {
  const Reading::Kept& profile;
  const TiXmlElement* later;

  Place At(const char* in) const { return PlaceOf(*profile.element, in); }
  Facts Words() const {
    return {{"name", NameOf(*profile.element)},
            {"effect", EffectOf(*profile.element)},
            {"later", later == nullptr ? "" : NameOf(*later)},
            {"line", later == nullptr ? 0 : later->Row()},
            {"id", profile.id}};
  }
};

constexpr Rule<Successor> kSuccessorRules[] = {
    {kError, "", "profiles-replaced", "$name is dropped",
     "a later element \"Profiles\" replaces all profiles before it", "$effect",
     "put all profiles into one \"Profiles\"",
     [](const Successor& it) { return it.later == nullptr; }},
    {kError, "", "profile-replaced", "$name is replaced", "$later in line $line has its ID, $id",
     "events that ask for this ID use the later profile", "give every profile an ID of its own",
     [](const Successor& it) { return it.later != nullptr && it.later != it.profile.element; }},
};

struct RejectedFile {
  const ParseFault& fault;
  const bool isUtf16;

  Place At(const char*) const { return isUtf16 ? Place() : Place{fault.row, fault.column}; }
  Facts Words() const { return {{"why", fault.text.empty() ? "it holds no element" : fault.text}}; }
};

constexpr Rule<RejectedFile> kRejectedFileRules[] = {
    {kError, "", "rejected-file", "the file is not taken", "it is UTF-16", kRejected,
     "save it as UTF-8", [](const RejectedFile& it) { return it.isUtf16; }},
    {kError, "", "rejected-file", "the file is not taken", "$why", kRejected,
     "set the markup right there, or take a copy of the file that was good; within a value write "
     "&quot; for a quotation mark, in a text &lt; for \"<\"",
     [](const RejectedFile& it) { return !it.isUtf16 && it.fault.row > 0; }},
    {kError, "", "rejected-file", "the file is not taken", "$why", kRejected,
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
  for (const Reading::Skip& skip : reading.Skipped()) {
    Apply(kSkipRules, Skip{skip, FindOtherCase(skip)}, findings);
  }
  for (const Reading::Number& number : reading.Numbers()) {
    if (number.element->Attribute(number.attribute.c_str()) == nullptr) continue;
    Apply(kNumberRules, Number(number), findings);
  }
  for (const Reading::Kept& profile : reading.Profiles()) {
    const bool isThere = kept.profiles.count(profile.id) != 0;
    const TiXmlElement* later = isThere ? &reading.ProfileElement(profile.id) : nullptr;
    Apply(kSuccessorRules, Successor{profile, later}, findings);
  }
}

void AddRejectedFile(const std::string& path, const ConfigDocument& file, Findings& findings) {
  Apply(kRejectedFileRules, RejectedFile{file.fault, IsUtf16(path)}, findings);
}

}  // namespace tvx::tool
