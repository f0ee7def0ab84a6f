// Base64 as text carries it.
//
// Standard: RFC 4648, section 4: the alphabet with "+" and "/", padded with "="; lines of 76
//           characters as RFC 2045 has them, but for their ends.
// Threads:  any; no state. Errors: none but memory exhaustion.
#pragma once

#include <cstddef>
#include <string>

namespace tvx {

// The characters that so many bytes become, padding included.
constexpr std::size_t Base64Length(std::size_t count) {
  return (count + 2) / 3 * 4;
}

// Writes the encoding of the bytes, Base64Length(count) characters, and returns the end of it. A
// count that is not a multiple of 3 ends in padding, so the blocks of one long text are multiples
// of 3 up to the last. Attachments are megabytes long, so this is as fast as the processor allows.
char* EncodeBase64(const unsigned char* bytes, std::size_t count, char* to);

// Of one line, which are 76 characters.
constexpr std::size_t kBase64LineBytes = 57;

// Writes the encoding in lines, each with the line end ("\n" or "\r\n") but for a padded last one,
// and returns the end of it. There is room for 78 characters a line, the last one included.
char* EncodeBase64Lines(const unsigned char* bytes, std::size_t count, const char* lineEnd,
                        char* to);

std::string Base64Encode(const void* bytes, std::size_t count);

}  // namespace tvx
