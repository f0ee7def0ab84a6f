// Base64 as text carries it.
//
// Standard: RFC 4648, section 4: the alphabet with "+" and "/", padded with "=". No line breaks are
//           made; who needs lines (MIME, RFC 2045) encodes a line's worth at a time.
// Threads:  any; no state. Errors: none but memory exhaustion.
#pragma once

#include <cstddef>
#include <string>

namespace tvx {

// Appends the encoding of the bytes, padded to a whole number of four characters. A count that is
// not a multiple of 3 ends in padding, so the blocks of one long text are multiples of 3 up to the
// last. No bytes append nothing.
void AppendBase64(const unsigned char* bytes, std::size_t count, std::string& out);

std::string Base64Encode(const void* bytes, std::size_t count);

}  // namespace tvx
