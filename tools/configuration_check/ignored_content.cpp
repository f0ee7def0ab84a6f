#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "config/notify_writer.h"
#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"
#include "text/spelling.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";

struct Ignored {
  enum Kind { Attribute, StrayText, NoText, SecondRoot, RepeatedElement, UnknownElement };
  const Kind kind;
  const Place place;
  const TiXmlElement& element;  // that is ignored, or that holds it
  const std::string word;       // name or text of what is ignored
  const bool isMeant = false;
  const std::string meant = {};  // the name that it should have

  Place At(const char*) const { return place; }
  Facts Words() const { return {{"name", NameOf(element)}, {"word", word}, {"meant", meant}}; }
};

template <Ignored::Kind kind>
bool Is(const Ignored& it) {
  return it.kind == kind;
}

// One that is surely meant for something: by its name, or as a part of a mail.
template <Ignored::Kind kind>
bool IsMeant(const Ignored& it) {
  return it.kind == kind && it.isMeant;
}

template <Ignored::Kind kind>
bool IsOneMore(const Ignored& it) {
  return it.kind == kind && !it.isMeant;
}

constexpr const char* kNoEffect = "it has no effect";

constexpr Rule<Ignored> kIgnoredRules[] = {
    {kError, "", "unknown-attribute", "the attribute \"$word\" of $name is ignored",
     "the plug-in reads no such attribute there", kNoEffect, "write \"$meant\", or remove it",
     IsMeant<Ignored::Attribute>},
    {kWarning, "", "unknown-attribute", "the attribute \"$word\" of $name is ignored",
     "the plug-in reads no such attribute there", kNoEffect, "remove it",
     IsOneMore<Ignored::Attribute>},
    {kError, "", "stray-text", "the text \"$word\" is ignored",
     "it stands in $name behind something else", kNoEffect,
     "remove it, or move it to where it is meant", IsMeant<Ignored::StrayText>},
    {kWarning, "", "stray-text", "the text \"$word\" is ignored", "it stands in $name", kNoEffect,
     "remove it, or move it to where it is meant", IsOneMore<Ignored::StrayText>},
    {kError, "", "no-text", "$name is read as \"$word\"",
     "a comment or the like stands before its text", "the text is ignored",
     "begin the element with its text", Is<Ignored::NoText>},
    {kWarning, "", "unknown-element", "$name is ignored", "the document has another root before it",
     kNoEffect, "remove it", Is<Ignored::SecondRoot>},
    {kError, "", "repeated-element", "$name is ignored", "only the first \"$word\" there is read",
     kNoEffect, "move what is in it to the first one", IsMeant<Ignored::RepeatedElement>},
    {kWarning, "", "repeated-element", "$name is ignored", "only the first \"$word\" there is read",
     kNoEffect, "remove it", IsOneMore<Ignored::RepeatedElement>},
    {kError, "", "unknown-element", "$name is ignored", "the plug-in reads no such element there",
     kNoEffect, "write \"$meant\", or remove it", IsMeant<Ignored::UnknownElement>},
    {kWarning, "", "unknown-element", "$name is ignored", "the plug-in reads no such element there",
     kNoEffect, "remove it", IsOneMore<Ignored::UnknownElement>},
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

// The elements that are read within this one.
std::vector<std::string> ElementsOf(const TiXmlElement& element) {
  const std::string& name = element.ValueStr();
  if (IsServer(element)) return {"Authentication"};
  if (IsProfile(element)) return {"to", "cc", "bcc", "body"};
  if (name == "Notify") return {"Web", "Delivery", "Servers", "Profiles"};
  if (name == "Servers" || name == "Profiles") return {"smtp"};
  return {};
}

// What an unknown element within this one is meant for; empty when nobody knows.
std::string MeantIn(const TiXmlElement& parent, const std::string& name) {
  const std::vector<std::string> elements = ElementsOf(parent);
  // A list has entries of one kind only.
  return elements == std::vector<std::string>{"smtp"} ? "smtp" : NearestName(name, elements);
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
    const std::string meant = NearestName(name, {known.begin(), known.end()});
    Add({Ignored::Attribute, PlaceOf(attribute), element, name, !meant.empty(), meant});
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
         ElementsOf(element).empty() && element.FirstChild() != &node});
  }

  void Ignore(const TiXmlElement& element, bool isRepeated) {
    const std::string& name = element.ValueStr();
    if (isRepeated) {
      Add({Ignored::RepeatedElement, PlaceOf(element), element, name, name == "Servers"});
      return;
    }
    const std::string meant = MeantIn(*element.Parent()->ToElement(), name);
    Add({Ignored::UnknownElement, PlaceOf(element), element, name, !meant.empty(), meant});
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
