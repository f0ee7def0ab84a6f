#include "configuration_check/check_json.h"

#include <nlohmann/json.hpp>

namespace tvx::tool {
namespace {

using Json = nlohmann::ordered_json;

Json Describe(const Finding& finding) {
  return {{"line", finding.place.line},
          {"column", finding.place.column},
          {"severity", finding.severity == Severity::Error ? "error" : "warning"},
          {"code", finding.code},
          {"what", finding.what},
          {"why", finding.why},
          {"instead", finding.instead},
          {"mend", finding.mend}};
}

Json Describe(const SmtpServer& server) {
  return {{"description", server.description},
          {"address", server.address},
          {"port", server.port},
          {"UseSSL", server.UseSSL},
          {"username", server.username},
          {"hasPassword", !server.password.empty()}};
}

Json Describe(const NotifyProfile& profile) {
  return {{"ID", profile.ID},
          {"attach", profile.attach},
          {"description", profile.description},
          {"ThrottleSeconds", profile.ThrottleSeconds},
          {"from", profile.from},
          {"subject", profile.subject},
          {"MaxVideoSeconds", profile.MaxVideoSeconds},
          {"EventEdge", profile.EventEdge},
          {"to", profile.to},
          {"cc", profile.cc},
          {"bcc", profile.bcc},
          {"body", profile.body}};
}

Json Describe(const NotifyConfig& config) {
  Json servers = Json::array();
  for (const SmtpServer& server : config.servers) servers.push_back(Describe(server));
  Json profiles = Json::array();
  for (const auto& [id, profile] : config.profiles) profiles.push_back(Describe(profile));
  return {{"MaxRetrySeconds", config.MaxRetrySeconds},
          {"MaxRetryQueue", config.MaxRetryQueue},
          {"EmailSizeLimitMB", config.EmailSizeLimitMB},
          {"webAddress", config.webAddress},
          {"servers", std::move(servers)},
          {"autoincrement", config.nextProfileId},
          {"profiles", std::move(profiles)}};
}

}  // namespace

std::string CheckJson(const CheckReport& report) {
  Json findings = Json::array();
  for (const Finding& finding : report.findings) findings.push_back(Describe(finding));
  const Json document = {{"file", report.file},
                         {"outcome", report.outcome == LoadOutcome::Loaded ? "loaded" : "rejected"},
                         {"findings", std::move(findings)},
                         {"kept", Describe(report.kept)}};
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tvx::tool
