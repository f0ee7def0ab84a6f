#include <tinyxml.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "config/config_file.h"
#include "config/event_types.h"
#include "host/host_records.h"
#include "preview/chosen_profile.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/simulated_host.h"
#include "simulated_host/test_printer.h"
#include "simulated_host/working_copy.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDescription =
    R"(Send a test mail of a profile, and tell what its way to the reader was.

The plug-in sends it, to the recipients of the profile, through the servers of the configuration and
the program "curl" beside it: as it would on the server, but for the words "[Test Event Type]" and
the like in place of what only an event has. Shown are the stages of each attempt with the server's
replies, and for one that failed the cause and what helps. The file is not changed.
)";

constexpr const char* kFooter =
    R"(With --camera the profile is notified of motion at this camera instead, so that the mail has its
movie: as for "notifypi host", STREAM is a number as 66049, CODEC is h264, mpeg4 or jpeg, and without
FILE a test picture is filmed.

Exit status: 0 a mail server took the mail; 1 none did, or the plug-in broke its contract; 2 wrong use.
)";

struct Arguments {
  std::string file;
  std::optional<std::int32_t> profile;
  std::optional<std::string> server;
  std::vector<std::string> cameras;
  bool verbose = false;
  std::string plugin;
  double timeLimit = 300;
};

std::vector<std::string> ServersOf(const NotifyConfig& config, const Arguments& arguments) {
  std::vector<std::string> servers;
  std::string all;
  for (const SmtpServer& server : config.servers) {
    all += "\n  \"" + Printable(server.description) + "\"";
    if (!arguments.server || server.description == *arguments.server) {
      servers.push_back(server.description);
    }
  }
  if (!servers.empty()) return servers;
  throw std::runtime_error(
      arguments.file +
      (all.empty() ? ": there is no mail server; run \"notifypi check " + arguments.file + "\""
                   : ": no server of that name, there are" + all));
}

// Leaves only the servers of this name in a configuration that the plug-in can read.
void LeaveOnly(const std::string& server, const std::string& path) {
  const ConfigDocument file = ReadConfigFile(path);
  TiXmlElement* servers = TiXmlHandle(file.document.get())
                              .FirstChildElement()
                              .FirstChildElement("Notify")
                              .FirstChildElement("Servers")
                              .ToElement();
  for (TiXmlElement* it = servers->FirstChildElement(); it != nullptr;) {
    TiXmlElement* const next = it->NextSiblingElement();
    const std::string* description = it->Attribute(std::string("description"));
    if (description == nullptr || *description != server) servers->RemoveChild(it);
    it = next;
  }
  if (SaveConfigFile(path, PrintDocument(*file.document)) != 0) {
    throw std::runtime_error(path + ": cannot be written");
  }
}

std::string EventFor(const NotifyProfile& profile, const std::vector<Step>& cameras) {
  std::string sources;
  for (const Step& step : cameras) {
    sources += "<EventSource ID='" + std::to_string(std::get<StartCamera>(step).camera.stream) +
               "' Type='" + std::to_string(event_type::kVideoMotion) + "'/>";
  }
  const bool isEnd = profile.EventEdge == event_edge::kEnd && !cameras.empty();
  return "<tDVR><Notify ID='" + std::to_string(kModuleId) + "'><Profiles><Profile ID='" +
         std::to_string(profile.ID) + "' Action='1' Alarm='" + (isEnd ? "0'" : "1'") +
         (cameras.empty() ? " Message='Testing Profile'>" : ">") + sources +
         "</Profile></Profiles></Notify></tDVR>";
}

std::vector<Step> StepsFor(const NotifyProfile& profile, const std::vector<std::string>& cameras) {
  constexpr double kSecondsBefore = 6;
  std::vector<Step> steps;
  steps.reserve(cameras.size() + 3);
  for (const std::string& camera : cameras) steps.emplace_back(ReadCameraStep(camera, {}));
  const std::string event = EventFor(profile, steps);
  if (!cameras.empty()) steps.emplace_back(Pause{kSecondsBefore});
  steps.emplace_back(SendDocument{DocumentKind::Event, "of the test", event});
  CompleteCameras(steps);
  return steps;
}

int Run(const Arguments& arguments) {
  const std::shared_ptr<const NotifyConfig> config = ReadConfiguration(arguments.file);
  const NotifyProfile& profile = ChooseProfile(*config, arguments.profile, arguments.file);
  std::vector<std::string> servers = ServersOf(*config, arguments);
  HostOptions options;
  options.plugin = arguments.plugin.empty() ? PluginBesideCommand("notifypi.so")
                                            : fs::absolute(arguments.plugin).string();
  options.steps = StepsFor(profile, arguments.cameras);
  options.timeLimit = arguments.timeLimit;
  options.settle = 12;  // more than the plug-in waits for a web server

  const fs::path file = fs::absolute(arguments.file);
  const WorkingCopy copy(file.parent_path().string(), file.string());
  options.onAbandon = [&copy] { copy.Remove(); };
  fs::current_path(copy.Path());
  if (arguments.server) LeaveOnly(*arguments.server, kConfigFile);
  std::printf("profile %d \"%s\"\n", profile.ID, Printable(profile.description).c_str());
  if (profile.attach && arguments.cameras.empty()) {
    std::puts("  without its movie, which a test has with --camera only");
  }
  Timeline timeline(std::make_unique<TestPrinter>(stdout, std::move(servers), arguments.verbose));
  RunHost(options, timeline);
  std::puts(timeline.IsDelivered() ? "delivered" : "not delivered");
  return timeline.IsDelivered() && timeline.Faults() == 0 ? 0 : 1;
}

}  // namespace

Command TestCommand() {
  auto arguments = std::make_shared<Arguments>();
  return {
      "test",
      kDescription,
      kFooter,
      {{"FILE", &arguments->file, "", "The notify.xml", ExistingFile{}},
       {"--profile", &arguments->profile, "N", "Its profile (default: its only one)"},
       {"--server", &arguments->server, "NAME",
        "Only through the servers of this description (default: all, until one takes the mail)"},
       {"--camera", &arguments->cameras, "\"STREAM CODEC [FILE]\"",
        "Notify of motion at this camera, with its movie, see below; may be repeated"},
       {"--verbose", &arguments->verbose, "",
        "Show the dialogue with each server, without the login, and what the plug-in logs"},
       {"--timeout", &arguments->timeLimit, "SECONDS",
        "Give up after so long; 0: never (default: 300)", Range{0}},
       {"--plugin", &arguments->plugin, "FILE",
        "The plug-in library (default: as for \"notifypi host\")", ExistingFile{}}},
      [arguments] { return Run(*arguments); }};
}

}  // namespace tvx::tool
