#include "configuration_check/check_text.h"

#include <algorithm>
#include <string>

#include "text/printable.h"

namespace tvx::tool {
namespace {

std::string Count(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::size_t CountOf(Severity severity, const Findings& findings) {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [&](const Finding& finding) { return finding.severity == severity; }));
}

void PrintFinding(const Finding& finding, const std::string& file, const Palette& palette,
                  std::FILE* out) {
  std::string place = file + ":";
  if (finding.place.line > 0) place += std::to_string(finding.place.line) + ":";
  const bool isError = finding.severity == Severity::Error;
  std::fprintf(
      out, "%s %s %s: %s\n    instead: %s\n    to mend: %s\n", place.c_str(),
      palette.Paint(isError ? Colour::Red : Colour::Yellow, isError ? "error:" : "warning:")
          .c_str(),
      palette.Paint(Colour::Bold, Printable(finding.what)).c_str(), Printable(finding.why).c_str(),
      Printable(finding.instead).c_str(), Printable(finding.mend).c_str());
}

}  // namespace

void PrintReport(const CheckReport& report, const Palette& palette, std::FILE* out) {
  const std::string file = Printable(report.file);
  for (const Finding& finding : report.findings) PrintFinding(finding, file, palette, out);
  const std::string kept = report.outcome != LoadOutcome::Loaded
                               ? "the file is rejected"
                               : "taken: " + Count(report.kept.servers.size(), "server") + ", " +
                                     Count(report.kept.profiles.size(), "profile");
  std::fprintf(out, "%s: %s, %s; %s\n", file.c_str(),
               Count(CountOf(Severity::Error, report.findings), "error").c_str(),
               Count(CountOf(Severity::Warning, report.findings), "warning").c_str(), kept.c_str());
}

}  // namespace tvx::tool
