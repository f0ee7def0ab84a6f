// Checks a notify.xml: has the plug-in's own reader read it, and tells what became of it.
//
// Threads: any; nothing is shared. Only memory exhaustion throws.
#pragma once

#include <string>

#include "config/config_file.h"
#include "config/notify_config.h"
#include "configuration_check/finding.h"

namespace tvx::tool {

struct CheckReport {
  std::string file;                            // as the user named it
  LoadOutcome outcome = LoadOutcome::Missing;  // Missing: there is nothing else in the report
  NotifyConfig kept;                           // what the plug-in would work with
  Findings findings;                           // in the order of the file
};

CheckReport CheckConfiguration(const std::string& path);

}  // namespace tvx::tool
