// The plug-in as the host sees it: a shared library with eight calls, each checked.
//
// Owns:    the loaded library, until destruction. One that then stays in the process is a fault.
// Threads: as the plug-in allows: everything but Load and Unload may be called concurrently.
// Errors:  a library that cannot be loaded, or lacks an export, is a PluginError. Whatever a call
//          does against the contract is recorded as a fault, and the run goes on.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/host_records.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class PluginError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What a call is about, for those who follow it.
struct CallPurpose {
  std::string text;
  std::string_view payload;
  const ChunkHeader* chunk = nullptr;  // in front of the payload
};

// Where the plug-in of this name is: beside the command, where the build leaves it, else where it is
// installed.
std::string PluginBesideCommand(const char* name);

class PluginLibrary {
 public:
  // The timeline must outlive this object.
  PluginLibrary(const std::string& path, Timeline& timeline);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  // Lets the clocks of a plug-in that was built for it run faster, from now on. Before Load.
  // PluginError when the plug-in was not.
  void SetClockSpeed(double speed);

  void Load(HostServiceEntry entry);
  void Open();
  void Close();
  void RunWatchdog();  // returns when the worker has ended
  void RunWorker();    // returns after Close
  void Seek();
  void Unload();

  // The text is handed over without a terminator, as the host does.
  void SendEvent(const std::string& document);
  void SendUpdate(const std::string& document);
  void SendTick();
  struct Frame {
    const void* handle;  // the host's buffer
    std::uint32_t size;  // bytes of the buffer
    std::uint32_t stream;
    bool key;
    std::uint32_t payloadOffset;  // bytes of the buffer in front of the coded data
  };
  // True when the plug-in keeps the buffer.
  bool SendFrame(const Frame& frame);
  void SendChunk(const void* chunk, std::uint32_t size);

 private:
  using Export = int (*)(void* request, void* result);

  Export Find(const char* name) const;
  template <typename Request, typename Result>
  void Call(const char* name, Export function, const Request& request, Result& result,
            const CallPurpose& purpose = {});
  // The same without a word, for calls that come by the thousand. Returns what the export returned;
  // the breach is what is wrong with the result record, and faults are recorded.
  template <typename Request, typename Result>
  int CallQuietly(const char* name, Export function, const Request& request, Result& result,
                  std::string& breach);
  void CallIoctl(const char* name, ControlCode code, const void* payload, std::uint32_t length,
                 const CallPurpose& purpose);
  void CallPlain(const char* name, Export function);

  struct Closer {
    void operator()(void* library) const;
  };

  Timeline& timeline_;
  const std::string path_;
  std::unique_ptr<void, Closer> library_;
  std::atomic<std::uint32_t> calls_{0};
  const Export load_, open_, close_, read_, write_, seek_, ioctl_, unload_;
};

}  // namespace tvx::tool
