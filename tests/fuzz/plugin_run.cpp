#include "fuzz/plugin_run.h"

#include <sys/resource.h>

#include <cstdlib>

#include "base/clock.h"
#include "fuzz/fuzz.h"
#include "support/documents.h"

namespace tvx::test {
namespace {

std::uint32_t tick;
std::int64_t wall;

const std::string& Profiles() {
  static const std::string text = Change(
      Notify(Profile(1,
                     "attach='1' description='Gate' from='NVR &lt;nvr@x&gt;' MaxVideoSeconds='5' "
                     "EventEdge='2' subject='{event type} at {source}'",
                     "<to>Guard &lt;g@x&gt;</to><body>{event state} {date format=\"%Y-%m-%d\"} "
                     "{system name} {serial} {mac address}</body>") +
                 Profile(2, "ThrottleSeconds='10'", "<to>g@x</to><bcc>b@x</bcc><body>b</body>") +
                 Profile(99),
             "MaxRetrySeconds='60' MaxRetryQueue='3' EmailSizeLimitMB='1'"));
  return text;
}

const std::string& System() {
  static const std::string text = SystemDocument(
      Devices(Camera(2, "Gate", 5) + Camera(3, "Yard", 4) + Camera(4, "Door", 0)) + "<Events>" +
      NotifyingEvent(7, 2) + NotifyingEvent(8, 3) + NotifyingEvent(9, 4) + "</Events>");
  return text;
}

void PrepareProcess() {
  ::setenv("TMPDIR", "/dev/shm", 1);
  // Grown already or not: the limit is asked at the next page.
  rlimit limit{};
  ::getrlimit(RLIMIT_STACK, &limit);
  limit.rlim_cur = kStackBytes;
  Require(::setrlimit(RLIMIT_STACK, &limit) == 0, "the stack can be limited");
  SetTickClock([] { return tick; });
  SetWallClock([] { return wall; });
  // As it is after the first run, so that the first is like all others.
  PlainResult result{};
  ::Close(&result, &result);
}

}  // namespace

PluginRun::Process::Process() {
  static const bool prepared = (PrepareProcess(), true);
  static_cast<void>(prepared);
  tick = 0xFFFFE000;  // wraps soon
  wall = 1'500'000'000;
}

PluginRun::PluginRun() : plugin_(host_, LinkedExports()) {}

PluginRun::~PluginRun() {
  plugin_.Unload();
  Require(host_.Chunks().empty(), "no program is launched");
  for (const std::string& problem : host_.Problems()) Require(false, problem.c_str());
}

void PluginRun::SetUp() {
  UpdateProfiles();
  UpdateSystem();
}

void PluginRun::UpdateProfiles() {
  plugin_.Update(Profiles());
}

void PluginRun::UpdateSystem() {
  plugin_.Update(System());
}

void PluginRun::SomeFrames() {
  for (const bool isKey : {true, false}) {
    for (const std::uint32_t stream : kStreams) {
      plugin_.Frame(
          stream, isKey,
          isKey ? std::string_view("\0\0\1\x65key", 7) : std::string_view("\0\0\1\x41rest", 8));
    }
    Advance(100);
  }
}

void PluginRun::Advance(std::uint32_t milliseconds) {
  tick += milliseconds;
  wall += milliseconds / 1000;
}

void PluginRun::Deliver() {
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

std::string PluginRun::Published() const {
  std::string text;
  for (const SentDocument& document : host_.Documents()) {
    if (document.command == HostCommand::ConfigDocument) text = document.text;
  }
  return text;
}

}  // namespace tvx::test
