#include "fuzz/plugin_run.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "base/clock.h"
#include "fuzz/input.h"

extern "C" {
int Load(void* request, void* result);
int Open(void* request, void* result);
int Close(void* request, void* result);
int Write(void* request, void* result);
int IOCTL(void* request, void* result);
int Unload(void* request, void* result);
}

namespace tvx::test {
namespace {

constexpr const char* kProfiles =
    "<tDVR Delta='1'><Notify ID='786432' MaxRetrySeconds='60' MaxRetryQueue='3'"
    " EmailSizeLimitMB='1'><Servers><smtp description='Mail' address='127.0.0.1' port='25'/>"
    "</Servers><Profiles autoincrement='3'>"
    "<smtp ID='1' attach='1' description='Gate' from='NVR &lt;nvr@x&gt;' MaxVideoSeconds='5'"
    " EventEdge='2' subject='{event type} at {source}'><to>Guard &lt;g@x&gt;</to>"
    "<body>{event state} {date format=\"%Y-%m-%d\"} {system name} {serial} {mac address}</body>"
    "</smtp><smtp ID='2' attach='0' description='Yard' from='nvr@x' ThrottleSeconds='10'"
    " subject='s'><to>g@x</to><bcc>b@x</bcc><body>b</body></smtp>"
    "<smtp ID='99' description='Last' from='nvr@x' subject='s'><to>nobody</to><body>b</body></smtp>"
    "</Profiles></Notify></tDVR>";

constexpr const char* kSystem =
    "<tDVR Delta='0'><Devices ID='65536'>"
    "<Device Number='2' Name='North'><Context Number='0'><Video><Input Number='1' Name='Gate'/>"
    "</Video><Codec><Encoder><Channel ID='66049' Number='1' Width='32' Height='32' Standard='5'/>"
    "</Encoder></Codec></Context></Device>"
    "<Device Number='3' Name='South'><Context Number='0'><Video><Input Number='1' Name='Yard'/>"
    "</Video><Codec><Encoder><Channel ID='66305' Number='1' Width='32' Height='32' Standard='4'/>"
    "</Encoder></Codec></Context></Device>"
    "<Device Number='4' Name='West'><Context Number='0'><Video><Input Number='1' Name='Door'/>"
    "</Video><Codec><Encoder><Channel ID='66561' Number='1' Width='32' Height='32' Standard='0'/>"
    "</Encoder></Codec></Context></Device></Devices>"
    "<Events><Event ID='7' PreAlarm='5'><Devices ID='65536'>"
    "<Device Number='2'><Video><Input Number='1'/></Video></Device>"
    "<Device Number='3'><Video><Input Number='1'/></Video></Device>"
    "<Device Number='4'><Video><Input Number='1'/></Video></Device>"
    "</Devices><Action><Notify/></Action></Event></Events></tDVR>";

// Trying a profile out: the last notification in the queue, whatever was received before.
constexpr const char* kLastEvent =
    "<tDVR><Notify ID='786432'><Profiles><Profile ID='99' Alarm='1' Action='7'"
    " Message='Testing Profile'/></Profiles></Notify></tDVR>";

struct Host {
  std::map<const void*, std::unique_ptr<char[]>> frames;  // the plug-in's, by handle
  std::string published;
  bool delivering = false;
  std::uint32_t tick = 0xFFFFE000;  // wraps soon
  std::int64_t wall = 1'500'000'000;
};

Host& TheHost() {
  static Host host;
  return host;
}

template <typename Request>
void Call(int (*function)(void*, void*), Request request) {
  unsigned char result[96] = {};
  Require(function(&request, result) == 0, "every export returns 0");
}

int TakeDocument(const HostRequest& request) {
  const std::string text(static_cast<const char*>(request.payload), request.length);
  if (request.command == HostCommand::ConfigDocument) {
    TheHost().published = text;
  } else if (TheHost().delivering && text.find("\"99\"") != std::string::npos) {
    Call(Close, PlainResult{});
  }
  return 0;
}

int Entry(HostRequest* request, HostReply* reply) {
  Require(request->size == kHostRequestSize && request->version == 1 &&
              request->module == kModuleId && reply->size == sizeof(HostReply),
          "a record has the form of one");
  reply->status = 0;
  switch (request->command) {
    case HostCommand::Log: {
      const auto* line = static_cast<const char*>(request->payload);
      Require(std::strlen(line) + 1 == request->length, "a log line is one text");
      return 0;
    }
    case HostCommand::ReleaseFrame:
      Require(TheHost().frames.erase(request->payload) == 1, "a frame that was taken comes back");
      return 0;
    case HostCommand::ConfigDocument:
    case HostCommand::StatusDocument:
      return TakeDocument(*request);
    default:
      Require(false, "no program is launched");
      return 1;
  }
}

void PrepareProcess() {
  ::setenv("TMPDIR", "/dev/shm", 1);
  // Grown already or not: the limit is asked at the next page.
  rlimit limit{};
  ::getrlimit(RLIMIT_STACK, &limit);
  limit.rlim_cur = kStackBytes;
  Require(::setrlimit(RLIMIT_STACK, &limit) == 0, "the stack can be limited");
  SetTickClock([] { return TheHost().tick; });
  SetWallClock([] { return TheHost().wall; });
  // As it is after the first run, so that the first is like all others.
  Call(Close, PlainResult{});
}

std::unique_ptr<char[]> Copy(std::string_view bytes) {
  std::unique_ptr<char[]> copy(new char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

}  // namespace

PluginRun::Process::Process() {
  static const bool prepared = (PrepareProcess(), true);
  static_cast<void>(prepared);
}

PluginRun::PluginRun() {
  TheHost() = Host{};
  Call(Load, LoadRequest{{}, 4711, &Entry});
}

PluginRun::~PluginRun() {
  Call(Unload, PlainResult{});
  Require(TheHost().frames.empty(), "every frame comes back");
}

void PluginRun::SetUp() {
  UpdateProfiles();
  UpdateSystem();
}

void PluginRun::UpdateProfiles() {
  Update(kProfiles);
}

void PluginRun::UpdateSystem() {
  Update(kSystem);
}

void PluginRun::Open() {
  Call(::Open, PlainResult{});
}

void PluginRun::Event(std::string_view document) {
  WriteRequest record{};
  record.kind = static_cast<RecordKind>(2);
  Write(record, document);
}

void PluginRun::Tick() {
  WriteRequest record{};
  record.kind = RecordKind::Tick;
  record.addressee = kModuleId;
  Write(record, {});
}

void PluginRun::Control(std::uint32_t code, std::string_view payload) {
  const auto copy = Copy(payload);
  IoctlRequest request{};
  request.code = static_cast<ControlCode>(code);
  request.payload = copy.get();
  request.length = static_cast<std::uint32_t>(payload.size());
  Call(IOCTL, request);
}

void PluginRun::Write(WriteRequest record, std::string_view payload, bool noData) {
  auto copy = noData ? nullptr : Copy(payload);
  const void* const handle = copy.get();
  record.data = handle;
  record.length = static_cast<std::uint32_t>(payload.size());
  WriteResult result{};
  if (record.kind != RecordKind::Frame || noData) {
    Require(::Write(&record, &result) == 0, "every export returns 0");
    Require(result.frameAccepted == 0, "what is no frame is not taken");
    return;
  }
  // It may come back before the call returns.
  TheHost().frames[handle] = std::move(copy);
  Require(::Write(&record, &result) == 0, "every export returns 0");
  if (result.frameAccepted != 0) return;
  Require(TheHost().frames.erase(handle) == 1, "a frame that was not taken stays the host's");
}

void PluginRun::SomeFrames() {
  WriteRequest record{};
  record.kind = RecordKind::Frame;
  for (const std::uint32_t type : {1U, 0U}) {
    record.frameType = type;
    for (const std::int32_t stream : kStreams) {
      record.addressee = static_cast<std::uint32_t>(stream);
      Write(record, type == 1 ? std::string_view("\0\0\1\x65key", 7)
                              : std::string_view("\0\0\1\x41rest", 8));
    }
    Advance(100);
  }
}

void PluginRun::Advance(std::uint32_t milliseconds) {
  TheHost().tick += milliseconds;
  TheHost().wall += milliseconds / 1000;
}

void PluginRun::Deliver() {
  UpdateProfiles();
  Advance(1000 * 3600);
  Tick();
  Event(kLastEvent);
  TheHost().delivering = true;
  Control(1, {});
}

const std::string& PluginRun::Published() const {
  return TheHost().published;
}

}  // namespace tvx::test
