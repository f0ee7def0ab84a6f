// A preview, printed.
// Threads: any; nothing is shared.
#pragma once

#include <string>

#include "preview/preview.h"
#include "text/palette.h"

namespace tvx::tool {

// For people: the message, indented, and what became of its placeholders. Lines of the second half
// begin with a mark: "+" replaced, "=" left as it is, "-" dropped, "!" a fault, "#" a remark.
std::string PreviewText(const Preview& preview, const Palette& palette);

// For programs: one JSON object (RFC 8259) in ASCII. Bytes that are no UTF-8 become the replacement
// character; the message file has them as they are.
std::string PreviewJson(const Preview& preview);

}  // namespace tvx::tool
