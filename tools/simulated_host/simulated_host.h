// A host for one plug-in: from Load to Unload, in the order and on the threads of a real one.
//
// Threads: Run uses the calling thread for Load, Open, the steps, Close and Unload; one thread each
//          for the worker, the watchdog, the ticks, and the event loop (signals, programs, time
//          limit), from which programs' reports reach the plug-in.
// Signals: the event loop takes them, see event_loop.h. The first SIGINT, SIGTERM, SIGHUP or SIGQUIT
//          stops the plug-in cleanly, the second ends the process.
// Errors:  PluginError when the library cannot be loaded. Everything else is a fault in the
//          timeline. A plug-in that does not give its threads back ends the process with status 1.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulated_host/scenario.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

struct HostOptions {
  std::string plugin;  // absolute path
  // Nothing: run until a signal comes. Otherwise the run ends behind the last step, once idle.
  std::optional<std::vector<Step>> steps;
  double timeLimit = 0;  // seconds for everything before Close; 0: none
  double settle = 0;     // seconds of silence that count as idle (Progress::WaitIdle)
  // How many times faster than the world's the plug-in's time passes, and with it everything the
  // host does in steps and ticks. Other than 1 only with a plug-in that was built for it.
  double speed = 1;
  double pace = 1;         // of the cameras, in the plug-in's time: 2 is twice as fast
  std::string mailServer;  // shell command; empty: none
  std::string mailServerFolder;
  // Called before the process ends without destructors.
  std::function<void()> onAbandon;
};

// False when a signal or the time limit ended the run early.
bool RunHost(const HostOptions& options, Timeline& timeline);

}  // namespace tvx::tool
