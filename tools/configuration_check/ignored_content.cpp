#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <string>

#include "config/notify_writer.h"
#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";

struct Ignored {
  enum Kind { Attribute, StrayText, NoText, SecondRoot, RepeatedElement, UnknownElement };
  const Kind kind;
  const Place place;
  const TiXmlElement& element;  // that is ignored, or that holds it
  const std::string word;       // name or text of what is ignored
  const std::string hint = {};

  Place At(const char*) const { return place; }
  Facts Words() const { return {{"name", NameOf(element)}, {"word", word}, {"hint", hint}}; }
};

template <Ignored::Kind kind>
bool Is(const Ignored& it) {
  return it.kind == kind;
}

constexpr Rule<Ignored> kIgnoredRules[] = {
    {kError, "", "unknown-attribute", "the attribute \"$word\" of $name is ignored",
     "the plug-in reads no such attribute there", "it has no effect", "remove it$hint",
     Is<Ignored::Attribute>},
    {kError, "", "stray-text", "the text \"$word\" is ignored", "it stands in $name$hint",
     "it has no effect", "remove it, or move it to where it is meant", Is<Ignored::StrayText>},
    {kError, "", "no-text", "$name is read as \"$word\"",
     "a comment or the like stands before its text", "the text is ignored",
     "begin the element with its text", Is<Ignored::NoText>},
    {kError, "", "unknown-element", "$name is ignored", "the document has another root before it",
     "it has no effect", "remove it", Is<Ignored::SecondRoot>},
    {kError, "", "repeated-element", "$name is ignored", "only the first \"$word\" there is read",
     "it has no effect", "remove it", Is<Ignored::RepeatedElement>},
    {kError, "", "unknown-element", "$name is ignored", "the plug-in reads no such element there",
     "it has no effect", "remove it$hint", Is<Ignored::UnknownElement>},
};

// Names that the plug-in writes into a file: what it reads back, and what only the server reads.
std::set<std::string> WrittenAttributes() {
  NotifyConfig config;
  config.curlSupportsSmtps = true;
  const auto document = BuildNotifyDocument(config);
  std::set<std::string> names;
  const TiXmlElement* notify = document->RootElement()->FirstChildElement("Notify");
  for (auto at = notify->FirstAttribute(); at != nullptr; at = at->Next()) names.insert(at->Name());
  return names;
}

// For a name that only its letters' case keeps from being one of these.
template <typename Names>
std::string SpellingHint(const Names& names, const std::string& name) {
  for (const auto& known : names) {
    if (name != known && ::strcasecmp(std::string(known).c_str(), name.c_str()) == 0) {
      return ", or write " + Quoted(known);
    }
  }
  return {};
}

class IgnoredContent {
 public:
  IgnoredContent(const Reading& reading, Findings& findings)
      : reading_(reading), findings_(findings), written_(WrittenAttributes()) {}

  // An element that the reader has read, and not skipped.
  void Walk(const TiXmlElement& element) {
    for (auto at = element.FirstAttribute(); at != nullptr; at = at->Next()) Look(element, *at);
    std::set<std::string> read;
    for (auto node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
      const TiXmlElement* child = node->ToElement();
      if (child != nullptr && reading_.Knows(*child)) read.insert(child->ValueStr());
      if (reading_.IsContent(*node)) {
        if (node->ToText() == nullptr) {
          Add({Ignored::NoText, PlaceOf(*node), element, node->ValueStr()});
        }
      } else if (node->ToText() != nullptr) {
        AddStray(element, *node);
      } else if (child != nullptr && !reading_.Knows(*child)) {
        Ignore(*child, read.count(child->ValueStr()) != 0);
      } else if (child != nullptr && !reading_.IsSkipped(*child)) {
        Walk(*child);
      }
    }
  }

  // The root, where the reader looks for its block only, and what is beside it.
  void WalkAround(const TiXmlElement& root, const TiXmlElement& block) {
    for (auto at = root.NextSiblingElement(); at != nullptr; at = at->NextSiblingElement()) {
      Add({Ignored::SecondRoot, PlaceOf(*at), *at, {}});
    }
    for (auto at = root.FirstChildElement(); at != nullptr; at = at->NextSiblingElement()) {
      if (at != &block) Ignore(*at, at->ValueStr() == block.ValueStr());
    }
  }

 private:
  void Add(const Ignored& ignored) { Apply(kIgnoredRules, ignored, findings_); }

  void Look(const TiXmlElement& element, const TiXmlAttribute& attribute) {
    const std::string name = attribute.Name();
    const std::set<std::string>& known = reading_.Attributes(element);
    if (known.count(name) != 0) return;
    if (element.ValueStr() == "Notify" && written_.count(name) != 0) return;
    Add({Ignored::Attribute, PlaceOf(attribute), element, name, SpellingHint(known, name)});
  }

  void AddStray(const TiXmlElement& element, const TiXmlNode& node) {
    const std::string& text = node.ValueStr();
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::size_t end = text.find_last_not_of(kBlanks) + 1;
    Place place = PlaceOf(node);
    const auto lines =
        std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(begin), '\n');
    if (lines > 0) place = {place.line + static_cast<int>(lines), 0};
    Add({Ignored::StrayText, place, element, text.substr(begin, end - begin),
         element.FirstChild() == &node ? "" : " behind something else"});
  }

  void Ignore(const TiXmlElement& element, bool isRepeated) {
    static constexpr const char* kElements[] = {
        "Notify",         "Web", "Servers", "Profiles", "smtp",
        "Authentication", "to",  "cc",      "bcc",      "body"};
    const std::string& name = element.ValueStr();
    if (isRepeated) {
      Add({Ignored::RepeatedElement, PlaceOf(element), element, name});
    } else {
      Add({Ignored::UnknownElement, PlaceOf(element), element, name,
           SpellingHint(kElements, name)});
    }
  }

  const Reading& reading_;
  Findings& findings_;
  const std::set<std::string> written_;
};

}  // namespace

void AddIgnoredContent(const TiXmlDocument& document, const Reading& reading, Findings& findings) {
  const TiXmlElement* root = document.RootElement();
  const TiXmlElement* block = root == nullptr ? nullptr : root->FirstChildElement("Notify");
  if (block == nullptr || reading.IsSkipped(*block)) return;
  IgnoredContent ignored(reading, findings);
  ignored.WalkAround(*root, *block);
  ignored.Walk(*block);
}

}  // namespace tvx::tool
