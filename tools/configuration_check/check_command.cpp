#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "configuration_check/configuration_check.h"
#include "text/palette.h"

namespace tvx::tool {
namespace {

constexpr const char* kDescription =
    R"(Check a configuration file, notify.xml.

Has the plug-in's own reader read it, and tells what keeps mails from being sent, or sends them
otherwise than the file means (an error), and what else is surely not meant (a warning): where, what,
why, its effect, and how to fix it. Nothing is sent and nothing is changed.
)";

constexpr const char* kFooter =
    R"(Exit status: 0 nothing was found; 1 something was found; 2 wrong use, a missing file among it.
)";

struct Arguments {
  std::string file;
  bool json = false;
};

int Run(const Arguments& arguments) {
  if (::access(arguments.file.c_str(), R_OK) != 0) {
    throw std::runtime_error(arguments.file + ": may not be read");
  }
  const CheckReport report = CheckConfiguration(arguments.file);
  const std::string text =
      arguments.json ? CheckJson(report) : CheckText(report, Palette::For(stdout));
  std::fwrite(text.data(), 1, text.size(), stdout);
  return report.findings.empty() ? 0 : 1;
}

}  // namespace

Command CheckCommand() {
  auto arguments = std::make_shared<Arguments>();
  return {"check",
          kDescription,
          kFooter,
          {{"FILE", &arguments->file, "", "The file to check", ExistingFile{}},
           {"--json", &arguments->json, "", "Print one JSON document"}},
          [arguments] { return Run(*arguments); }};
}

}  // namespace tvx::tool
