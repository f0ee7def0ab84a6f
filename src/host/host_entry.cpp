#include "host/host_entry.h"

namespace tvx {

HostRequest MakeHostRequest(HostCommand command, PayloadKind kind) {
  HostRequest request{};
  request.size = kHostRequestSize;
  request.version = 1;
  request.module = kModuleId;
  request.command = command;
  request.payloadKind = kind;
  return request;
}

HostReply MakeHostReply() {
  return HostReply{sizeof(HostReply), 1, 0};
}

std::uint32_t SendHostDocument(HostServiceEntry entry, HostCommand command,
                               const std::string& text) {
  if (entry == nullptr) return 0;
  HostRequest request = MakeHostRequest(command, PayloadKind::Document);
  request.length = static_cast<std::uint32_t>(text.size());
  request.payload = text.c_str();
  HostReply reply = MakeHostReply();
  entry(&request, &reply);
  return reply.status;
}

void ReleaseHostFrame(HostServiceEntry entry, const void* handle) {
  if (entry == nullptr) return;
  HostRequest request = MakeHostRequest(HostCommand::ReleaseFrame, PayloadKind::None);
  request.payload = handle;
  HostReply reply = MakeHostReply();
  entry(&request, &reply);
}

WatchdogOutcome SendWatchdogEvent(HostServiceEntry entry) {
  if (entry == nullptr) return {};
  HostRequest request = MakeHostRequest(HostCommand::Watchdog, PayloadKind::Watchdog);
  HostReply reply = MakeHostReply();
  const int returned = entry(&request, &reply);
  return {returned, reply.status};
}

}  // namespace tvx
