// A plug-in for the simulated host: for each event it runs ./program with much input, logs what
// came back and reports profile 1 delivered. The environment variable PLUGIN_FAULT names one way to
// break the contract.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "base/mutex.h"
#include "host/host_entry.h"
#include "host/host_records.h"
#include "host/process_channel.h"
#include "log/host_log.h"

namespace {

using namespace tvx;

// More than all pipes on the way hold.
constexpr std::size_t kInputLength = 1000000;

struct Plugin {
  HostServiceEntry entry = nullptr;
  Mutex mutex;
  ConditionVariable changed;
  int events GUARDED_BY(mutex) = 0;
  bool stopped GUARDED_BY(mutex) = false;
  std::deque<const void*> frames GUARDED_BY(mutex);  // held, oldest first
  const void* refused GUARDED_BY(mutex) = nullptr;
  bool broken GUARDED_BY(mutex) = false;  // the books have been broken once, which is enough
};

Plugin& ThePlugin() {
  static Plugin plugin;
  return plugin;
}

bool Faulty(const char* fault) {
  const char* chosen = std::getenv("PLUGIN_FAULT");
  return chosen != nullptr && std::strcmp(chosen, fault) == 0;
}

template <typename Result>
Result& As(void* record) {
  return *static_cast<Result*>(record);
}

void Send(HostRequest request) {
  HostReply reply = MakeHostReply();
  ThePlugin().entry(&request, &reply);
}

// One faulty record after the other, but only the one that is asked for.
void SendFaultyRecords() {
  static const char text[] = "text";
  HostRequest log = MakeHostRequest(HostCommand::Log, PayloadKind::LogLine);
  log.level = 25;
  log.payload = text;
  log.length = sizeof(text);
  const auto sendIf = [](const char* fault, HostRequest request, auto change) {
    if (!Faulty(fault)) return;
    change(request);
    Send(request);
  };
  sendIf("size", log, [](HostRequest& it) { it.size = 180; });
  sendIf("version", log, [](HostRequest& it) { it.version = 0; });
  sendIf("module", log, [](HostRequest& it) { it.module = 0; });
  sendIf("reserved word", log, [](HostRequest& it) { it.reserved36 = 1; });
  sendIf("last word", log, [](HostRequest& it) { it.reserved44[34] = 7; });
  sendIf("log length", log, [](HostRequest& it) { --it.length; });
  sendIf("log level", log, [](HostRequest& it) { it.level = 26; });
  sendIf("payload kind", log, [](HostRequest& it) { it.payloadKind = PayloadKind::Document; });
  sendIf("command", log, [](HostRequest& it) { it.command = static_cast<HostCommand>(5); });
  sendIf("frame", MakeHostRequest(HostCommand::ReleaseFrame, PayloadKind::None),
         [](HostRequest& it) { it.payload = text; });
  sendIf("status document", MakeHostRequest(HostCommand::StatusDocument, PayloadKind::Document),
         [](HostRequest& it) {
           it.payload = text;
           it.length = sizeof(text) - 1;
         });
}

void RunProgram() {
  const HostServiceEntry entry = ThePlugin().entry;
  const auto program = TheProcessChannel().RunProgram({"./program", "an argument", ""});
  const std::string input(kInputLength, 'x');
  TheProcessChannel().WriteInput(*program, ProgramInput(input));
  std::size_t length = 0;
  std::string line;
  while (ReadLine(*program, OutputStream::Output, line)) length += line.size();
  std::string errors;
  while (ReadLine(*program, OutputStream::Errors, line)) errors += line;
  MutexLock lock(program->mutex);
  HostLog(kModuleId, entry, LogLevel::Information, "state %d, value %u, output %u, errors %s",
          static_cast<int>(program->state), program->value, static_cast<unsigned>(length),
          errors.c_str());
}

void GiveBack(const void* frame) {
  HostRequest request = MakeHostRequest(HostCommand::ReleaseFrame, PayloadKind::None);
  request.payload = frame;
  Send(request);
}

// Holds a few frames; what is the answer. One frame is handled as the fault wants it.
std::uint32_t TakeFrame(const void* frame) {
  constexpr std::size_t kHeld = 5;
  Plugin& plugin = ThePlugin();
  MutexLock lock(plugin.mutex);
  if (Faulty("frame answer")) return 2;
  if (!plugin.broken && Faulty("frame at once")) {
    plugin.broken = true;
    GiveBack(frame);
    return 1;
  }
  if (!plugin.broken && Faulty("frame at once, refused")) {
    plugin.broken = true;
    GiveBack(frame);
    return 0;
  }
  if (!plugin.broken && Faulty("frame refused")) {
    if (plugin.refused == nullptr) {
      plugin.refused = frame;
      return 0;
    }
    plugin.broken = true;
    GiveBack(plugin.refused);
  }
  plugin.frames.push_back(frame);
  if (plugin.frames.size() > kHeld) {
    GiveBack(plugin.frames.front());
    if (!plugin.broken && Faulty("frame twice")) {
      plugin.broken = true;
      GiveBack(plugin.frames.front());
    }
    plugin.frames.pop_front();
  }
  return 1;
}

void GiveBackAll() {
  Plugin& plugin = ThePlugin();
  MutexLock lock(plugin.mutex);
  if (Faulty("frame lost") && !plugin.frames.empty()) plugin.frames.pop_front();
  for (const void* frame : plugin.frames) GiveBack(frame);
  plugin.frames.clear();
}

int Plain(void* result) {
  As<PlainResult>(result).result = 0;
  return 0;
}

}  // namespace

