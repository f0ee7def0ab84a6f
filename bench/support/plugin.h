// The built plug-in, called through its exports as the host calls it, without a check or a copy in
// the way: what is measured is the plug-in.
//
// Owns:    the loaded library, which is loaded (Load) for the object's life and unloaded with it.
// Threads: those of the exports. One object at a time.
// Errors:  a library that cannot be loaded ends the program with a message.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/host_records.h"

namespace tvx::bench {

class Plugin {
 public:
  using Export = int (*)(void* request, void* result);

  Plugin();
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  void Open();
  void Close();  // the process channel stays closed for the rest of the process
  void RunWorker();
  void RunWatchdog();
  void Update(const std::string& document);
  void Report(const void* chunk, std::uint32_t size);
  void WriteEvent(std::string_view document);

  // The exported Write itself, for loops that are timed.
  int Write(WriteRequest& request, WriteResult& result) const { return write_(&request, &result); }

 private:
  Export Find(const char* name) const;
  void Control(ControlCode code, const void* payload, std::uint32_t length);

  void* const library_;
  const Export write_;
};

// The record of a Write that carries an event document. The text stays the caller's.
WriteRequest EventRequest(std::string_view document);

}  // namespace tvx::bench
