// Text as today's mail carries it: in UTF-8, in lines of bounded length, in ASCII where it must be.
//
// Standards: RFC 5322 folding, RFC 2047 encoded words (in their "Q" form, which stays readable),
//            RFC 2045 quoted-printable, RFC 2231 parameter values.
// Threads:   any; no state. Errors: none but memory exhaustion; every text is taken.
#pragma once

#include <string>

namespace tvx {

// The text in UTF-8. One that is not valid UTF-8 is taken as Windows-1252, which other programs of
// this kind write.
std::string ToUtf8(const std::string& text);

// A header field with its line end, the text folded and encoded as it needs. Control characters of
// the text, line ends included, become blanks.
std::string TextField(const std::string& name, const std::string& text);

// A header field of a name and an address, "From: Name <address>", with its line end. An empty name
// leaves the address alone.
std::string NameField(const std::string& field, const std::string& name,
                      const std::string& address);

// A body of text.
struct TextBody {
  const char* encoding;  // for Content-Transfer-Encoding: "7bit" or "quoted-printable"
  std::string text;      // lines of at most 998 bytes, each with its CRLF
};
TextBody EncodeBody(const std::string& text);

// The parameters that name a file, ready to stand behind a Content-Disposition: in ASCII for all
// readers, and where that is not the whole name, exactly for those that know RFC 2231.
std::string FileNameParameters(const std::string& name);

}  // namespace tvx
