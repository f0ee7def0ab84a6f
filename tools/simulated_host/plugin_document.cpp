#include "simulated_host/plugin_document.h"

#include <tinyxml.h>

#include <algorithm>

#include "config/xml_children.h"
#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx::tool {
namespace {

const TiXmlElement& Root(const ParsedDocument& document) {
  const TiXmlElement* root = document.Root();
  if (root == nullptr) throw DocumentError("is no XML document with the root tDVR");
  return *root;
}

[[noreturn]] void Missing(const std::string& what, const TiXmlElement& parent) {
  throw DocumentError("has no " + what + " in its " + parent.ValueStr());
}

const TiXmlElement& Child(const TiXmlElement& parent, const char* name) {
  const TiXmlElement* child = parent.FirstChildElement(name);
  if (child == nullptr) Missing(name, parent);
  return *child;
}

std::int32_t Integer(const TiXmlElement& element, const char* name) {
  const auto value = IntAttribute(element, name);
  if (!value) Missing(std::string("integer ") + name, element);
  return *value;
}

std::string Text(const TiXmlElement& element, const char* name) {
  const auto text = TextAttribute(element, name);
  if (!text) Missing(name, element);
  return *text;
}

bool IsOurs(const TiXmlElement& notify) {
  return IntAttribute(notify, "ID") == static_cast<std::int32_t>(kModuleId);
}

const TiXmlElement& Notify(const TiXmlElement& root) {
  const TiXmlElement& notify = Child(root, "Notify");
  if (!IsOurs(notify)) throw DocumentError("has another ID than 786432 in its Notify");
  return notify;
}

}  // namespace

std::vector<ProfileReport> ReadStatusDocument(const std::string& text) {
  const ParsedDocument document = ParseDocument(text.data(), text.size());
  const TiXmlElement& profiles = Child(Notify(Root(document)), "Profiles");
  std::vector<ProfileReport> statuses;
  for (const TiXmlElement& profile : Children(profiles, "Profile")) {
    statuses.push_back(
        {Integer(profile, "ID"), Integer(profile, "Status"), Integer(profile, "Time")});
  }
  return statuses;
}

std::variant<Configuration, ModuleRegistration> ReadConfigDocument(const std::string& text) {
  const ParsedDocument document = ParseDocument(text.data(), text.size());
  const TiXmlElement& root = Root(document);
  if (Integer(root, "Delta") != 0) throw DocumentError("has another Delta than 0");
  if (const TiXmlElement* modules = root.FirstChildElement("Modules")) {
    const TiXmlElement& module = Child(*modules, "Module");
    return ModuleRegistration{Text(module, "Name"), Text(module, "Version")};
  }

  const TiXmlElement& notify = Notify(root);
  Configuration configuration;
  configuration.smtps = notify.Attribute("SSL") != nullptr;
  for ([[maybe_unused]] const TiXmlElement& server : Children(Child(notify, "Servers"), "smtp")) {
    ++configuration.servers;
  }
  for (const TiXmlElement& profile : Children(Child(notify, "Profiles"), "smtp")) {
    configuration.profiles.emplace_back(Integer(profile, "ID"), Text(profile, "description"));
    configuration.longestClip =
        std::max(configuration.longestClip, Integer(profile, "MaxVideoSeconds"));
  }
  return configuration;
}

std::vector<std::int32_t> ProfilesOfEvent(const std::string& text) {
  std::vector<std::int32_t> ids;
  const ParsedDocument document = ParseDocument(text.data(), text.size());
  const TiXmlElement* root = document.Root();
  if (root == nullptr) return ids;
  for (const TiXmlElement& notify : Children(*root, "Notify")) {
    const TiXmlElement* profiles = notify.FirstChildElement("Profiles");
    if (profiles == nullptr || !IsOurs(notify)) continue;
    for (const TiXmlElement& profile : Children(*profiles)) {
      if (const auto id = IntAttribute(profile, "ID")) ids.push_back(*id);
    }
  }
  return ids;
}

}  // namespace tvx::tool
