// The plug-in from Load to Unload inside the fuzz target. Whatever breaks the rules of the border (see
// support/plugin_driver.h) ends the run as a finding.
//
// The process channel is closed, so no program is ever run and every mail fails at once. Nothing
// asks the network either, as long as no document names a web server. Time is driven. The working
// folder is in memory, and the stack of the main thread as small as a host may have left it.
// Threads: the fuzzer's one. One object at a time.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/clock.h"
#include "fuzz/fuzz.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/plugin_driver.h"
#include "support/temporary_folder.h"

namespace tvx::test {

// Streams of the cameras in SetUp: H.264, MPEG-4 part 2, JPEG.
constexpr std::uint32_t kStreams[] = {66049, 66305, 66561};

class PluginRun {
 public:
  PluginRun() : plugin_(host_, LinkedExports()) {}
  ~PluginRun() {
    plugin_.Unload();
    Require(host_.Chunks().empty(), "no program is launched");
    for (const std::string& problem : host_.Problems()) Require(false, problem.c_str());
  }

  PluginDriver& Plugin() { return plugin_; }

  // The host's documents for profiles 1 (with clips), 2 and 99, and for three cameras.
  void SetUp() {
    UpdateProfiles();
    UpdateSystem();
  }
  void UpdateProfiles() {
    const std::string clips =
        "attach='1' description='Gate' from='NVR &lt;nvr@x&gt;' MaxVideoSeconds='5' EventEdge='2' "
        "subject='{event type} at {source}'";
    const std::string body =
        "<to>Guard &lt;g@x&gt;</to><body>{event state} {date format=\"%Y-%m-%d\"} {system name} "
        "{serial} {mac address}</body>";
    const std::string blind = "<to>g@x</to><bcc>b@x</bcc><body>b</body>";
    plugin_.Update(Change(
        Notify(Profile(1, clips, body) + Profile(2, "ThrottleSeconds='10'", blind) + Profile(99),
               "MaxRetrySeconds='60' MaxRetryQueue='3' EmailSizeLimitMB='1'")));
  }
  void UpdateSystem() {
    plugin_.Update(SystemDocument(
        Devices(Camera(2, "Gate", 5) + Camera(3, "Yard", 4) + Camera(4, "Door", 0)) + "<Events>" +
        NotifyingEvent(7, 2) + NotifyingEvent(8, 3) + NotifyingEvent(9, 4) + "</Events>"));
  }

  // A key frame and a dependent one for each of the three streams, a tenth of a second apart.
  void SomeFrames() {
    for (const bool isKey : {true, false}) {
      for (const std::uint32_t stream : kStreams) {
        const std::string_view payload(isKey ? "\0\0\1\x65key" : "\0\0\1\x41key", 7);
        plugin_.Frame(stream, isKey, payload);
      }
      Advance(100);
    }
  }
  static void Advance(std::uint32_t milliseconds) {
    tick += milliseconds;
    wall += milliseconds / 1000;
  }

  // Makes whatever was received a mail: waits for no clip any more and runs the worker, on this
  // thread, until its queue is empty.
  void Deliver() {
    UpdateProfiles();
    Advance(1000 * 3600);
    plugin_.Tick();
    // Trying a profile out: the last notification in the queue, whatever was received before.
    plugin_.Event(EventDocument(EventEntry(99, true, "Message='Testing Profile'", "")));
    host_.OnDocument([this](const SentDocument& document) {
      if (document.text.find("\"99\"") != std::string::npos) plugin_.Close();
    });
    plugin_.Control(ControlCode::RunWorker);
  }

  // The configuration that was published last; empty when none was.
  std::string Published() const {
    std::string text;
    for (const SentDocument& document : host_.Documents()) {
      if (document.command == HostCommand::ConfigDocument) text = document.text;
    }
    return text;
  }

 private:
  // Before the folder is made.
  static bool Prepare() {
    tick = 0xFFFFE000;  // wraps soon
    wall = 1'500'000'000;
    ::setenv("TMPDIR", "/dev/shm", 1);
    // Grown already or not: the limit is asked at the next page. The fuzzer's own part is in it.
    rlimit limit{};
    ::getrlimit(RLIMIT_STACK, &limit);
    limit.rlim_cur = 256 << 10;
    Require(::setrlimit(RLIMIT_STACK, &limit) == 0, "the stack can be limited");
    SetTickClock([] { return tick; });
    SetWallClock([] { return wall; });
    // As it is after the first run, so that the first is like all others.
    PlainResult result{};
    return ::Close(&result, &result) == 0;
  }

  static inline std::uint32_t tick = 0;
  static inline std::int64_t wall = 0;
  const bool isPrepared_ = Prepare();
  const TemporaryFolder folder_;
  FakeHost host_;
  PluginDriver plugin_;
};

}  // namespace tvx::test
