#include "simulated_host/plugin_document.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>

#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx::tool {
namespace {

const TiXmlElement& Root(const ParsedDocument& document) {
  const TiXmlElement* root = document.Root();
  if (root == nullptr) throw DocumentError("is no XML document with the root tDVR");
  return *root;
}

const TiXmlElement& Child(const TiXmlElement& parent, const char* name) {
  const TiXmlElement* child = parent.FirstChildElement(name);
  if (child == nullptr) {
    throw DocumentError("has no " + std::string(name) + " in its " + parent.ValueStr());
  }
  return *child;
}

std::int32_t Integer(const TiXmlElement& element, const char* name) {
  const auto value = IntAttribute(element, name);
  if (!value)
    throw DocumentError("has no integer " + std::string(name) + " in its " + element.ValueStr());
  return *value;
}

std::string Text(const TiXmlElement& element, const char* name) {
  const auto text = TextAttribute(element, name);
  if (!text) throw DocumentError("has no " + std::string(name) + " in its " + element.ValueStr());
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

std::vector<ProfileStatus> ReadStatusDocument(const std::string& text) {
  const ParsedDocument document = ParseDocument(text.data(), text.size());
  const TiXmlElement& profiles = Child(Notify(Root(document)), "Profiles");
  std::vector<ProfileStatus> statuses;
  for (const TiXmlElement* profile = profiles.FirstChildElement("Profile"); profile != nullptr;
       profile = profile->NextSiblingElement("Profile")) {
    statuses.push_back(
        {Integer(*profile, "ID"), Integer(*profile, "Status"), Integer(*profile, "Time")});
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
  for (const TiXmlElement* server = Child(notify, "Servers").FirstChildElement("smtp");
       server != nullptr; server = server->NextSiblingElement("smtp")) {
    ++configuration.servers;
  }
  for (const TiXmlElement* profile = Child(notify, "Profiles").FirstChildElement("smtp");
       profile != nullptr; profile = profile->NextSiblingElement("smtp")) {
    configuration.profiles.emplace_back(Integer(*profile, "ID"), Text(*profile, "description"));
    configuration.longestClip =
        std::max(configuration.longestClip, Integer(*profile, "MaxVideoSeconds"));
  }
  return configuration;
}

std::vector<std::int32_t> ProfilesOfEvent(const std::string& text) {
  std::vector<std::int32_t> ids;
  const ParsedDocument document = ParseDocument(text.data(), text.size());
  const TiXmlElement* root = document.Root();
  if (root == nullptr) return ids;
  for (const TiXmlElement* notify = root->FirstChildElement("Notify"); notify != nullptr;
       notify = notify->NextSiblingElement("Notify")) {
    const TiXmlElement* profiles = notify->FirstChildElement("Profiles");
    if (profiles == nullptr || !IsOurs(*notify)) continue;
    for (const TiXmlElement* profile = profiles->FirstChildElement(); profile != nullptr;
         profile = profile->NextSiblingElement()) {
      if (const auto id = IntAttribute(*profile, "ID")) ids.push_back(*id);
    }
  }
  return ids;
}

}  // namespace tvx::tool
