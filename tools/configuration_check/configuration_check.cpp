#include "configuration_check/configuration_check.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "configuration_check/findings.h"
#include "configuration_check/reading.h"

namespace tvx::tool {

CheckReport CheckConfiguration(const std::string& path) {
  CheckReport report;
  report.file = path;
  const ConfigDocument file = ReadConfigFile(path, Positions::Tracked);
  Reading reading;
  report.outcome = TakeConfigDocument(file, report.kept, reading);
  if (report.outcome == LoadOutcome::Missing) return report;

  AddReadingFindings(reading, report.kept, report.findings);
  if (report.outcome == LoadOutcome::Loaded) {
    const TiXmlElement& block = *file.document->RootElement()->FirstChildElement("Notify");
    AddIgnoredContent(*file.document, reading, report.findings);
    AddDeliveryFindings(path, block, reading, report.kept, report.findings);
    AddProfileFindings(reading, report.kept, report.findings);
  } else if (report.findings.empty()) {
    AddRejectedFile(path, file, report.findings);
  }
  std::stable_sort(
      report.findings.begin(), report.findings.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.place.line, a.place.column) < std::tie(b.place.line, b.place.column);
      });
  return report;
}

}  // namespace tvx::tool
