// One soak run: from Load to Unload, with everything between that a host asks of the plug-in.
//
// Threads: Run uses the calling thread for the documents, the mail server and Load to Unload; one
//          each for the worker, the watchdog, the ticks, the events, the samples and the event
//          loop, and those of the cameras.
// Signals: as simulated_host/event_loop.h. SIGINT and SIGTERM end the load early; the run is then
//          closed and judged as if it had been meant to be so long.
// Errors:  PluginError, std::system_error and std::runtime_error when it cannot begin. Whatever the
//          plug-in does wrong is in the report. A plug-in that does not give its threads back holds
//          the run up for ever: whoever starts it limits its time.
#pragma once

#include <string>
#include <vector>

#include "soak/delivery_check.h"
#include "soak/samples.h"
#include "soak/soak_printer.h"

namespace tvx::soak {

struct SoakOptions {
  std::string plugin;    // absolute path
  double seconds = 0;    // of load
  std::string mailSink;  // absolute path of mail_sink.py
  int mailServerPort = 0;
  // In the working folder: the three videos, ./curl. Written there: what the plug-in writes, and
  // the report's files.
};

struct SoakReport {
  double seconds = 0;  // of load
  double drainSeconds = 0;
  MailCounts mail;
  DeliveryCheck delivery;
  HostFindings host;
  Flatness flatness;
  // Whatever did not balance or was not flat, in words. Empty: the run is a proof.
  std::vector<std::string> faults;
};

SoakReport RunSoak(const SoakOptions& options);

}  // namespace tvx::soak
