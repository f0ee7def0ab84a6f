#include "config/notify_reader.h"

#include <tinyxml.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "config/templates.h"
#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx {
namespace {

constexpr std::int32_t kSmtpsPort = 465;

void TakeSetting(const TiXmlElement& notify, const char* name, std::int32_t& setting) {
  setting = IntAttribute(notify, name).value_or(setting);
}

std::optional<SmtpServer> ReadServer(const TiXmlElement& element) {
  const auto description = TextAttribute(element, "description");
  const auto address = TextAttribute(element, "address");
  if (!description || !address) return std::nullopt;
  SmtpServer server;
  server.description = *description;
  server.address = *address;
  server.port = IntAttribute(element, "port").value_or(25);
  server.UseSSL = IntAttribute(element, "UseSSL")
                      .value_or(server.port == kSmtpsPort ? use_ssl::kSmtps : use_ssl::kPlain);
  if (const TiXmlElement* authentication = element.FirstChildElement("Authentication")) {
    const auto username = TextAttribute(*authentication, "username");
    const auto password = TextAttribute(*authentication, "password");
    // Half its credentials would let a server be tried without them, which nobody asked for.
    if (!username || !password) return std::nullopt;
    server.username = *username;
    server.password = *password;
  }
  return server;
}

void ReadServers(const TiXmlElement& notify, std::vector<SmtpServer>& servers) {
  servers.clear();
  for (auto list = notify.FirstChildElement("Servers"); list != nullptr;
       list = list->NextSiblingElement("Servers")) {
    for (auto element = list->FirstChildElement("smtp"); element != nullptr;
         element = element->NextSiblingElement("smtp")) {
      if (auto server = ReadServer(*element)) servers.push_back(std::move(*server));
    }
  }
}

// The value of an element's first child, which for a text element is its text.
std::string FirstChildValue(const TiXmlElement& element) {
  const TiXmlNode* child = element.FirstChild();
  return child == nullptr ? std::string() : child->ValueStr();
}

std::vector<std::string> ReadAddresses(const TiXmlElement& profile, const char* name) {
  std::vector<std::string> addresses;
  for (auto element = profile.FirstChildElement(name); element != nullptr;
       element = element->NextSiblingElement(name)) {
    std::string address = FirstChildValue(*element);
    if (!address.empty()) addresses.push_back(std::move(address));
  }
  return addresses;
}

// What a profile element that does not say so keeps of the profile that it replaces.
struct Inherited {
  bool attach = false;
  std::int32_t maxVideoSeconds = 0;
  std::int32_t eventEdge = event_edge::kStart;
};

bool ReadAttach(const TiXmlElement& element, bool previous, bool secondReviewerMode) {
  if (element.Attribute("attach") == nullptr) return previous;
  return IntAttribute(element, "attach") == 1 && !secondReviewerMode;
}

// Reads one profile. counter is the next identifier to give to a profile that brings none.
std::optional<NotifyProfile> ReadProfile(const TiXmlElement& element, const NotifyConfig& config,
                                         std::int32_t& counter) {
  const auto id = IntAttribute(element, "ID");
  if (!id) return std::nullopt;
  NotifyProfile profile;
  profile.ID = *id;
  if (profile.ID == 0) {
    // The number is used up even when the profile turns out to be malformed below.
    profile.ID = counter;
    if (counter < std::numeric_limits<std::int32_t>::max()) ++counter;
  }

  const auto description = TextAttribute(element, "description");
  const auto from = TextAttribute(element, "from");
  const auto subject = TextAttribute(element, "subject");
  if (!description || !from || !subject) return std::nullopt;
  profile.description = *description;
  profile.from = *from;
  profile.subject = *subject;

  profile.to = ReadAddresses(element, "to");
  if (profile.to.empty()) return std::nullopt;
  profile.cc = ReadAddresses(element, "cc");
  profile.bcc = ReadAddresses(element, "bcc");

  if (const TiXmlElement* body = element.FirstChildElement("body")) {
    if (body->NextSiblingElement("body") != nullptr) return std::nullopt;
    profile.body = FirstChildValue(*body);
  }

  Inherited inherited;
  const auto previous = config.profiles.find(profile.ID);
  if (previous != config.profiles.end()) {
    inherited = {previous->second.attach, previous->second.MaxVideoSeconds,
                 previous->second.EventEdge};
  }
  profile.attach = ReadAttach(element, inherited.attach, config.secondReviewerMode);
  profile.MaxVideoSeconds =
      IntAttribute(element, "MaxVideoSeconds").value_or(inherited.maxVideoSeconds);
  profile.EventEdge = IntAttribute(element, "EventEdge").value_or(inherited.eventEdge);
  profile.ThrottleSeconds = IntAttribute(element, "ThrottleSeconds").value_or(0);
  profile.usesPlaceholders =
      ContainsPlaceholder(profile.subject) || ContainsPlaceholder(profile.body);
  return profile;
}

// Replaces the profile map by the children of one "Profiles" element.
void ReadProfiles(const TiXmlElement& list, NotifyConfig& config) {
  std::int32_t counter =
      std::max(config.nextProfileId, IntAttribute(list, "autoincrement").value_or(1));
  std::map<std::int32_t, NotifyProfile> profiles;
  for (auto element = list.FirstChildElement("smtp"); element != nullptr;
       element = element->NextSiblingElement("smtp")) {
    if (auto profile = ReadProfile(*element, config, counter)) {
      profiles.insert_or_assign(profile->ID, std::move(*profile));
    }
  }
  config.nextProfileId = counter;
  config.profiles.swap(profiles);
}

}  // namespace

bool ReadNotify(const TiXmlElement& root, NotifyConfig& config) {
  const TiXmlElement* notify = root.FirstChildElement("Notify");
  if (notify == nullptr) return false;
  if (IntAttribute(*notify, "ID") != static_cast<std::int32_t>(kModuleId)) return false;

  TakeSetting(*notify, "MaxRetrySeconds", config.MaxRetrySeconds);
  TakeSetting(*notify, "MaxRetryQueue", config.MaxRetryQueue);
  TakeSetting(*notify, "EmailSizeLimitMB", config.EmailSizeLimitMB);
  if (notify->FirstChildElement("Servers") == nullptr) return false;
  if (notify->FirstChildElement("Profiles") == nullptr) return false;

  if (const TiXmlElement* web = notify->FirstChildElement("Web")) {
    if (auto address = TextAttribute(*web, "address")) config.webAddress = std::move(*address);
  }
  ReadServers(*notify, config.servers);
  for (auto list = notify->FirstChildElement("Profiles"); list != nullptr;
       list = list->NextSiblingElement("Profiles")) {
    ReadProfiles(*list, config);
  }
  config.loaded = true;
  return true;
}

}  // namespace tvx
