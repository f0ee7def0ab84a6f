#include "simulated_host/format.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

namespace tvx::tool {

std::string Format(const char* format, ...) {
  char* text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::bad_alloc();
  const std::unique_ptr<char, void (*)(void*)> owned(text, std::free);
  return {text, static_cast<std::size_t>(length)};
}

}  // namespace tvx::tool
