// The real plug-in, bent in one way that the environment variable PLUGIN_FAULT tells, in three
// words:
//   RECORD OFFSET VALUE  puts the 32-bit VALUE at OFFSET into a record on its way to the host. These
//                        are the results of the exports, by their names ("Frame" for the Writes of
//                        frames), "Request" for the request of Open, "Return" for what Seek returns,
//                        and the plug-in's requests by the numbers of their commands.
//   times RECORD N       has it cross N times instead of once.
//   early Frame ANSWER   gives each frame back within its Write, which answers with ANSWER.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "host/host_entry.h"
#include "host/host_records.h"

namespace {

using namespace tvx;

struct Fault {
  std::string what, record;
  unsigned value = 0;

  Fault() {
    const char* text = std::getenv("PLUGIN_FAULT");
    std::istringstream(text == nullptr ? "" : text) >> what >> record >> value;
  }
  int Times(const std::string& name) const {
    return what == "times" && record == name ? static_cast<int>(value) : 1;
  }
  void Bend(const std::string& name, void* bytes) const {
    if (what != name) return;
    std::memcpy(static_cast<char*>(bytes) + std::stoul(record), &value, sizeof(value));
  }
};

HostServiceEntry hostEntry;

int Cross(HostRequest* request, HostReply* reply) {
  const Fault fault;
  const std::string name = std::to_string(static_cast<unsigned>(request->command));
  for (int times = fault.Times(name); times > 1; --times) hostEntry(request, reply);
  if (fault.Times(name) == 0) return 0;
  HostRequest bent = *request;
  fault.Bend(name, &bent);
  return hostEntry(&bent, reply);
}

void* Core(const char* name) {
  static void* const core = dlopen(REAL_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  return dlsym(core, name);
}

int Call(const char* name, void* request, void* result, std::string record) {
  const Fault fault;
  if (record == "Write" && static_cast<WriteRequest*>(request)->kind == RecordKind::Frame) {
    record = "Frame";
    if (fault.what == "early") {
      ReleaseHostFrame(hostEntry, static_cast<WriteRequest*>(request)->data);
      static_cast<WriteResult*>(result)->result = 0;
      static_cast<WriteResult*>(result)->frameAccepted = fault.value;
      return 0;
    }
  }
  LoadRequest load{};
  if (record == "Load") {
    load = *static_cast<LoadRequest*>(request);
    hostEntry = load.entry;
    load.entry = Cross;
    request = &load;
  }
  using Export = int (*)(void*, void*);
  int returned = 0;
  if (fault.Times(record) > 0) returned = reinterpret_cast<Export>(Core(name))(request, result);
  fault.Bend(record, result);
  if (record == "Open") fault.Bend("Request", request);
  if (record == "Seek") fault.Bend("Return", &returned);
  return returned;
}

}  // namespace

#define EXPORT extern "C" __attribute__((visibility("default")))
#define FORWARD(name)                            \
  EXPORT int name(void* request, void* result) { \
    return Call(#name, request, result, #name);  \
  }

FORWARD(Load)
FORWARD(Open)
FORWARD(Close)
FORWARD(Read)
FORWARD(Write)
FORWARD(Seek)
FORWARD(IOCTL)
FORWARD(Unload)

EXPORT void SetClockSpeed(double speed) {
  reinterpret_cast<void (*)(double)>(Core("SetClockSpeed"))(speed);
}
