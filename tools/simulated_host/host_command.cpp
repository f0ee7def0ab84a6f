#include "simulated_host/host_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "simulated_host/human_printer.h"
#include "simulated_host/json_printer.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/simulated_host.h"

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

The plug-in runs ./curl, and keeps notify.xml and its spool, in the working folder.

Exit status: 0 done; 1 the plug-in broke the contract, or did not end in time; 2 wrong use.
)";

struct Arguments {
  std::string plugin;
  std::string directory;
  std::string script;
  std::vector<std::string> systems;
  std::vector<std::string> updates;
  std::vector<std::string> events;
  double timeLimit = 300;
  double settle = 3;
  int repeat = 1;
  bool json = false;
};

std::string PluginBesideCommand() {
  return (fs::read_symlink("/proc/self/exe").parent_path() / "notifypi.so").string();
}

std::optional<std::vector<Step>> Steps(const Arguments& arguments) {
  if (!arguments.script.empty()) return ReadScenario(arguments.script);
  std::vector<Step> steps;
  const auto add = [&steps](DocumentKind kind, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) steps.emplace_back(ReadDocument(kind, path));
  };
  add(DocumentKind::System, arguments.systems);
  add(DocumentKind::Update, arguments.updates);
  add(DocumentKind::Event, arguments.events);
  if (steps.empty()) return std::nullopt;
  return steps;
}

int Run(const Arguments& arguments) {
  HostOptions options;
  options.plugin = fs::absolute(arguments.plugin).string();
  options.steps = Steps(arguments);
  options.settle = arguments.settle;
  if (options.steps) options.timeLimit = arguments.timeLimit;

  std::unique_ptr<TimelinePrinter> printer;
  if (arguments.json) {
    printer = std::make_unique<JsonPrinter>(stdout);
  } else {
    printer = std::make_unique<HumanPrinter>(stdout);
  }
  Timeline timeline(std::move(printer));
  if (!arguments.directory.empty()) fs::current_path(arguments.directory);
  for (int run = 0; run < arguments.repeat && RunHost(options, timeline); ++run) {
  }
  return timeline.Faults() == 0 ? 0 : 1;
}

}  // namespace

void AddHostCommand(CLI::App& command, int& exitCode) {
  auto arguments = std::make_shared<Arguments>();
  arguments->plugin = PluginBesideCommand();
  CLI::App* host = command.add_subcommand("host", kDescription);
  host->footer(kFooter);
  // Without descriptions of their own, which help would show beside the names of the values.
  const CLI::Validator file = CLI::ExistingFile.description("");
  const CLI::Validator directory = CLI::ExistingDirectory.description("");
  const CLI::Validator seconds = CLI::NonNegativeNumber.description("");

  host->add_option("--plugin", arguments->plugin,
                   "The plug-in library (default: notifypi.so beside this command)")
      ->check(file)
      ->type_name("FILE");
  host->add_option("--directory", arguments->directory, "Working folder (default: the current one)")
      ->check(directory)
      ->type_name("DIR");
  CLI::Option* script = host->add_option("--script", arguments->script, "Steps to take")
                            ->check(file)
                            ->type_name("FILE");
  const auto document = [&](const char* name, std::vector<std::string>& paths, const char* help) {
    host->add_option(name, paths, help)
        ->check(file)
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->excludes(script);
  };
  document("--system", arguments->systems, "Full system document to send; may be repeated");
  document("--update", arguments->updates, "Configuration document to send; may be repeated");
  document("--event", arguments->events, "Event document to send; may be repeated");
  host->add_option("--timeout", arguments->timeLimit,
                   "Stop with a fault after so long; 0: never (default: 300)")
      ->check(seconds)
      ->type_name("SECONDS");
  host->add_option("--settle", arguments->settle,
                   "Silence that ends the wait for events without a report (default: 3)")
      ->check(seconds)
      ->type_name("SECONDS");
  host->add_option("--repeat", arguments->repeat,
                   "Load, run and unload the plug-in so many times (default: 1)")
      ->check(CLI::PositiveNumber.description(""))
      ->type_name("N");
  host->add_flag("--json", arguments->json, "Print one JSON object a line");

  host->callback([arguments, &exitCode] {
    try {
      exitCode = Run(*arguments);
    } catch (const ScenarioError& error) {
      throw CLI::ValidationError(error.what());
    } catch (const PluginError& error) {
      throw CLI::ValidationError(error.what());
    } catch (const std::system_error& error) {
      throw CLI::ValidationError(error.what());
    }
  });
}

}  // namespace tvx::tool
