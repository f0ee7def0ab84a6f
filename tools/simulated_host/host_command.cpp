#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "config/config_file.h"
#include "simulated_host/event_printers.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/simulated_host.h"
#include "simulated_host/watch_printer.h"
#include "simulated_host/working_copy.h"

namespace tvx::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDescription =
    R"(Run the plug-in in a simulated host.

Loads the plug-in as the video-management server does, lends it its threads, runs the programs it
asks for, sends it the documents given and a tick every second, and prints what it logs, launches
and reports. Every record the plug-in sends and every result it writes is checked.

Without documents and script it runs until Ctrl-C. Otherwise it ends when everything has been sent,
no program runs and every event has been reported on. Documents given as options are sent in the
order system, update, event.
)";

constexpr const char* kFooter =
    R"(Script: one step a line, "#" begins a comment line; file names are relative to the script.
  system FILE        send a full system document
  update FILE        send a configuration document
  event FILE         send an event document
  tick               send a tick beside those of every second
  wait SECONDS       let the time pass
  wait idle          until no program runs and every event has been reported on
  wait delivered N   until N notifications have been delivered since the start
  camera STREAM CODEC [FILE]
                     feed a stream's frames from now on, see below
  mail-server up     start the command of --mail-server, and wait until it is up
  mail-server down   stop it, and wait until it is gone

The mail server is a shell command that writes a line once it accepts mail. It runs in the folder of
--directory, from the start of the run on. Lines marked "retry" tell what becomes of the messages that
could not be sent at once.

With --speed, the plug-in's time passes N times faster, and with it the seconds of "wait" and those
printed. Programs, --timeout and --settle keep the world's time.

A camera's STREAM is the source identifier that events name, as 66049; 66049/1 is the stream of its
sub-channel 1. CODEC is h264, mpeg4 or jpeg. FILE is any video file: its pictures are fed as they are
when it is coded so, else recoded; without one, a test picture with a running clock. ffmpeg is used
for all of it. Unless a system document is given, the host makes one: every event notifies, every
source group has all cameras, and 5 seconds from before an event are kept. A jpeg stream of a
sub-channel takes the place of its camera's own in e-mails. With options the cameras feed for
--before seconds before the first event. Every frame that the plug-in takes must come back exactly
once, those that it refuses never.

With --watch, a terminal shows how the run stands: notifications, the plug-in's retry queue,
programs, the mail server, video streams with the frames that the plug-in holds, and the last log
lines. Elsewhere, a line is printed when something has changed, at most one a second. It is all seen
from the host: "not reported" are the notifications that events asked for and that no status has come
for. They may wait for their video, be ready, be sent right now or not be due, which the plug-in does
not tell. "queued" and "retrying" are what its log says of the retry queue. NO_COLOR in the
environment keeps colours away.

What --json --bytes prints is for bug reports: every call and record between host and plug-in, with
documents and the output of programs, but not the pictures. Passwords, cookies and tokens are hidden,
and so is what programs read; addresses and the texts of e-mails are not.

The plug-in runs ./curl, reads and writes notify.xml, and keeps its spool, in the working folder. That
is a copy of the one given, removed at the end, with links to all but notify.xml and data/; so nothing
of yours is changed. With --in-place it is the one given, as in a server: notify.xml is written anew,
without comments and without what was skipped, and messages that data/ holds are removed.

Lines marked "mail" tell what came of each attempt to send one, "reason" why one failed before that,
or lacks its movie; both with what helps. For that the host adds "-v" to the arguments of curl.

Exit status: 0 done; 1 the plug-in broke the contract, did not end in time, the mail server did not
come up, or, with --expect-delivery, a mail was not delivered; 2 wrong use.
)";

struct Arguments {
  std::string plugin;
  std::string directory = ".";
  bool inPlace = false;
  std::string mailServer;
  double speed = 1;
  std::string script;
  std::vector<std::string> systems;
  std::vector<std::string> updates;
  std::vector<std::string> events;
  std::vector<std::string> cameras;
  double before = 6;
  double pace = 1;
  double timeLimit = 300;
  double settle = 12;  // more than the plug-in waits for a web server
  int repeat = 1;
  bool expectDelivery = false;
  bool json = false;
  bool bytes = false;
  bool watch = false;
};

// Only a plug-in built for it lets its clocks be driven.
std::string Plugin(const Arguments& arguments) {
  if (!arguments.plugin.empty()) return fs::absolute(arguments.plugin).string();
  return PluginBesideCommand(arguments.speed == 1 ? "notifypi.so" : "notifypi-speed.so");
}

std::optional<std::vector<Step>> Steps(const Arguments& arguments) {
  std::vector<Step> steps;
  if (!arguments.script.empty()) {
    steps = ReadScenario(arguments.script, !arguments.mailServer.empty());
    CompleteCameras(steps);
    return steps;
  }
  const auto add = [&steps](DocumentKind kind, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) steps.emplace_back(ReadDocument(kind, path));
  };
  add(DocumentKind::System, arguments.systems);
  add(DocumentKind::Update, arguments.updates);
  for (const std::string& camera : arguments.cameras) {
    steps.emplace_back(ReadCameraStep(camera, {}));
  }
  if (!arguments.cameras.empty()) steps.emplace_back(Pause{arguments.before});
  add(DocumentKind::Event, arguments.events);
  CompleteCameras(steps);
  if (steps.empty()) return std::nullopt;
  return steps;
}

