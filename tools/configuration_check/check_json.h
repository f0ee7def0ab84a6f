// A check's report for programs.
#pragma once

#include <string>

#include "configuration_check/configuration_check.h"

namespace tvx::tool {

// One JSON document (RFC 8259): "file", "outcome", "findings", and "kept", which names all that the
// plug-in would work with but the passwords. Bytes that are no UTF-8 become U+FFFD.
std::string CheckJson(const CheckReport& report);

}  // namespace tvx::tool
