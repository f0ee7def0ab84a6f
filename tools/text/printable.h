// Texts of documents and programs, made fit for a terminal.
// Threads: any; nothing is shared.
#pragma once

#include <string>

namespace tvx::tool {

// The text on one line: each byte as \xNN that is no UTF-8, or belongs to a control character (C1
// among them) or to one that changes the direction of what stands around it. All else stays.
std::string Printable(const std::string& text);

bool IsUtf8(const std::string& text);

}  // namespace tvx::tool
