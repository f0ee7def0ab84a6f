// Percent-encoding for URLs.
//
// Standard: RFC 3986: the unreserved characters stay, every other byte becomes "%" and two
//           hexadecimal digits (lower case).
// Threads:  any; no state. Errors: none but memory exhaustion.
#pragma once

#include <string>
#include <string_view>

namespace tvx {

std::string PercentEncode(std::string_view text);

}  // namespace tvx
