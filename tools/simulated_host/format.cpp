#include "simulated_host/format.h"

#include <cstdarg>
#include <cstdio>

namespace tvx::tool {

std::string Format(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace tvx::tool
