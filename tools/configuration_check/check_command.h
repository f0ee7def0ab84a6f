// `notifypi check`: its options and its exit status.
#pragma once

namespace CLI {
class App;
}

namespace tvx::tool {

// Adds the subcommand. When it is parsed and run, exitCode gets 0 (nothing found) or 1 (findings);
// wrong use is thrown as CLI::Error.
void AddCheckCommand(CLI::App& command, int& exitCode);

}  // namespace tvx::tool
