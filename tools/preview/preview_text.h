// The preview for people: the message, indented, and what became of its placeholders.
#pragma once

#include <string>

#include "preview/preview.h"
#include "text/palette.h"

namespace tvx::tool {

// Lines of the second half begin with a mark: "+" replaced, "=" left as it is, "-" dropped,
// "!" a fault, "#" a remark.
std::string PreviewText(const Preview& preview, const Palette& palette);

}  // namespace tvx::tool
