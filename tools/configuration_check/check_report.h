// A check's report, printed.
// Threads: any; nothing is shared.
#pragma once

#include <string>

#include "configuration_check/configuration_check.h"
#include "text/palette.h"

namespace tvx::tool {

// For people: three lines a finding, "file:line: severity: what: why" first, and a line that sums up.
std::string CheckText(const CheckReport& report, const Palette& palette);

// For programs: one JSON document (RFC 8259) in ASCII: "file", "outcome", "findings", and "kept",
// which names all that the plug-in would work with but the passwords. Bytes that are no UTF-8 become
// U+FFFD.
std::string CheckJson(const CheckReport& report);

}  // namespace tvx::tool
