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
#include "text/spelling.h"

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

const TiXmlElement* FindMisspelt(const Reading::Skip& skip) {
  if (skip.reason != SkipReason::NoElement) return nullptr;
  const TiXmlElement* it = skip.element->FirstChildElement();
  while (it != nullptr && NearestName(it->ValueStr(), {skip.name}).empty()) {
    it = it->NextSiblingElement();
  }
  return it;
}

std::string FindMisspeltAttribute(const Reading::Skip& skip) {
  if (skip.reason != SkipReason::NoAttribute) return {};
  const TiXmlAttribute* it = skip.element->FirstAttribute();
  while (it != nullptr && NearestName(it->Name(), {skip.name}).empty()) it = it->Next();
  return it == nullptr ? std::string() : it->Name();
}

struct Skip {
  const Reading::Skip& skip;
  // The element whose name is that of the missing one but for a slip, null for none; and the
  // attribute, empty for none.
  const TiXmlElement* misspelt = FindMisspelt(skip);
  const std::string misspeltAttribute = FindMisspeltAttribute(skip);

  Place At(const char* in) const {
    if (misspelt != nullptr) return PlaceOf(*misspelt);
    const char* part = skip.name.c_str();
    if (!Is(SkipReason::SeveralElements)) return PlaceOf(*skip.element, in);
    return PlaceOf(*skip.element->FirstChildElement(part)->NextSiblingElement(part));
  }
  Facts Words() const {
    return {{"name", NameOf(*skip.element)},
            {"other", misspelt == nullptr ? "" : NameOf(*misspelt)},
            {"attribute", misspeltAttribute},
            {"part", skip.name},
            {"module", kModuleId},
            {"effect", EffectOf(*skip.element)}};
  }
  bool Is(SkipReason reason) const { return skip.reason == reason; }
  bool Misses(const char* name) const {
    return Is(SkipReason::NoElement) && skip.name == name && misspelt == nullptr;
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
     "write \"$part\"", [](const Skip& it) { return it.misspelt != nullptr; }},
    {kError, "", "missing-attribute", "$name is skipped", "it has no attribute \"$part\"",
     "$effect", "add the attribute \"$part\"",
     [](const Skip& it) { return it.Is(SkipReason::NoAttribute) && it.misspeltAttribute.empty(); }},
    {kError, "", "missing-attribute", "$name is skipped",
     "its attribute \"$attribute\" is not written \"$part\"", "$effect", "write \"$part\"",
     [](const Skip& it) { return !it.misspeltAttribute.empty(); }},
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
    {kWarning, "", "empty-address", "$name is skipped", "there is no address in it",
     "the profile does without it", "write an address, or remove the element",
     [](const Skip& it) { return it.Is(SkipReason::NoText); }},
};

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
    {kWarning, "", "number", kNotTaken, "\"$text\" does not end where its number ends",
     "$used is used", "$fix", [](const Number& it) { return it.isNumber && !it.isWhole; }},
    {kWarning, "", "number", kNotTaken, "\"$text\" does not fit into 32 bits", "$used is used",
     "$fix", [](const Number& it) { return it.isWhole && !it.isInRange; }},
    {kError, "", "number", kNotTaken, "\"$text\" is neither 0 nor 1", "$used is used", "$fix",
     [](const Number& it) { return it.IsRefused() && it.Is("attach"); }},
    {kWarning, "", "number", kNotTaken, "\"$text\" is less than the next number to give",
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

// What a fault of the markup is called by those who find it, what it is, and what helps. The first
// row that fits holds.
struct MarkupFault {
  const char* found;  // a part of the fault's text
  const char* why;    // null: that text
  const char* fix;
};
constexpr MarkupFault kMarkupFaults[] = {
    {"Error parsing Element", "an attribute comes twice, or lacks its \"=\" or its quotation marks",
     "write each attribute of this tag once, as name=\"value\""},
    {"Error reading Attributes", "an attribute lacks its \"=\" or its quotation marks",
     "write each attribute of this tag once, as name=\"value\""},
    {"Error reading end tag", "an element is not closed by an end tag of its own name",
     "close each element with its own name, the inner ones first"},
    {"Error reading Element value", "an element has no end tag",
     "close each element with its own name, the inner ones first"},
    {"an end tag has no start tag", nullptr, "remove the end tag, or add its start tag"},
    {"Error document empty", "it is no XML", "write a configuration, as <tDVR>...</tDVR>"},
    {"the quotes around a value are not closed", nullptr,
     "close the value with its quotation mark; within a value write &quot; for one"},
    {"a \"<\" begins no tag", nullptr, "write &lt; for a \"<\" that is text"},
    {"a tag has no \">\"", nullptr, "end the tag with \">\"; write &lt; for a \"<\" that is text"},
    {"a comment or the like has no end", nullptr, "end the comment with -->"},
    {"a declaration has no end", nullptr, "end the declaration with ?>"},
    {"", nullptr, "take a copy of the file that was good, or write a new one"},
};

struct RejectedFile {
  const ParseFault& fault;
  const bool isUtf16;
  const MarkupFault& markup = FaultOf(fault.text);

  // What the library finds at no place is the whole document.
  Place At(const char*) const {
    if (isUtf16 || fault.text.empty()) return {};
    const bool isWhole = fault.row <= 0 && markup.why != nullptr;
    return isWhole ? Place{1, 1} : Place{fault.row, fault.column};
  }
  Facts Words() const {
    const std::string why = fault.text.empty()      ? "it holds no element"
                            : markup.why == nullptr ? fault.text
                                                    : markup.why;
    return {{"why", why}, {"fix", markup.fix}};
  }
  static const MarkupFault& FaultOf(const std::string& text) {
    const MarkupFault* row = kMarkupFaults;
    while (text.find(row->found) == std::string::npos) ++row;
    return *row;
  }
};

constexpr Rule<RejectedFile> kRejectedFileRules[] = {
    {kError, "", "rejected-file", "the file is not taken", "it is UTF-16", kRejected,
     "save it as UTF-8", [](const RejectedFile& it) { return it.isUtf16; }},
    {kError, "", "rejected-file", "the file is not taken", "$why", kRejected, "$fix",
     [](const RejectedFile& it) { return !it.isUtf16; }},
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
    Apply(kSkipRules, Skip{skip}, findings);
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
