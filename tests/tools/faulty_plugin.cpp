// A plug-in for the simulated host: for each event it runs ./program with much input, logs what
// came back and reports profile 1 delivered; of the frames it holds five. The environment variable
// PLUGIN_FAULT names one way to break the contract.
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

constexpr std::size_t kInputLength = 1000000;  // more than all pipes on the way hold
constexpr std::size_t kHeldFrames = 5;

struct Plugin {
  HostServiceEntry entry = nullptr;
  Mutex mutex;
  ConditionVariable changed;
  int events GUARDED_BY(mutex) = 0;
  bool stopped GUARDED_BY(mutex) = false;
  const void* firstFrame GUARDED_BY(mutex) = nullptr;
  std::deque<const void*> frames GUARDED_BY(mutex);  // held, oldest first
};

Plugin& ThePlugin() {
  static Plugin plugin;
  return plugin;
}

bool Faulty(const char* fault) {
  const char* chosen = std::getenv("PLUGIN_FAULT");
  return chosen != nullptr && std::strcmp(chosen, fault) == 0;
}

template <typename Record>
Record& As(void* record) {
  return *static_cast<Record*>(record);
}

// Sends a log line with the fault, if it is one of a record.
void SendFaultyRecord() {
  static const char text[] = "text";
  HostRequest it = MakeHostRequest(HostCommand::Log, PayloadKind::LogLine);
  it.level = 25;
  it.payload = text;
  it.length = sizeof(text);
  const HostRequest good = it;
  if (Faulty("size")) it.size = 180;
  if (Faulty("version")) it.version = 0;
  if (Faulty("module")) it.module = 0;
  if (Faulty("reserved word")) it.reserved36 = 1;
  if (Faulty("last word")) it.reserved44[34] = 7;
  if (Faulty("log length")) --it.length;
  if (Faulty("log level")) it.level = 26;
  if (Faulty("payload kind")) it.payloadKind = PayloadKind::Document;
  if (Faulty("command")) it.command = static_cast<HostCommand>(5);
  HostReply reply = MakeHostReply();
  if (std::memcmp(&it, &good, sizeof(it)) != 0) ThePlugin().entry(&it, &reply);
  if (Faulty("frame")) ReleaseHostFrame(ThePlugin().entry, text);
  if (Faulty("status document")) {
    SendHostDocument(ThePlugin().entry, HostCommand::StatusDocument, text);
  }
}

void RunProgram() {
  const auto program = TheProcessChannel().RunProgram({"./program", "an argument", ""});
  const std::string input(kInputLength, 'x');
  TheProcessChannel().WriteInput(*program, ProgramInput(input));
  std::size_t length = 0;
  std::string line, errors;
  while (ReadLine(*program, OutputStream::Output, line)) length += line.size();
  while (ReadLine(*program, OutputStream::Errors, line)) errors += line;
  MutexLock lock(program->mutex);
  HostLog(kModuleId, ThePlugin().entry, LogLevel::Information,
          "state %d, value %u, output %u, errors %s", static_cast<int>(program->state),
          program->value, static_cast<unsigned>(length), errors.c_str());
}

// What is the answer. The first frame is handled as the fault wants it.
std::uint32_t TakeFrame(const void* frame) {
  Plugin& plugin = ThePlugin();
  MutexLock lock(plugin.mutex);
  const auto giveBack = [&plugin](const void* it) { ReleaseHostFrame(plugin.entry, it); };
  const bool isFirst = plugin.firstFrame == nullptr;
  if (Faulty("frame answer")) return 2;
  if (!isFirst && Faulty("frame refused")) giveBack(plugin.firstFrame);
  if (isFirst) {
    plugin.firstFrame = frame;
    const bool refused = Faulty("frame at once, refused");
    if (refused || Faulty("frame at once")) giveBack(frame);
    if (refused || Faulty("frame refused")) return 0;
    if (Faulty("frame at once")) return 1;
  }
  plugin.frames.push_back(frame);
  if (plugin.frames.size() > kHeldFrames) {
    giveBack(plugin.frames.front());
    if (Faulty("frame twice")) giveBack(plugin.frames.front());
    plugin.frames.pop_front();
  }
  return 1;
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
  capabilities.word20 = 0x2000010;
  capabilities.word32 = 0x3000000;
  capabilities.word16 = capabilities.word24 = capabilities.word28 = 0;
  capabilities.word36 = capabilities.word40 = capabilities.word60 = 0;
  if (Faulty("unused capability")) capabilities.unused44[0] = 0;
  std::memcpy(capabilities.flags52, "\1\0\1\1\0", 6);
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
  SendFaultyRecord();
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
  return Plain(result) + (Faulty("return value") ? 1 : 0);
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
  Plugin& plugin = ThePlugin();
  MutexLock lock(plugin.mutex);
  if (Faulty("frame lost") && !plugin.frames.empty()) plugin.frames.pop_front();
  for (const void* frame : plugin.frames) ReleaseHostFrame(plugin.entry, frame);
  plugin.frames.clear();
  // The channel outlives the library's other objects and would keep what was registered.
  TheProcessChannel().Register(kModuleId, {});
  return Plain(result);
}
