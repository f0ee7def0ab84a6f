#include "configuration_check/configuration_check.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "configuration_check/kept_json.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

using Json = nlohmann::ordered_json;

const char* NameOf(Severity severity) {
  return severity == Severity::Error ? "error" : "warning";
}

std::string Count(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string CountOf(Severity severity, const Findings& findings) {
  const auto count = std::count_if(findings.begin(), findings.end(),
                                   [&](const Finding& it) { return it.severity == severity; });
  return Count(static_cast<std::size_t>(count), NameOf(severity));
}

std::string TextOf(const Finding& finding, const Palette& palette) {
  const bool isError = finding.severity == Severity::Error;
  return (finding.place.line > 0 ? std::to_string(finding.place.line) + ": " : " ") +
         palette.Paint(isError ? Colour::Red : Colour::Yellow,
                       NameOf(finding.severity) + std::string(":")) +
         " " + palette.Paint(Colour::Bold, Printable(finding.what)) + ": " +
         Printable(finding.why) + "\n    effect: " + Printable(finding.effect) +
         "\n    fix: " + Printable(finding.fix) + "\n";
}

Json JsonOf(const Finding& finding) {
  return {{"line", finding.place.line},
          {"column", finding.place.column},
          {"severity", NameOf(finding.severity)},
          {"code", finding.code},
          {"what", finding.what},
          {"why", finding.why},
          {"effect", finding.effect},
          {"fix", finding.fix}};
}

Json JsonOf(const NotifyConfig& config) {
  nlohmann::json profiles = nlohmann::json::array();
  for (const auto& [id, profile] : config.profiles) profiles.push_back(profile);
  return {
      {"MaxRetrySeconds", config.MaxRetrySeconds},   {"MaxRetryQueue", config.MaxRetryQueue},
      {"EmailSizeLimitMB", config.EmailSizeLimitMB}, {"webAddress", config.webAddress},
      {"delivery", nlohmann::json(config.delivery)}, {"servers", nlohmann::json(config.servers)},
      {"autoincrement", config.nextProfileId},       {"profiles", std::move(profiles)}};
}

}  // namespace

std::string CheckText(const CheckReport& report, const Palette& palette) {
  const std::string file = Printable(report.file) + ":";
  std::string text;
  for (const Finding& finding : report.findings) text += file + TextOf(finding, palette);
  const std::string kept = report.outcome != LoadOutcome::Loaded
                               ? "the file is rejected"
                               : "taken: " + Count(report.kept.servers.size(), "server") + ", " +
                                     Count(report.kept.profiles.size(), "profile");
  return text + file + " " + CountOf(Severity::Error, report.findings) + ", " +
         CountOf(Severity::Warning, report.findings) + "; " + kept + "\n";
}

std::string CheckJson(const CheckReport& report) {
  Json findings = Json::array();
  for (const Finding& finding : report.findings) findings.push_back(JsonOf(finding));
  const Json document = {{"file", report.file},
                         {"outcome", report.outcome == LoadOutcome::Loaded ? "loaded" : "rejected"},
                         {"findings", std::move(findings)},
                         {"kept", JsonOf(report.kept)}};
  return document.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace tvx::tool
