// A check's report for people.
#pragma once

#include <cstdio>

#include "configuration_check/configuration_check.h"
#include "text/palette.h"

namespace tvx::tool {

// Three lines a finding, "file:line: severity: what: why" first, and a line that sums up. Control
// characters of the file are escaped.
void PrintReport(const CheckReport& report, const Palette& palette, std::FILE* out);

}  // namespace tvx::tool
