// The subcommands of notifypi, each with its options and exit status.
#pragma once

#include "command_line.h"

namespace tvx::tool {

Command CheckCommand();
Command HostCommand();
Command PreviewCommand();
Command TestCommand();

}  // namespace tvx::tool
