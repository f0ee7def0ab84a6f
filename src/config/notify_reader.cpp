#include "config/notify_reader.h"

#include <tinyxml.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "config/notify_read_observer.h"
#include "config/templates.h"
#include "config/xml_children.h"
#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx {
namespace {

constexpr std::int32_t kSmtpsPort = 465;

// An element that the block is known to hold, and who is told what is taken from it.
class ElementReader {
 public:
  ElementReader(const TiXmlElement& element, NotifyReadObserver& observer)
      : element_(element), observer_(observer) {
    observer_.Enters(element_);
  }

  const TiXmlElement& Element() const { return element_; }
  NotifyReadObserver& Observer() const { return observer_; }

  std::int32_t Number(const char* name, std::int32_t otherwise) const {
    return Use(name, IntAttribute(element_, name).value_or(otherwise));
  }

  // Tells that this number stands for the attribute.
  std::int32_t Use(const char* name, std::int32_t number) const {
    observer_.TakesNumber(element_, name, number);
    return number;
  }

  std::optional<std::string> Text(const char* name) const {
    observer_.TakesText(element_, name);
    return TextAttribute(element_, name);
  }

  // A text that the element is skipped without.
  std::optional<std::string> RequiredText(const char* name) const {
    auto text = Text(name);
    if (!text) Skip(SkipReason::NoAttribute, name);
    return text;
  }

  bool Has(const char* child) const {
    if (element_.FirstChildElement(child) != nullptr) return true;
    Skip(SkipReason::NoElement, child);
    return false;
  }

  void Skip(SkipReason reason, const char* name) const { observer_.Skips(element_, reason, name); }

