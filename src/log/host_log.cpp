#include "log/host_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "host/host_entry.h"

namespace tvx {

namespace {

// Sends a terminated line of this length. Texts of others may hold line ends and the like; the log
// has one line for one event.
void SendLine(std::uint32_t module, HostServiceEntry entry, LogLevel level, char* line,
              std::size_t length) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(line, line + length, isControl, ' ');
  HostRequest request = MakeHostRequest(HostCommand::Log, PayloadKind::LogLine);
  request.module = module;
  request.length = static_cast<std::uint32_t>(length + 1);
  request.payload = line;
  request.level = static_cast<std::uint32_t>(level);
  HostReply reply = MakeHostReply();
  entry(&request, &reply);
}

}  // namespace

void HostLog(std::uint32_t module, HostServiceEntry entry, LogLevel level, const char* format,
             ...) {
  if (entry == nullptr) return;
  char line[kLogLineSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  SendLine(module, entry, level, line, std::strlen(line));
}

void HostLogText(std::uint32_t module, HostServiceEntry entry, LogLevel level,
                 std::string_view text) {
  if (entry == nullptr) return;
  // As printf would: to the first NUL, and no longer than a line.
  char line[kLogLineSize];
  const std::size_t length = std::min(text.substr(0, text.find('\0')).size(), kLogLineSize - 1);
  text.copy(line, length);
  line[length] = '\0';
  SendLine(module, entry, level, line, length);
}

}  // namespace tvx
