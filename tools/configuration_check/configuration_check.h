// Checks a notify.xml: has the plug-in's own reader read it, and tells what became of it.
//
// Threads: any; nothing is shared. Only memory exhaustion throws.
#pragma once

#include <string>

#include "config/config_file.h"
#include "config/notify_config.h"
#include "configuration_check/finding.h"
#include "text/palette.h"

namespace tvx::tool {

struct CheckReport {
  std::string file;                            // as the user named it
  LoadOutcome outcome = LoadOutcome::Missing;  // Missing: there is nothing else in the report
  NotifyConfig kept;                           // what the plug-in would work with
  Findings findings;                           // in the order of the file
};

CheckReport CheckConfiguration(const std::string& path);

// For people: three lines a finding, "file:line: severity: what: why" first, and a line that sums up.
std::string CheckText(const CheckReport& report, const Palette& palette);

// For programs: one JSON document (RFC 8259) in ASCII: "file", "outcome", "findings", and "kept",
// which names all that the plug-in would work with but the passwords. Bytes that are no UTF-8 become
// U+FFFD.
std::string CheckJson(const CheckReport& report);

}  // namespace tvx::tool
