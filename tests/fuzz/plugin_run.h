// The plug-in from Load to Unload inside the fuzz target. Whatever breaks the rules of the border (see
// support/plugin_driver.h) ends the run as a finding.
//
// The process channel is closed, so no program is ever run and every mail fails at once. Nothing
// asks the network either, as long as no document names a web server. Time is driven. The working
// folder is the run's own and in memory. From the first run on the stack of the main thread is
// limited to what a host's thread may be expected to have left.
//
// Threads: the fuzzer's one. One object at a time.
#pragma once

#include <cstdint>
#include <string>

#include "support/fake_host.h"
#include "support/plugin_driver.h"
#include "support/temporary_folder.h"

namespace tvx::test {

// What the main thread's stack may grow to in all, the fuzzer's own part included.
constexpr std::size_t kStackBytes = 256 << 10;

// Streams of the cameras in SetUp: H.264, MPEG-4 part 2, JPEG.
constexpr std::uint32_t kStreams[] = {66049, 66305, 66561};

class PluginRun {
 public:
  PluginRun();
  ~PluginRun();
  PluginRun(const PluginRun&) = delete;
  PluginRun& operator=(const PluginRun&) = delete;

  PluginDriver& Plugin() { return plugin_; }

  // The host's documents for profiles 1 (with clips), 2 and 99, and for three cameras.
  void SetUp();
  void UpdateProfiles();
  void UpdateSystem();

  // A key frame and a dependent one for each of the three streams, a tenth of a second apart.
  void SomeFrames();
  static void Advance(std::uint32_t milliseconds);

  // Makes whatever was received a mail: waits for no clip any more and runs the worker, on this
  // thread, until its queue is empty.
  void Deliver();

  // The configuration that was published last; empty when none was.
  std::string Published() const;

 private:
  // Prepared once, before the first folder is made.
  struct Process {
    Process();
  };
  const Process process_;
  const TemporaryFolder folder_;
  FakeHost host_;
  PluginDriver plugin_;
};

}  // namespace tvx::test
