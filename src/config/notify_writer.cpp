#include "config/notify_writer.h"

#include <tinyxml.h>

#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx {
namespace {

// What "SSL" tells the host: the plug-in knows plain, smtps and STARTTLS.
constexpr int kSslLevel = 2;

void AppendText(TiXmlElement& parent, const char* name, const std::string& text) {
  AppendElement(parent, name).LinkEndChild(std::make_unique<TiXmlText>(text).release());
}

void AppendAll(TiXmlElement& parent, const char* name, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) AppendText(parent, name, text);
}

// Hosts that never heard of it are given nothing new.
void AppendDelivery(TiXmlElement& notify, const DeliverySettings& delivery) {
  if (delivery == DeliverySettings{}) return;
  TiXmlElement& element = AppendElement(notify, "Delivery");
  element.SetAttribute("Standard", delivery.Standard ? 1 : 0);
  element.SetAttribute("VerifyCertificates", delivery.VerifyCertificates ? 1 : 0);
  element.SetAttribute("CertificateFile", delivery.CertificateFile);
  element.SetAttribute("MaxTransferSeconds", delivery.MaxTransferSeconds);
  element.SetAttribute("HelloName", delivery.HelloName);
}

void AppendServers(TiXmlElement& notify, const std::vector<SmtpServer>& servers) {
  TiXmlElement& list = AppendElement(notify, "Servers");
  for (const SmtpServer& server : servers) {
    TiXmlElement& element = AppendElement(list, "smtp");
    element.SetAttribute("description", server.description);
    element.SetAttribute("address", server.address);
    element.SetAttribute("port", server.port);
    element.SetAttribute("UseSSL", server.UseSSL);
    if (server.username.empty() && server.password.empty()) continue;
    TiXmlElement& authentication = AppendElement(element, "Authentication");
    authentication.SetAttribute("username", server.username);
    authentication.SetAttribute("password", server.password);
  }
}

void AppendProfiles(TiXmlElement& notify, const NotifyConfig& config) {
  TiXmlElement& list = AppendElement(notify, "Profiles");
  list.SetAttribute("autoincrement", config.nextProfileId);
  for (const auto& [id, profile] : config.profiles) {
    TiXmlElement& element = AppendElement(list, "smtp");
    element.SetAttribute("ID", profile.ID);
    element.SetAttribute("attach", profile.attach ? 1 : 0);
    element.SetAttribute("description", profile.description);
    element.SetAttribute("ThrottleSeconds", profile.ThrottleSeconds);
    element.SetAttribute("from", profile.from);
    element.SetAttribute("subject", profile.subject);
    element.SetAttribute("MaxVideoSeconds", profile.MaxVideoSeconds);
    element.SetAttribute("EventEdge", profile.EventEdge);
    AppendAll(element, "to", profile.to);
    AppendAll(element, "cc", profile.cc);
    AppendAll(element, "bcc", profile.bcc);
    AppendText(element, "body", profile.body);
  }
}

void AppendNotify(TiXmlElement& root, const NotifyConfig& config) {
  const char* attachments = config.secondReviewerMode ? "0" : "1";
  TiXmlElement& notify = AppendElement(root, "Notify");
  notify.SetAttribute("ID", static_cast<int>(kModuleId));
  notify.SetAttribute("SupportsThrottleSeconds", "1");
  notify.SetAttribute("SupportsAttach", attachments);
  notify.SetAttribute("SupportsVideoAttach", attachments);
  notify.SetAttribute("SupportsStatus", "1");
  notify.SetAttribute("SupportsEventEdge", "1");
  notify.SetAttribute("TemplateSupportLevel", "3");
  notify.SetAttribute("IsSupported", 1);
  if (config.curlSupportsSmtps) notify.SetAttribute("SSL", kSslLevel);
  notify.SetAttribute("MaxRetrySeconds", config.MaxRetrySeconds);
  notify.SetAttribute("MaxRetryQueue", config.MaxRetryQueue);
  notify.SetAttribute("EmailSizeLimitMB", config.EmailSizeLimitMB);
  AppendElement(notify, "Web").SetAttribute("address", config.webAddress);
  AppendDelivery(notify, config.delivery);
  AppendServers(notify, config.servers);
  AppendProfiles(notify, config);
}

}  // namespace

std::unique_ptr<TiXmlDocument> BuildNotifyDocument(const NotifyConfig& config) {
  auto document = NewDocument();
  TiXmlElement& root = AppendElement(*document, "tDVR");
  root.SetAttribute("Delta", 0);
  AppendNotify(root, config);
  return document;
}

}  // namespace tvx
