#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>

#include "config/notify_writer.h"
#include "config/xml_children.h"
#include "configuration_check/document_place.h"
#include "configuration_check/reading_findings.h"

namespace tvx::tool {
namespace {

constexpr const char* kBlanks = " \t\r\n";

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

bool IsOtherCase(const std::string& a, const std::string& b) {
  return a != b && ::strcasecmp(a.c_str(), b.c_str()) == 0;
}

class IgnoredContent {
 public:
  IgnoredContent(const Reading& reading, Findings& findings)
      : reading_(reading), findings_(findings), written_(WrittenAttributes()) {}

  // An element that the reader has read, and not skipped.
  void Walk(const TiXmlElement& element) {
    for (auto at = element.FirstAttribute(); at != nullptr; at = at->Next()) Look(element, *at);
    for (auto node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
      const TiXmlElement* child = node->ToElement();
      if (reading_.IsContent(*node)) {
        if (node->ToText() == nullptr) AddStrange(element, *node);
      } else if (node->ToText() != nullptr) {
        AddStray(element, *node);
      } else if (child != nullptr && !reading_.Knows(*child)) {
        Ignore(element, *child);
      } else if (child != nullptr && !reading_.IsSkipped(*child)) {
        Walk(*child);
      }
    }
  }

  // An element where the reader looks for its block only.
  void WalkAround(const TiXmlNode& parent, const TiXmlElement& block) {
    for (auto at = parent.FirstChildElement(); at != nullptr; at = at->NextSiblingElement()) {
      if (at != &block) Ignore(parent, *at);
    }
  }

 private:
  void Look(const TiXmlElement& element, const TiXmlAttribute& attribute) {
    const std::string name = attribute.Name();
    if (reading_.Attributes(element).count(name) != 0) return;
    if (element.ValueStr() == "Notify" && written_.count(name) != 0) return;
    findings_.push_back({Severity::Error, PlaceOf(attribute), "unknown-attribute",
                         "the attribute " + Quoted(name) + " of " + NameOf(element) + " is ignored",
                         "the plug-in reads no such attribute there", "it has no effect",
                         "remove it" + SpellingHint(element, name)});
  }

  void AddStray(const TiXmlElement& element, const TiXmlNode& node) {
    const std::string& text = node.ValueStr();
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::size_t end = text.find_last_not_of(kBlanks) + 1;
    Place place = PlaceOf(node);
    const auto lines =
        std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(begin), '\n');
    if (lines > 0) place = {place.line + static_cast<int>(lines), 0};
    findings_.push_back({Severity::Error, place, "stray-text",
                         "the text " + Quoted(text.substr(begin, end - begin)) + " is ignored",
                         "it stands in " + NameOf(element) +
                             (element.FirstChild() == &node ? "" : " behind something else"),
                         "it has no effect", "remove it, or move it to where it is meant"});
  }

  void AddStrange(const TiXmlElement& element, const TiXmlNode& node) {
    findings_.push_back({Severity::Error, PlaceOf(node), "no-text",
                         NameOf(element) + " is read as " + Quoted(node.ValueStr()),
                         "a comment or the like stands before its text", "the text is ignored",
                         "begin the element with its text"});
  }

  void Ignore(const TiXmlNode& parent, const TiXmlElement& element) {
    const TiXmlElement* first = parent.FirstChildElement(element.Value());
    Finding finding{Severity::Error,
                    PlaceOf(element),
                    "unknown-element",
                    NameOf(element) + " is ignored",
                    "",
                    "it has no effect",
                    "remove it"};
    if (parent.ToDocument() != nullptr) {
      finding.why = "the document has another root before it";
    } else if (first != &element && reading_.Knows(*first)) {
      finding.code = "repeated-element";
      finding.why = "only the first " + Quoted(element.ValueStr()) + " there is read";
    } else {
      finding.why = "the plug-in reads no such element there";
      finding.mend += SpellingHint(element.ValueStr());
    }
    findings_.push_back(std::move(finding));
  }

  // For a name that only its letters' case keeps from being read.
  std::string SpellingHint(const TiXmlElement& element, const std::string& name) const {
    for (const auto& known : reading_.Attributes(element)) {
      if (IsOtherCase(known, name)) return ", or write " + Quoted(known);
    }
    return {};
  }
  static std::string SpellingHint(const std::string& name) {
    for (const char* known : {"Notify", "Web", "Servers", "Profiles", "smtp", "Authentication",
                              "to", "cc", "bcc", "body"}) {
      if (IsOtherCase(known, name)) return ", or write " + Quoted(known);
    }
    return {};
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
  ignored.WalkAround(document, *root);
  ignored.WalkAround(*root, *block);
  ignored.Walk(*block);
}

}  // namespace tvx::tool
