// The plug-in, driven through its eight exports as a host drives it: loaded with the object,
// unloaded with it, with the host's two lent threads and the books of its frames in between.
//
// What goes against the rules of the border (an export that does not return 0 or throws anything but
// memory exhaustion, a frame that never comes back) is added to the host's problems. Time is not
// driven here (base/clock.h).
//
// Threads: one at a time calls the operations, but Report, which any thread may call.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "host/host_records.h"
#include "support/fake_host.h"

extern "C" {
int Load(void* request, void* result);
int Open(void* request, void* result);
int Close(void* request, void* result);
int Read(void* request, void* result);
int Write(void* request, void* result);
int Seek(void* request, void* result);
int IOCTL(void* request, void* result);
int Unload(void* request, void* result);
}

namespace tvx::test {

using Export = int (*)(void* request, void* result);

struct Exports {
  Export Load, Open, Close, Read, Write, Seek, Ioctl, Unload;
};

// Those of the core that the program is linked with, or of a built library, which stays loaded.
inline Exports LinkedExports() {
  return {::Load, ::Open, ::Close, ::Read, ::Write, ::Seek, ::IOCTL, ::Unload};
}
inline Exports LoadedExports(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  const auto find = [&](const char* name) {
    return reinterpret_cast<Export>(dlsym(library, name));
  };
  return {find("Load"),  find("Open"), find("Close"), find("Read"),
          find("Write"), find("Seek"), find("IOCTL"), find("Unload")};
}

class PluginDriver {
 public:
  PluginDriver(FakeHost& host, const Exports& exports);
  // Close and Unload, where they have not been called.
  ~PluginDriver();
  PluginDriver(const PluginDriver&) = delete;
  PluginDriver& operator=(const PluginDriver&) = delete;

  // Each is false when memory exhaustion came back to the host as an exception.
  bool Open();
  bool Update(std::string_view document) { return Control(ControlCode::Update, document); }
  bool Event(std::string_view document);
  bool Tick();
  // IOCTL; the payload is copied into a block of exactly its size first.
  bool Control(ControlCode code, std::string_view payload = {});
  // A report of a program, as IOCTL 4.
  void Report(std::string_view chunk) { Control(ControlCode::ChannelMessage, chunk); }

  // A frame in a buffer of the host's own. True when the plug-in took it.
  bool Frame(std::uint32_t stream, bool isKey, std::string_view payload = "frame");
  // Any record, its data and length replaced by the payload, or by null where noData says so.
  struct Written {
    bool hasMemory;
    bool isTaken;  // the frame
  };
  Written WriteRecord(WriteRequest record, std::string_view payload, bool noData = false);

  // Lends the threads for worker and watchdog.
  void StartLoops();
  // Close; the lent threads come back. Unload; all frames are back. Each once, the rest is nothing.
  void Close();
  void Unload();

  const Exports& Functions() const { return exports_; }

 private:
  template <typename Request, typename Result>
  bool Call(const char* name, Export function, Request& request, Result& result);

  FakeHost& host_;
  const Exports exports_;
  bool isClosed_ = false;
  bool isUnloaded_ = false;
  std::thread worker_;
  std::thread watchdog_;
};

}  // namespace tvx::test
