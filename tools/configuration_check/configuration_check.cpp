#include "configuration_check/configuration_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <tuple>

#include "configuration_check/document_place.h"
#include "configuration_check/reading.h"
#include "configuration_check/reading_findings.h"
#include "configuration_check/warnings.h"

namespace tvx::tool {
namespace {

// With a byte order mark, or with half of its first character empty.
bool IsUtf16(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return false;  // a pipe would block
  std::array<char, 2> begin{};
  std::ifstream file(path, std::ios::binary);
  if (!file.read(begin.data(), begin.size())) return false;
  return begin == std::array{'\xFF', '\xFE'} || begin == std::array{'\xFE', '\xFF'} ||
         (begin[0] == '\0') != (begin[1] == '\0');
}

Finding RejectedFile(const std::string& path, const ConfigDocument& file) {
  Finding finding;
  finding.place = {file.fault.row, file.fault.column};
  finding.code = "rejected-file";
  finding.what = "the file is not taken";
  finding.why = file.fault.text.empty() ? "it holds no element" : file.fault.text;
  finding.instead = kRejected;
  finding.mend = file.fault.row > 0
                     ? "set the markup right there, or take a copy of the file that was good; "
                       "within a value write &quot; for a quotation mark, in a text &lt; for \"<\""
                     : "take a copy of the file that was good, or write a new one";
  if (IsUtf16(path)) {
    finding.place = {};
    finding.why = "it is UTF-16";
    finding.mend = "save it as UTF-8";
  }
  return finding;
}

void AddFileMode(const std::string& path, const NotifyConfig& kept, Findings& findings) {
  const bool holdsPassword = std::any_of(kept.servers.begin(), kept.servers.end(),
                                         [](const SmtpServer& it) { return !it.password.empty(); });
  struct stat status {};
  if (!holdsPassword || ::stat(path.c_str(), &status) != 0) return;
  if ((status.st_mode & (S_IROTH | S_IWOTH)) == 0) return;
  findings.push_back({Severity::Warning,
                      {},
                      "file-mode",
                      "everybody on this machine can read the passwords",
                      "the file's permissions allow it",
                      "the plug-in leaves them as they are",
                      "chmod o= " + path});
}

}  // namespace

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
    AddDeliveryWarnings(block, reading, report.kept, report.findings);
    AddProfileWarnings(block, reading, report.kept, report.findings);
    AddFileMode(path, report.kept, report.findings);
  } else if (report.findings.empty()) {
    report.findings.push_back(RejectedFile(path, file));
  }
  std::stable_sort(
      report.findings.begin(), report.findings.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.place.line, a.place.column) < std::tie(b.place.line, b.place.column);
      });
  return report;
}

}  // namespace tvx::tool
