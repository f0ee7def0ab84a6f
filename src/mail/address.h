// The address filter: everything that goes into a header or to the transfer program passes it.
// Threads: any; nothing is shared.
#pragma once

#include <string>

namespace tvx {

// Replaces the text by the first address in it, without display name or brackets. False, and the
// text as it was, when there is none. What is left holds no blank, quote or control character, so
// it can add neither a header line nor an option.
bool ValidateAddress(std::string& text);

}  // namespace tvx
