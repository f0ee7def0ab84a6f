// notifypi_soak: loads the plug-in as a host does, keeps it busy, and says whether it stayed flat
// and lost nothing. script/soak prepares the working folder and runs it.
//
// Exit status: 0 flat and balanced, 1 not, 2 used wrongly or not able to begin.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "soak/soak.h"
#include "soak/soak_summary.h"

namespace {

constexpr int kNotFlat = 1;
constexpr int kUsedWrongly = 2;

int Main(int argc, char** argv) {
  CLI::App command("Soak run of the e-mail notification plug-in.", "notifypi_soak");
  tvx::soak::SoakOptions options;
  double minutes = 0;
  std::string folder;
  command.add_option("minutes", minutes, "How long the load lasts")
      ->required()
      ->check(CLI::Range(0.5, 10'000.0));
  command.add_option("--plugin", options.plugin, "Absolute path of the plug-in")->required();
  command.add_option("--mail-sink", options.mailSink, "Absolute path of mail_sink.py")->required();
  command.add_option("--port", options.mailServerPort, "Of the mail server")->required();
  command.add_option("--directory", folder, "Working folder, with ./curl and the videos")
      ->required();
  try {
    command.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return command.exit(help);
  } catch (const CLI::ParseError& error) {
    command.exit(error);
    return kUsedWrongly;
  }
  options.seconds = minutes * 60;
  std::filesystem::current_path(folder);
  // Subjects have the local time in them, and must say the same on both sides.
  setenv("TZ", "UTC", 1);
  tzset();

  const tvx::soak::SoakReport report = tvx::soak::RunSoak(options);
  std::ofstream("summary.json") << tvx::soak::SummaryJson(report).dump(2) << "\n";
  std::fputs(tvx::soak::SummaryText(report).c_str(), stdout);
  return report.faults.empty() ? 0 : kNotFlat;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "notifypi_soak: %s\n", error.what());
    return kUsedWrongly;
  }
}