std::unique_ptr<TimelinePrinter> MakePrinter(const Arguments& arguments) {
  if (arguments.watch) return std::make_unique<WatchPrinter>(stdout, arguments.speed);
  if (arguments.json || arguments.bytes) {
    return std::make_unique<JsonPrinter>(stdout, arguments.bytes);
  }
  return std::make_unique<TextPrinter>(stdout);
}

// Nothing when there is none, as before the plug-in's first start.
std::string ConfigurationIn(const fs::path& folder) {
  return fs::exists(folder / kConfigFile) ? (folder / kConfigFile).string() : std::string();
}

int Run(const Arguments& arguments) {
  HostOptions options;
  options.plugin = Plugin(arguments);
  options.speed = arguments.speed;
  options.pace = arguments.pace;
  options.mailServer = arguments.mailServer;
  options.steps = Steps(arguments);
  options.settle = arguments.settle;
  if (options.steps) options.timeLimit = arguments.timeLimit;

  Timeline timeline(MakePrinter(arguments), arguments.speed);
  options.mailServerFolder = fs::absolute(arguments.directory).string();
  std::optional<WorkingCopy> copy;
  if (!arguments.inPlace) {
    copy.emplace(options.mailServerFolder, ConfigurationIn(options.mailServerFolder));
    options.onAbandon = [&copy] { copy->Remove(); };
  }
  fs::current_path(copy ? copy->Path() : options.mailServerFolder);
  for (int run = 0; run < arguments.repeat && RunHost(options, timeline); ++run) {
  }
  const bool isFailed = arguments.expectDelivery && !timeline.IsDelivered();
  return timeline.Faults() == 0 && !isFailed ? 0 : 1;
}

}  // namespace

Command HostCommand() {
  auto arguments = std::make_shared<Arguments>();
  return {
      "host",
      kDescription,
      kFooter,
      {{"--plugin", &arguments->plugin, "FILE",
        "The plug-in library (default: notifypi.so beside this command or in ../lib/notifypi from "
        "there; with --speed notifypi-speed.so)",
        ExistingFile{}},
       {"--directory", &arguments->directory, "DIR",
        "Working folder, of which a copy is used (default: the current one)", ExistingFolder{}},
       {"--in-place", &arguments->inPlace, "",
        "Work in the folder itself: the plug-in writes notify.xml anew, and clears and fills "
        "data/"},
       {"--script",
        &arguments->script,
        "FILE",
        "Steps to take",
        ExistingFile{},
        {"--system", "--update", "--event", "--camera"}},
       {"--system", &arguments->systems, "FILE", "Full system document to send; may be repeated",
        ExistingFile{}},
       {"--update", &arguments->updates, "FILE", "Configuration document to send; may be repeated",
        ExistingFile{}},
       {"--event", &arguments->events, "FILE", "Event document to send; may be repeated",
        ExistingFile{}},
       {"--camera", &arguments->cameras, "\"STREAM CODEC [FILE]\"",
        "Feed a camera's frames, as \"66049 h264\" or \"66049 h264 gate.mp4\"; may be repeated"},
       {"--before", &arguments->before, "SECONDS",
        "Feed the cameras so long before the first event (default: 6)", Range{0}},
       {"--pace", &arguments->pace, "N",
        "Feed the cameras so many times faster than they take their pictures (default: 1); clips "
        "become shorter as much",
        Range{0.1, 1000}},
       {"--timeout", &arguments->timeLimit, "SECONDS",
        "Stop with a fault after so long; 0: never (default: 300)", Range{0}},
       {"--settle", &arguments->settle, "SECONDS",
        "Silence that ends the wait for events without a report (default: 12)", Range{0}},
       {"--repeat", &arguments->repeat, "N",
        "Load, run and unload the plug-in so many times (default: 1)", Range{1}},
       {"--expect-delivery", &arguments->expectDelivery, "",
        "Count it as a fault when a mail was not delivered, or none was"},
       {"--mail-server", &arguments->mailServer, "COMMAND",
        "Run a mail server by this shell command, for the script to take away"},
       {"--speed", &arguments->speed, "N",
        "Let the plug-in's time pass so many times faster, 0.1 to 1000 (default: 1)",
        Range{0.1, 1000}},
       {"--json", &arguments->json, "", "Print one JSON object a line"},
       {"--bytes", &arguments->bytes, "",
        "The same, with every call and record and their bytes, without passwords"},
       {"--watch",
        &arguments->watch,
        "",
        "Show how the run stands instead of what happens, see below",
        {},
        {"--json", "--bytes"}}},
      [arguments] { return Run(*arguments); }};
}

}  // namespace tvx::tool
