#include "config/module_documents.h"

#include <tinyxml.h>

#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx {

std::string RegistrationDocument() {
  const auto document = NewDocument();
  TiXmlElement& root = AppendElement(*document, "tDVR");
  root.SetAttribute("Delta", 0);
  TiXmlElement& module = AppendElement(AppendElement(root, "Modules"), "Module");
  module.SetAttribute("Name", "NotifyPI");
  module.SetAttribute("ID", static_cast<int>(kModuleId));
  module.SetAttribute("Version", "19.03.10.153605");
  return PrintDocument(*document);
}

std::string StatusDocument(const std::vector<std::int32_t>& profileIds, ProfileStatus status,
                           std::int64_t time) {
  TiXmlDocument document;
  TiXmlElement& notify = AppendElement(AppendElement(document, "tDVR"), "Notify");
  notify.SetAttribute("ID", static_cast<int>(kModuleId));
  TiXmlElement& profiles = AppendElement(notify, "Profiles");
  for (const std::int32_t id : profileIds) {
    TiXmlElement& profile = AppendElement(profiles, "Profile");
    profile.SetAttribute("ID", id);
    profile.SetAttribute("Status", static_cast<int>(status));
    profile.SetAttribute("Time", std::to_string(time));
  }
  return PrintDocument(document);
}

}  // namespace tvx
