// The eight exports: each reads its record, calls the service, writes its result words.
//
// Every export returns 0, whatever happened inside; failures are the log's matter. Running out of
// memory while the configuration is read or changed leaves the old one. Elsewhere it is not caught:
// it is the host's to know.
#include <cstdint>
#include <memory>
#include <new>

#include "base/immortal.h"
#include "host/host_entry.h"
#include "host/host_records.h"
#include "host/process_channel.h"
#include "log/host_log.h"
#include "service/notify_service.h"

#define NOTIFYPI_EXPORT extern "C" __attribute__((visibility("default")))

namespace tvx {
namespace {

// One per loaded library. Written by Load and Unload, which the host calls alone.
struct Plugin {
  std::uint32_t hostWord = 0;  // kept as the host gave it
  HostServiceEntry entry = nullptr;
  std::unique_ptr<NotifyService> service;
};

Plugin& ThePlugin() {
  static Immortal<Plugin> plugin;
  return plugin.value;
}

// The type and version words and the switches, in the host's own numbering.
void FillCapabilities(PluginCapabilities& capabilities) {
  capabilities.module = kModuleId;
  capabilities.word12 = 0x200006C;
  capabilities.word16 = 0;
  capabilities.word20 = 0x2000010;
  capabilities.word24 = 0;
  capabilities.word28 = 0;
  capabilities.word32 = 0x3000000;
  capabilities.word36 = 0;
  capabilities.word40 = 0;
  constexpr std::uint8_t kFlags[] = {1, 0, 1, 1, 0, 0};
  for (std::size_t i = 0; i < sizeof(kFlags); ++i) capabilities.flags52[i] = kFlags[i];
  capabilities.word60 = 0;
}

// Runs what may run out of memory, on a thread of the host that goes on without it. The log line
// needs none.
template <typename Operation>
void LogExhaustion(HostServiceEntry entry, Operation operation) {
  try {
    operation();
  } catch (const std::bad_alloc&) {
    HostLogText(kModuleId, entry, LogLevel::Error,
                "Out of memory. The configuration, as far as it was not taken, stays as it was");
  }
}

bool SendChunk(HostServiceEntry entry, void* chunk, std::uint32_t size) {
  HostRequest request = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
  request.length = size;
  request.payload = chunk;
  HostReply reply = MakeHostReply();
  return entry != nullptr && entry(&request, &reply) == 0 && reply.status == 0;
}

void WriteRecord(NotifyService* service, const WriteRequest& request, WriteResult& result) {
  if (request.kind == RecordKind::Frame) result.frameAccepted = 0;
  if (service == nullptr) return;
  // The order counts: a frame is a frame whomever it is addressed to.
  if (request.kind == RecordKind::Frame) {
    const IncomingFrame frame{static_cast<std::int32_t>(request.addressee), request.frameType,
                              request.payloadOffset, request.data, request.length};
    result.frameAccepted = service->ReceiveFrame(frame) ? 1 : 0;
  } else if (request.addressee != kModuleId) {
    service->ReceiveEventDocument(static_cast<const char*>(request.data), request.length);
  } else if (request.kind == RecordKind::Tick) {
    service->Tick();
  }
}

}  // namespace
}  // namespace tvx

NOTIFYPI_EXPORT int Load(void* request, void* result) {
  const auto& record = *static_cast<const tvx::LoadRequest*>(request);
  tvx::Plugin& plugin = tvx::ThePlugin();
  plugin.hostWord = record.hostWord;
  plugin.entry = record.entry;
  plugin.service = std::make_unique<tvx::NotifyService>(plugin.entry, tvx::TheProcessChannel());
  tvx::FillCapabilities(*static_cast<tvx::PluginCapabilities*>(result));
  tvx::TheProcessChannel().Register(tvx::kModuleId,
                                    [entry = plugin.entry](void* chunk, std::uint32_t size) {
                                      return tvx::SendChunk(entry, chunk, size);
                                    });
  return 0;
}

NOTIFYPI_EXPORT int Open(void* /*request*/, void* result) {
  tvx::Plugin& plugin = tvx::ThePlugin();
  if (plugin.service) tvx::LogExhaustion(plugin.entry, [&] { plugin.service->Open(); });
  auto& record = *static_cast<tvx::OpenResult*>(result);
  record.result = 0;
  record.result12 = 0;
  return 0;
}

NOTIFYPI_EXPORT int Close(void* /*request*/, void* result) {
  if (auto& service = tvx::ThePlugin().service) service->Stop();
  tvx::TheProcessChannel().Close();
  static_cast<tvx::PlainResult*>(result)->result = 0;
  return 0;
}

NOTIFYPI_EXPORT int Read(void* request, void* result) {
  const auto& record = *static_cast<const tvx::ReadRequest*>(request);
  auto& service = tvx::ThePlugin().service;
  if (service && record.runWatchdog != 0) service->RunWatchdog();
  static_cast<tvx::ReadResult*>(result)->result = 0;
  return 0;
}

NOTIFYPI_EXPORT int Write(void* request, void* result) {
  const auto& record = *static_cast<const tvx::WriteRequest*>(request);
  auto& answer = *static_cast<tvx::WriteResult*>(result);
  if (record.skip == 0) tvx::WriteRecord(tvx::ThePlugin().service.get(), record, answer);
  answer.result = 0;
  return 0;
}

NOTIFYPI_EXPORT int Seek(void* /*request*/, void* result) {
  static_cast<tvx::PlainResult*>(result)->result = 0;
  return 0;
}

NOTIFYPI_EXPORT int IOCTL(void* request, void* result) {
  const auto& record = *static_cast<const tvx::IoctlRequest*>(request);
  auto& service = tvx::ThePlugin().service;
  switch (record.code) {
    case tvx::ControlCode::RunWorker:
      if (service) service->RunWorker();
      break;
    case tvx::ControlCode::Update:
      if (!service) break;
      tvx::LogExhaustion(tvx::ThePlugin().entry, [&] {
        service->ApplyUpdate(static_cast<const char*>(record.payload), record.length);
      });
      break;
    case tvx::ControlCode::ChannelMessage:
      tvx::TheProcessChannel().Receive(record.payload, record.length);
      break;
  }
  static_cast<tvx::IoctlResult*>(result)->result = 0;
  return 0;
}

NOTIFYPI_EXPORT int Unload(void* /*request*/, void* result) {
  tvx::ThePlugin().service.reset();
  tvx::TheProcessChannel().Register(tvx::kModuleId, {});
  static_cast<tvx::PlainResult*>(result)->result = 0;
  return 0;
}
