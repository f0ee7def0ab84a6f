#include "log/deferred_log.h"

#include <cstdarg>
#include <cstdio>

namespace tvx {

void DeferredLog::Add(LogLevel level, const char* format, ...) {
  char text[kLogLineSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  lines_.push_back({level, text});
}

void DeferredLog::Write(HostServiceEntry host) {
  for (const Line& line : lines_) HostLogText(kModuleId, host, line.level, line.text);
  lines_.clear();
}

}  // namespace tvx
