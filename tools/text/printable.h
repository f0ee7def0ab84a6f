// Texts of documents and programs, made fit for a terminal.
// Threads: any; nothing is shared.
#pragma once

#include <string>

namespace tvx::tool {

// The text on one line, each control character as \xNN, so that none of theirs reaches the
// terminal. All else stays as it is.
std::string Printable(const std::string& text);

}  // namespace tvx::tool
