// The host service entry: what the plug-in sends is checked here and handed on.
//
// One at a time: the entry is a plain function, as in every host, and finds the current object
// through a process-wide pointer.
// Threads: the entry may be called from any thread.
#pragma once

#include <atomic>
#include <string>

#include "host/host_records.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/program_runner.h"
#include "simulated_host/progress.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class HostServices {
 public:
  // All references must outlive this object.
  HostServices(Timeline& timeline, Progress& progress, ProgramRunner& programs, FrameBooks& frames);
  ~HostServices();
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  // What the plug-in gets in Load.
  static int Entry(HostRequest* request, HostReply* reply);

  // The plug-in has been unloaded: whatever it still sends is a fault.
  void Unloaded();

 private:
  void Take(const HostRequest& request, const HostReply& reply);
  void TakeWellFormed(const HostRequest& request);
  void TakeLogLine(const LogLine& line);
  void TakeStatus(const std::string& text);
  void TakeConfiguration(const std::string& text);

  Timeline& timeline_;
  Progress& progress_;
  ProgramRunner& programs_;
  FrameBooks& frames_;
  std::atomic<bool> unloaded_{false};
};

}  // namespace tvx::tool
