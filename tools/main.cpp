// The command of those who install, configure and integrate the plug-in.
//
// Exit status: 0 done, 1 found a fault, 2 used wrongly.
#include <cstdio>
#include <exception>

#include "command_line.h"
#include "commands.h"

int main(int argc, char** argv) {
  try {
    return tvx::tool::RunCommand({"notifypi",
                                  NOTIFYPI_VERSION,
                                  "Tool of the e-mail notification plug-in.",
                                  {tvx::tool::CheckCommand(), tvx::tool::PreviewCommand(),
                                   tvx::tool::TestCommand(), tvx::tool::HostCommand()}},
                                 argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "notifypi: %s\n", error.what());
    return 2;
  }
}
