// The command of those who install, configure and integrate the plug-in.
//
// Exit status: 0 done, 1 found a fault, 2 used wrongly.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "configuration_check/check_command.h"
#include "preview/preview_command.h"
#include "simulated_host/host_command.h"

namespace {

constexpr int kUsedWrongly = 2;

}  // namespace

int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    CLI::App command("Tool of the e-mail notification plug-in.", "notifypi");
    command.require_subcommand(1);
    tvx::tool::AddHostCommand(command, exitCode);
    tvx::tool::AddCheckCommand(command, exitCode);
    tvx::tool::AddPreviewCommand(command, exitCode);
    try {
      command.parse(argc, argv);
    } catch (const CLI::Success& help) {
      return command.exit(help);
    } catch (const CLI::ParseError& error) {
      command.exit(error);
      return kUsedWrongly;
    }
    return exitCode;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "notifypi: %s\n", error.what());
    return kUsedWrongly;
  }
}
