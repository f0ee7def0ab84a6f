#include "configuration_check/check_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "configuration_check/check_json.h"
#include "configuration_check/check_text.h"
#include "configuration_check/configuration_check.h"
#include "text/palette.h"

namespace tvx::tool {
namespace {

constexpr const char* kDescription =
    R"(Check a configuration file, notify.xml.

Has the plug-in's own reader read it, and tells what the plug-in does not take as the file says (an
error), and what it takes though it is surely not meant (a warning): where, what, why, what the
plug-in does instead, and how to mend it. Nothing is sent and nothing is changed.
)";

constexpr const char* kFooter =
    R"(Exit status: 0 nothing was found; 1 something was found; 2 wrong use, a missing file among it.
)";

struct Arguments {
  std::string file;
  bool json = false;
};

int Run(const Arguments& arguments) {
  const CheckReport report = CheckConfiguration(arguments.file);
  if (arguments.json) {
    const std::string json = CheckJson(report);
    std::fwrite(json.data(), 1, json.size(), stdout);
  } else {
    PrintReport(report, Palette::For(stdout), stdout);
  }
  return report.findings.empty() ? 0 : 1;
}

}  // namespace

void AddCheckCommand(CLI::App& command, int& exitCode) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* check = command.add_subcommand("check", kDescription);
  check->footer(kFooter);
  check->add_option("FILE", arguments->file, "The file to check")
      ->check(CLI::ExistingFile.description(""))
      ->type_name("")
      ->required();
  check->add_flag("--json", arguments->json, "Print one JSON document");
  check->callback([arguments, &exitCode] {
    if (::access(arguments->file.c_str(), R_OK) != 0) {
      throw CLI::ValidationError(arguments->file + ": may not be read");
    }
    exitCode = Run(*arguments);
  });
}

}  // namespace tvx::tool
