// The address filter: everything that goes into a header or to the transfer program passes it.
// Threads: any; nothing is shared.
#pragma once

#include <string>

namespace tvx {

// Replaces the text by the first address in it, without display name or brackets. False, and the
// text as it was, when there is none. What is left holds no blank, quote or control character, so
// it can add neither a header line nor an option.
bool ValidateAddress(std::string& text);

// The name by which the plug-in greets servers, and which makes its message identifiers its own: the
// configured one when it is a host name or an address in brackets; else this machine's, in the
// domain of the sender's address when it has none of its own.
std::string HelloName(const std::string& configured, const std::string& from);

}  // namespace tvx