 private:
  const TiXmlElement& element_;
  NotifyReadObserver& observer_;
};

// False when only half of the credentials is there.
bool ReadAuthentication(const ElementReader& element, SmtpServer& server) {
  const TiXmlElement* child = element.Element().FirstChildElement("Authentication");
  if (child == nullptr) return true;
  const ElementReader authentication(*child, element.Observer());
  auto username = authentication.Text("username");
  auto password = authentication.Text("password");
  if (!username) element.Skip(SkipReason::HalfCredentials, "username");
  if (!password) element.Skip(SkipReason::HalfCredentials, "password");
  if (!username || !password) return false;
  server.username = std::move(*username);
  server.password = std::move(*password);
  return true;
}

std::optional<SmtpServer> ReadServer(const ElementReader& element) {
  auto description = element.RequiredText("description");
  auto address = element.RequiredText("address");
  if (!description || !address) return std::nullopt;
  SmtpServer server;
  server.description = std::move(*description);
  server.address = std::move(*address);
  server.port = element.Number("port", 25);
  server.UseSSL =
      element.Number("UseSSL", server.port == kSmtpsPort ? use_ssl::kSmtps : use_ssl::kPlain);
  // Half its credentials would let a server be tried without them, which nobody asked for.
  if (!ReadAuthentication(element, server)) return std::nullopt;
  return server;
}

void ReadServers(const TiXmlElement& notify, std::vector<SmtpServer>& servers,
                 NotifyReadObserver& observer) {
  servers.clear();
  for (const TiXmlElement& list : Children(notify, "Servers")) {
    observer.Enters(list);
    for (const TiXmlElement& element : Children(list, "smtp")) {
      auto server = ReadServer({element, observer});
      if (!server) continue;
      observer.Keeps(element, *server);
      servers.push_back(std::move(*server));
    }
  }
}

// The value of an element's first child, which for a text element is its text.
std::string FirstChildValue(const ElementReader& element) {
  const TiXmlNode* child = element.Element().FirstChild();
  if (child == nullptr) return {};
  element.Observer().TakesContent(*child);
  return child->ValueStr();
}

std::vector<std::string> ReadAddresses(const ElementReader& profile, const char* name) {
  std::vector<std::string> addresses;
  for (const TiXmlElement& child : Children(profile.Element(), name)) {
    const ElementReader element(child, profile.Observer());
    std::string address = FirstChildValue(element);
    if (address.empty()) {
      element.Skip(SkipReason::NoText, nullptr);
    } else {
      addresses.push_back(std::move(address));
    }
  }
  return addresses;
}

// False when there are several.
bool ReadBody(const ElementReader& profile, std::string& body) {
  const TiXmlElement* child = profile.Element().FirstChildElement("body");
  if (child == nullptr) return true;
  if (child->NextSiblingElement("body") != nullptr) {
    profile.Skip(SkipReason::SeveralElements, "body");
    return false;
  }
  body = FirstChildValue({*child, profile.Observer()});
  return true;
}

// What a profile element that does not say so keeps of the profile that it replaces.
struct Inherited {
  bool attach = false;
  std::int32_t maxVideoSeconds = 0;
  std::int32_t eventEdge = event_edge::kStart;
};

bool ReadAttach(const ElementReader& element, bool previous, bool secondReviewerMode) {
  const bool isSaid = element.Element().Attribute("attach") != nullptr;
  const bool attach =
      isSaid ? IntAttribute(element.Element(), "attach") == 1 && !secondReviewerMode : previous;
  return element.Use("attach", attach ? 1 : 0) == 1;
}

// The profile's number; counter is the next one to give to a profile that brings none.
std::optional<std::int32_t> ReadId(const ElementReader& element, std::int32_t& counter) {
  const auto id = IntAttribute(element.Element(), "ID");
  if (!id) {
    const bool isThere = element.Element().Attribute("ID") != nullptr;
    element.Skip(isThere ? SkipReason::NoNumber : SkipReason::NoAttribute, "ID");
    return std::nullopt;
  }
  if (*id != 0) return element.Use("ID", *id);
  // The number is used up even when the profile turns out to be malformed.
  const std::int32_t given = counter;
  if (counter < std::numeric_limits<std::int32_t>::max()) ++counter;
  return element.Use("ID", given);
}

std::optional<NotifyProfile> ReadProfile(const ElementReader& element, const NotifyConfig& config,
                                         std::int32_t& counter) {
  const auto id = ReadId(element, counter);
  if (!id) return std::nullopt;
  NotifyProfile profile;
  profile.ID = *id;

  auto description = element.RequiredText("description");
  auto from = element.RequiredText("from");
  auto subject = element.RequiredText("subject");
  if (!description || !from || !subject) return std::nullopt;
  profile.description = std::move(*description);
  profile.from = std::move(*from);
  profile.subject = std::move(*subject);

  profile.to = ReadAddresses(element, "to");
  if (profile.to.empty()) {
    element.Skip(SkipReason::NoElement, "to");
    return std::nullopt;
  }
  profile.cc = ReadAddresses(element, "cc");
  profile.bcc = ReadAddresses(element, "bcc");
  if (!ReadBody(element, profile.body)) return std::nullopt;

  Inherited inherited;
  const auto previous = config.profiles.find(profile.ID);
  if (previous != config.profiles.end()) {
    inherited = {previous->second.attach, previous->second.MaxVideoSeconds,
                 previous->second.EventEdge};
  }
  profile.attach = ReadAttach(element, inherited.attach, config.secondReviewerMode);
  profile.MaxVideoSeconds = element.Number("MaxVideoSeconds", inherited.maxVideoSeconds);
  profile.EventEdge = element.Number("EventEdge", inherited.eventEdge);
  profile.ThrottleSeconds = element.Number("ThrottleSeconds", 0);
  profile.usesPlaceholders =
      ContainsPlaceholder(profile.subject) || ContainsPlaceholder(profile.body);
  return profile;
}

// Replaces the profile map by the children of one "Profiles" element.
void ReadProfiles(const ElementReader& list, NotifyConfig& config) {
  std::int32_t counter = list.Use(
      "autoincrement",
      std::max(config.nextProfileId, IntAttribute(list.Element(), "autoincrement").value_or(1)));
  std::map<std::int32_t, NotifyProfile> profiles;
  for (const TiXmlElement& element : Children(list.Element(), "smtp")) {
    auto profile = ReadProfile({element, list.Observer()}, config, counter);
    if (!profile) continue;
    list.Observer().Keeps(element, *profile);
    profiles.insert_or_assign(profile->ID, std::move(*profile));
  }
  config.nextProfileId = counter;
  config.profiles.swap(profiles);
}

// An attribute that is left out is at its default again.
DeliverySettings ReadDelivery(const ElementReader& element) {
  DeliverySettings delivery;
  delivery.Standard = element.Number("Standard", 0) == 1;
  delivery.VerifyCertificates = element.Number("VerifyCertificates", 0) == 1;
  delivery.CertificateFile = element.Text("CertificateFile").value_or("");
  delivery.MaxTransferSeconds = std::max(element.Number("MaxTransferSeconds", 0), 0);
  delivery.HelloName = element.Text("HelloName").value_or("");
  return delivery;
}

// Whether the block is this plug-in's.
bool ReadModuleId(const ElementReader& block) {
  if (IntAttribute(block.Element(), "ID") != static_cast<std::int32_t>(kModuleId)) {
    block.Skip(SkipReason::OtherModule, "ID");
    return false;
  }
  block.Use("ID", static_cast<std::int32_t>(kModuleId));
  return true;
}

void ReadSettings(const ElementReader& block, NotifyConfig& config) {
  config.MaxRetrySeconds = block.Number("MaxRetrySeconds", config.MaxRetrySeconds);
  config.MaxRetryQueue = block.Number("MaxRetryQueue", config.MaxRetryQueue);
  config.EmailSizeLimitMB = block.Number("EmailSizeLimitMB", config.EmailSizeLimitMB);
}

}  // namespace

bool ReadNotify(const TiXmlElement& root, NotifyConfig& config) {
  NotifyReadObserver nobody;
  return ReadNotify(root, config, nobody);
}

bool ReadNotify(const TiXmlElement& root, NotifyConfig& config, NotifyReadObserver& observer) {
  const TiXmlElement* notify = root.FirstChildElement("Notify");
  if (notify == nullptr) {
    observer.Skips(root, SkipReason::NoElement, "Notify");
    return false;
  }
  const ElementReader block(*notify, observer);
  if (!ReadModuleId(block)) return false;
  ReadSettings(block, config);
  const bool hasServers = block.Has("Servers");
  const bool hasProfiles = block.Has("Profiles");
  if (!hasServers || !hasProfiles) return false;

  if (const TiXmlElement* child = notify->FirstChildElement("Web")) {
    if (auto address = ElementReader(*child, observer).Text("address")) {
      config.webAddress = std::move(*address);
    }
  }
  if (const TiXmlElement* child = notify->FirstChildElement("Delivery")) {
    config.delivery = ReadDelivery({*child, observer});
  }
  ReadServers(*notify, config.servers, observer);
  for (const TiXmlElement& list : Children(*notify, "Profiles")) {
    ReadProfiles({list, observer}, config);
  }
  config.loaded = true;
  return true;
}

}  // namespace tvx
