// printf into a string.
// Threads: any.
#pragma once

#include <string>

namespace tvx::tool {

// Texts of more than 511 bytes are cut: meant for numbers and words, not for what others wrote.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tvx::tool
