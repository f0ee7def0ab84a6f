#include "log/host_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "host/host_entry.h"

namespace tvx {

void HostLog(std::uint32_t module, HostServiceEntry entry, LogLevel level, const char* format,
             ...) {
  if (entry == nullptr) return;
  char line[kLogLineSize];
  std::va_list arguments;
  va_start(arguments, format);
  const int formatted = std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  if (formatted < 0) line[0] = '\0';
  const std::size_t length = std::min<std::size_t>(
      formatted < 0 ? 0 : static_cast<std::size_t>(formatted), kLogLineSize - 1);

  HostRequest request = MakeHostRequest(HostCommand::Log, PayloadKind::LogLine);
  request.module = module;
  request.length = static_cast<std::uint32_t>(length + 1);
  request.payload = line;
  request.level = static_cast<std::uint32_t>(level);
  HostReply reply = MakeHostReply();
  entry(&request, &reply);
}

}  // namespace tvx
