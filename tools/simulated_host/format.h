// printf into a string.
// Threads: any.
#pragma once

#include <string>

namespace tvx::tool {

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tvx::tool
