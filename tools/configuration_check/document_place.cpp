#include "configuration_check/document_place.h"

#include <cstddef>

namespace tvx::tool {
namespace {

bool IsEntryOf(const TiXmlElement& element, const char* list) {
  const TiXmlNode* parent = element.Parent();
  return element.ValueStr() == "smtp" && parent != nullptr && parent->ValueStr() == list;
}

}  // namespace

Place PlaceOf(const TiXmlBase& node) {
  return {node.Row(), node.Column()};
}

Place PlaceOf(const TiXmlElement& element, const std::string& path) {
  const std::size_t slash = path.find('/');
  if (slash != std::string::npos) {
    const TiXmlElement* child = element.FirstChildElement(path.substr(0, slash).c_str());
    return child == nullptr ? PlaceOf(element) : PlaceOf(*child, path.substr(slash + 1));
  }
  for (auto at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
    if (at->Name() == path) return PlaceOf(static_cast<const TiXmlBase&>(*at));
  }
  return PlaceOf(static_cast<const TiXmlBase&>(element));
}

bool IsServer(const TiXmlElement& element) {
  return IsEntryOf(element, "Servers");
}

bool IsProfile(const TiXmlElement& element) {
  return IsEntryOf(element, "Profiles");
}

std::string NameOf(const TiXmlElement& element) {
  const bool isProfile = IsProfile(element);
  if (!isProfile && !IsServer(element)) {
    const TiXmlElement* parent = element.Parent() ? element.Parent()->ToElement() : nullptr;
    const bool isPart = parent != nullptr && (IsProfile(*parent) || IsServer(*parent));
    return "element " + Quoted(element.ValueStr()) + (isPart ? " of " + NameOf(*parent) : "");
  }
  std::string name = isProfile ? "profile" : "server";
  const char* id = isProfile ? element.Attribute("ID") : nullptr;
  const char* description = element.Attribute("description");
  if (id != nullptr) name += std::string(" ") + id;
  if (description != nullptr) name += " " + Quoted(description);
  return name;
}

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

}  // namespace tvx::tool