#define EXPORT extern "C" __attribute__((visibility("default"))) int

EXPORT Load(void* request, void* result) {
  const HostServiceEntry entry = As<LoadRequest>(request).entry;
  ThePlugin().entry = entry;
  auto& capabilities = As<PluginCapabilities>(result);
  capabilities.module = kModuleId;
  capabilities.word12 = Faulty("capability") ? 0 : 0x200006C;
  capabilities.word16 = 0;
  capabilities.word20 = 0x2000010;
  capabilities.word24 = 0;
  capabilities.word28 = 0;
  capabilities.word32 = 0x3000000;
  capabilities.word36 = 0;
  capabilities.word40 = 0;
  if (Faulty("unused capability")) capabilities.unused44[0] = 0;
  const std::uint8_t flags[6] = {1, 0, 1, 1, 0, 0};
  std::memcpy(capabilities.flags52, flags, sizeof(flags));
  capabilities.word60 = 0;
  TheProcessChannel().Register(kModuleId, [entry](void* chunk, std::uint32_t size) {
    HostRequest message = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
    message.payload = chunk;
    message.length = size;
    HostReply reply = MakeHostReply();
    return entry(&message, &reply) == 0 && reply.status == 0;
  });
  return 0;
}

EXPORT Open(void* request, void* result) {
  SendFaultyRecords();
  if (Faulty("request")) As<PlainResult>(request).result = 1;
  As<OpenResult>(result).result = 0;
  if (!Faulty("missing word")) As<OpenResult>(result).result12 = 0;
  return 0;
}

EXPORT Close(void*, void* result) {
  {
    Plugin& plugin = ThePlugin();
    MutexLock lock(plugin.mutex);
    plugin.stopped = true;
    plugin.changed.NotifyAll();
  }
  TheProcessChannel().Close();
  return Plain(result);
}

EXPORT Read(void*, void* result) {
  Plugin& plugin = ThePlugin();
  MutexLock lock(plugin.mutex);
  while (!plugin.stopped) plugin.changed.Wait(plugin.mutex);
  As<ReadResult>(result).result = 0;
  return 0;
}

EXPORT Write(void* request, void* result) {
  const auto& record = As<WriteRequest>(request);
  if (record.kind == RecordKind::Frame) {
    As<WriteResult>(result).frameAccepted = TakeFrame(record.data);
  } else if (record.addressee != kModuleId) {
    Plugin& plugin = ThePlugin();
    MutexLock lock(plugin.mutex);
    ++plugin.events;
    plugin.changed.NotifyAll();
  }
  As<WriteResult>(result).result = 0;
  if (Faulty("frame word")) As<WriteResult>(result).frameAccepted = 0;
  return 0;
}

EXPORT Seek(void*, void* result) {
  Plain(result);
  return Faulty("return value") ? 1 : 0;
}

void RunWorker() {
  Plugin& plugin = ThePlugin();
  while (!Faulty("early worker")) {
    {
      MutexLock lock(plugin.mutex);
      while (plugin.events == 0 && !plugin.stopped) plugin.changed.Wait(plugin.mutex);
      if (plugin.stopped) return;
      --plugin.events;
    }
    RunProgram();
    SendHostDocument(plugin.entry, HostCommand::StatusDocument,
                     "<tDVR><Notify ID=\"786432\"><Profiles><Profile ID=\"1\" Status=\"0\" "
                     "Time=\"1500000000\"/></Profiles></Notify></tDVR>");
  }
}

EXPORT IOCTL(void* request, void* result) {
  const auto& record = As<IoctlRequest>(request);
  if (record.code == ControlCode::RunWorker) RunWorker();
  if (record.code == ControlCode::ChannelMessage) {
    TheProcessChannel().Receive(record.payload, record.length);
  }
  As<IoctlResult>(result).result = 0;
  return 0;
}

EXPORT Unload(void*, void* result) {
  GiveBackAll();
  // The channel outlives the library's other objects and would keep what was registered.
  TheProcessChannel().Register(kModuleId, {});
  return Plain(result);
}
