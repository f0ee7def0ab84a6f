// The preview for machines: one JSON object (RFC 8259).
#pragma once

#include <string>

#include "preview/preview.h"

namespace tvx::tool {

// Bytes that are no UTF-8 become the replacement character; the message file has them as they are.
std::string PreviewJson(const Preview& preview);

}  // namespace tvx::tool
